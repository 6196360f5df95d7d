// Switches an entry of an inittab off, and keeps all else that its line says: ./inittab FILE ID
#include <genreg/genreg.h>

#include <cstdio>
#include <string>

namespace {

// The entry as it was seen is the key, so that a change that somebody made meanwhile is refused and not lost.
unsigned int switchOff(GenRegInitTab& table, std::string id) {
    constexpr unsigned long ALL =
        INITTAB_MATCH_ID | INITTAB_MATCH_RUN_LEVEL | INITTAB_MATCH_ACTION | INITTAB_MATCH_COMMAND;
    GenRegInitTabRecord key = {};
    key.flags = INITTAB_HAS_ENTRY;
    key.id = id.data();
    GenRegInitTabRecord seen;
    if (const unsigned int code = table.Get(INITTAB_MATCH_ID, &key, &seen)) {
        return code;
    }
    char off[] = "off";
    GenRegInitTabRecord wanted = seen;  // its texts point into what was seen
    wanted.action = off;
    const unsigned int code = table.Change(ALL, &seen, &wanted);
    return code == REG_UNCHANGED ? 0 : code;
}

}  // namespace

int main(int count, char** words) {
    if (count != 3) {
        return 2;
    }
    unsigned int code = 0;
    GenRegInitTab table(words[1], &code);
    code = code == 0 ? table.KeepLines(true) : code;
    code = code == 0 ? switchOff(table, words[2]) : code;
    code = code == 0 ? table.OpenScan() : code;
    GenRegInitTabRecord each;
    while (code == 0 && (code = table.GetNext(0, nullptr, &each)) == 0) {
        if ((each.flags & INITTAB_HAS_ENTRY) != 0) {
            std::printf("%s: %s in %s run levels: %s\n", each.id, each.action,
                        *each.runLevel != '\0' ? each.runLevel : "no", each.command);
        }
    }
    (void)table.CloseScan();
    if (code != REG_NO_MORE_RECORDS) {
        std::fprintf(stderr, "%s: %s\n", words[1], genregCodeText(code));
        return 1;
    }
    return 0;
}
