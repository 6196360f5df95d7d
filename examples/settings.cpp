// Reads typed settings, and changes one only while it is what was seen: ./settings FILE
#include <genreg/genreg.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// One more than what it is. What was found is the key, and, with another value, the record: its line stays but for
// that. Where somebody else is faster, the key is found no more: look again.
unsigned int countUp(GenRegVarVal& settings, std::string variable) {
    GenRegVarValRecord name = {};
    name.contains = VARVAL_HAS_PAIR;
    name.variable = variable.data();
    unsigned int code = REG_NOT_FOUND;
    for (int attempt = 0; code == REG_NOT_FOUND && attempt < 10; ++attempt) {
        GenRegVarValRecord seen;
        code = settings.Get(VARVAL_MATCH_VARIABLE, &name, &seen);
        if (code == 0) {
            std::string next = std::to_string(std::atol(seen.value) + 1);
            GenRegVarValRecord record = seen;  // its texts point into what was seen
            record.value = next.data();
            code = settings.Change(VARVAL_MATCH_VARIABLE | VARVAL_MATCH_VALUE, &seen, &record);
        }
    }
    return code;
}

// Whether it is there or not. Only what is different is written.
unsigned int set(GenRegVarVal& settings, std::string variable, std::string value, std::string comment) {
    GenRegVarValRecord record = {};
    record.contains = VARVAL_HAS_PAIR | VARVAL_HAS_COMMENT;
    record.variable = variable.data();
    record.value = value.data();
    record.comment = comment.data();
    const unsigned int code = settings.Change(VARVAL_MATCH_VARIABLE, &record, &record);
    return code == REG_NOT_FOUND ? settings.Add(VARVAL_MATCH_VARIABLE, &record) : code == REG_UNCHANGED ? 0 : code;
}

unsigned int list(GenRegVarVal& settings) {
    unsigned int code = settings.OpenScan();
    GenRegVarValRecord each;
    while (code == 0 && (code = settings.GetNext(0, nullptr, &each)) == 0) {
        if ((each.contains & VARVAL_HAS_PAIR) != 0) {
            std::printf("%s is %s", each.variable, each.value);
            if ((each.contains & VARVAL_HAS_COMMENT) != 0) {
                std::printf(" (%s)", each.comment + (*each.comment == ' ' ? 1 : 0));
            }
            std::putchar('\n');
        }
    }
    const unsigned int closed = settings.CloseScan();
    return code != REG_NO_MORE_RECORDS ? code : closed;
}

}  // namespace

int main(int count, char** words) {
    if (count != 2) {
        return 2;
    }
    unsigned int code = 0;
    GenRegVarVal settings(words[1], &code);
    code = code == 0 ? settings.KeepLines(true) : code;
    long port = 0;
    bool debug = false;
    if (code == 0 && !settings.GetSintValue("port", &port)) {
        std::fprintf(stderr, "%s: port is no integer\n", words[1]);
        return 1;
    }
    (void)settings.GetBooleanValue("debug", &debug);
    std::printf("port %ld, debug %s\n", port, debug ? "on" : "off");
    code = code == 0 ? countUp(settings, "port") : code;
    code = code == 0 ? set(settings, "debug", "on", "until the next release") : code;
    code = code == 0 ? list(settings) : code;
    if (code != 0) {
        std::fprintf(stderr, "%s: %s\n", words[1], genregCodeText(code));
    }
    return code == 0 ? 0 : 1;
}
