// A text schema of one's own: lines "name rrggbb", comments after "#". Sets a colour, unless somebody has changed it
// meanwhile, and lists what is there. ./schema FILE NAME RRGGBB
#include <genreg/genreg.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr unsigned long MATCH_NAME = 0x1;
constexpr unsigned long MATCH_VALUE = 0x2;

struct Colour {
    char* name;  // both point into the line, or to a client's texts; null: the line holds no colour
    char* value;
    char line[REG_LINE_SIZE];
};

bool same(const char* a, const char* b) noexcept {
    return a != nullptr && b != nullptr && std::strcmp(a, b) == 0;
}

bool isWord(const char* text) noexcept {
    return text != nullptr && *text != '\0' && std::strpbrk(text, " \t\n#") == nullptr;
}

class Colours : public GenRegText {
public:
    Colours(const char* path, unsigned int* rc) noexcept {
        *rc = setRegistryPaths(path);
        validateRecord = Validate;
        matchRecord = Match;
        parseLine = Parse;
        formatLine = Format;
        getMaxRecordSize = MaxSize;
        features |= REG_FEATURE_DEFERRED_COMMIT;
    }

    // Every field is cleared before anything may be refused, and nothing but the line counts.
    static unsigned int Parse(void* record, const char* line) noexcept {
        auto& colour = *static_cast<Colour*>(record);
        colour.name = colour.value = nullptr;
        (void)std::snprintf(colour.line, sizeof colour.line, "%s", line);
        colour.line[std::strcspn(colour.line, "#\n")] = '\0';
        char* cursor = colour.line;
        char* name = nullptr;
        if (ExtractNextField(&name, &cursor) != 0) {
            return 0;  // a blank line or a comment: carried along, matched by nothing
        }
        if (ExtractNextField(&colour.value, &cursor) != 0) {
            return REG_VALUE_MISSING;
        }
        colour.name = name;
        return 0;
    }
    // What it writes is what Parse reads.
    static unsigned int Format(void* record, char* line) noexcept {
        const auto& colour = *static_cast<const Colour*>(record);
        if (colour.value == nullptr) {
            return REG_VALUE_MISSING;
        }
        const int length = std::snprintf(line, REG_LINE_SIZE, "%s %s\n", colour.name, colour.value);
        return length < static_cast<int>(REG_LINE_SIZE) ? 0U : static_cast<unsigned int>(REG_LINE_TOO_LONG);
    }
    // With every bit set: whether the records are equal. A field that is null equals nothing.
    static unsigned int Match(unsigned long mask, void* record, void* key) noexcept {
        const auto& stored = *static_cast<const Colour*>(record);
        const auto& sought = *static_cast<const Colour*>(key);
        const bool matches = stored.name != nullptr && ((mask & MATCH_NAME) == 0 || same(stored.name, sought.name)) &&
                             ((mask & MATCH_VALUE) == 0 || same(stored.value, sought.value));
        return matches ? 1 : 0;
    }
    // Refuses what could not be read back as it was written.
    static unsigned int Validate(unsigned long mask, void* record) noexcept {
        const auto* const colour = static_cast<const Colour*>(record);
        if (colour == nullptr) {
            return REG_EMPTY_ARGUMENT;
        }
        if (!isWord(colour->name)) {
            return REG_NAME_MISSING;
        }
        // A key may lack the value, and a record may not: Format sees to that.
        if (colour->value == nullptr ? (mask & MATCH_VALUE) != 0 : !isWord(colour->value)) {
            return REG_VALUE_MISSING;
        }
        return 0;
    }
    static unsigned int MaxSize(unsigned long* size) noexcept {
        *size = sizeof(Colour);
        return 0;
    }
};

// Changes the colour that was found, but only while its value still is the one found: the key names both.
unsigned int set(Colours& colours, char* name, char* value) {
    Colour wanted = {name, value, ""};
    Colour found;
    unsigned int code = colours.Get(MATCH_NAME, &wanted, &found);
    if (code == REG_NOT_FOUND || code == REG_OPEN_FAILED) {
        return colours.Add(MATCH_NAME, &wanted);
    }
    if (code == 0) {
        code = colours.Change(MATCH_NAME | MATCH_VALUE, &found, &wanted);
    }
    return code == REG_UNCHANGED ? 0 : code;
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 4) {
        return 2;
    }
    unsigned int code = 0;
    Colours colours(arguments[1], &code);
    if (code == 0) {
        code = set(colours, arguments[2], arguments[3]);
    }
    if (code == 0) {
        code = colours.OpenScan();
    }
    Colour colour;
    while (code == 0 && (code = colours.GetNext(0, nullptr, &colour)) == 0) {
        if (colour.name != nullptr) {
            std::printf("%s is %s\n", colour.name, colour.value);
        }
    }
    (void)colours.CloseScan();
    if (code != REG_NO_MORE_RECORDS) {
        std::fprintf(stderr, "%s: %s\n", arguments[1], genregCodeText(code));
        return 1;
    }
    return 0;
}
