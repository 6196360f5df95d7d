// Counts in a file of binary variables, all of the names or none: ./counters FILE NAME...
#include <genreg/genreg.h>

#include <cstdio>

namespace {

unsigned int countUp(GenRegBinVarVal& counters, const char* name) {
    GenRegBinVarValRecord key = {};
    (void)std::snprintf(key.variable, sizeof key.variable, "%s", name);
    GenRegBinVarValRecord found;
    const unsigned int code = counters.Get(BINVARVAL_MATCH_VARIABLE, &key, &found);
    if (code == REG_NOT_FOUND || code == REG_MISSING) {  // the latter: the file is not there yet
        key.value = 1;
        return counters.Add(BINVARVAL_MATCH_VARIABLE, &key);
    }
    if (code == 0) {
        GenRegBinVarValRecord next = found;
        ++next.value;
        return counters.Change(BINVARVAL_MATCH_VARIABLE, &found, &next);
    }
    return code;
}

}  // namespace

int main(int count, char** words) {
    if (count < 3) {
        return 2;
    }
    unsigned int code = 0;
    GenRegBinVarVal counters(words[1], &code);
    code = code == 0 ? counters.BeginBatch() : code;
    if (code == 0) {
        for (int i = 2; i < count && code == 0; ++i) {
            code = countUp(counters, words[i]);
        }
        code = code == 0 ? counters.CommitBatch() : ((void)counters.AbandonBatch(), code);
    }
    code = code == 0 ? counters.OpenScan() : code;
    GenRegBinVarValRecord each;
    while (code == 0 && (code = counters.GetNext(0, nullptr, &each)) == 0) {
        std::printf("%s %d\n", each.variable, each.value);
    }
    (void)counters.CloseScan();
    if (code != REG_NO_MORE_RECORDS) {
        std::fprintf(stderr, "%s: %s\n", words[1], genregCodeText(code));
        return 1;
    }
    return 0;
}
