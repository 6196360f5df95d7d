// What an input of the targets that ask one file in two ways says: the schema, wishes, the mask, how often the bytes of
// the file are repeated; then the key up to its NUL, and those bytes.
#pragma once

#include <genreg/genreg.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "Fuzz.h"

struct Asked {
    unsigned int schema = 0;
    unsigned long mask = 0;
    std::string key;
    unsigned long toggled = 0;  // features
    bool keeps = false;         // lines
    std::string contents;
    std::string path;  // of the file, of none, or of a link to it
};

// False when the input is too short.
inline bool readAsked(const std::uint8_t* bytes, std::size_t size, const FuzzFolder& folder, Asked* asked) {
    constexpr std::size_t HEAD = 4;
    if (size < HEAD) {
        return false;
    }
    const std::string input(reinterpret_cast<const char*>(bytes) + HEAD, size - HEAD);
    asked->schema = bytes[0] % 5U;
    asked->mask = bytes[2];
    asked->key = input.substr(0, std::min(input.find('\0'), input.size()));
    const std::string once = input.substr(std::min(asked->key.size() + 1, input.size()));
    for (unsigned int i = 0; i <= bytes[3] % 32U; ++i) {
        asked->contents += once;
    }
    const unsigned int wishes = bytes[1];
    asked->toggled = (wishes & 4) != 0 ? REG_FEATURE_LINE_CONTINUATION | REG_FEATURE_BIG_ENDIAN : 0;
    asked->keeps = (wishes & 8) != 0;
    asked->path = folder.write("file", asked->contents);
    if ((wishes & 3) == 1) {
        asked->path = folder.path("none");
    } else if ((wishes & 3) == 2) {
        asked->path = folder.path("link");
        (void)::unlink(asked->path.c_str());
        claim(::symlink("file", asked->path.c_str()) == 0, "a link leads to the file");
    }
    return true;
}

// A key whose fields all hold the text, to which it may point.
inline void fillKey(GenRegVarValRecord& key, char* text) {
    key.contains = VARVAL_HAS_PAIR;
    key.variable = key.value = text;
}
inline void fillKey(GenRegServicesRecord& key, char* text) {
    key.flags = *text == '#' ? SERVICES_HAS_COMMENT : SERVICES_HAS_NAME;
    key.name = key.protocol = key.comment = *text == '#' ? text + 1 : text;
}
inline void fillKey(GenRegInitTabRecord& key, char* text) {
    key.flags = *text == '#' ? INITTAB_HAS_COMMENT : INITTAB_HAS_ENTRY;
    key.id = key.runLevel = key.action = key.command = key.comment = text;
}
inline void fillKey(GenRegBinVarValRecord& key, char* text) {
    std::memcpy(key.variable, text, ::strnlen(text, sizeof key.variable));
}
// A type in front, then the texts, each the whole of it; a key is refused that has no fields.
inline void fillKey(GlobalRegRecord& key, char* text) {
    constexpr unsigned long VERSION = 0x0009000700000002;
    key.recordType = static_cast<unsigned int>(*text) % 5;
    const char* const rest = *text == '\0' ? text : text + 1;
    unsigned long count = 0;
    const GlobalRegField* const fields = globalRegFields(key.recordType, &count);
    for (unsigned long n = 0; n < count; ++n) {
        char* const member = reinterpret_cast<char*>(&key) + fields[n].offset;
        const char* const field = n == 0 ? "RVN" : rest;
        if (fields[n].kind == GLOBALREG_FIELD_TEXT) {
            std::memcpy(member, field, ::strnlen(field, fields[n].capacity));
        } else if (fields[n].kind == GLOBALREG_FIELD_VERSION) {
            std::memcpy(member, &VERSION, sizeof VERSION);
        }
        const bool empty = fields[n].kind == GLOBALREG_FIELD_TEXT && *field == '\0';
        key.fieldMask |= empty ? 0 : fields[n].bit;
    }
}
