#include <genreg/Codes.h>
#include <osse/Errors.h>

#include <algorithm>
#include <iterator>

namespace {

struct CodeEntry {
    unsigned int value;
    const char* name;
    const char* sentence;
};

constexpr CodeEntry CODES[] = {
#define GENREG_CODE(value, name, sentence) {value, #name, sentence},
#include <genreg/CodeTable.inc>
#undef GENREG_CODE
};

constexpr bool ascending() {
    for (unsigned long i = 1; i < std::size(CODES); ++i) {
        if (CODES[i - 1].value >= CODES[i].value) {
            return false;
        }
    }
    return true;
}
static_assert(ascending(), "codes are looked up by halving: keep the table in ascending order");

const CodeEntry* find(unsigned int code) {
    const auto* entry = std::lower_bound(std::begin(CODES), std::end(CODES), code,
                                         [](const CodeEntry& e, unsigned int value) { return e.value < value; });
    return entry != std::end(CODES) && entry->value == code ? entry : nullptr;
}

bool isSystemError(unsigned int code) {
    constexpr unsigned int SYSTEM_ERRORS = 0xa0;
    return code > OSS_SYSTEM_ERROR_BASE && code < OSS_SYSTEM_ERROR_BASE + SYSTEM_ERRORS;
}

}  // namespace

extern "C" {

const char* genregCodeName(unsigned int code) {
    if (code == 0) {
        return "REG_SUCCESS";
    }
    if (const CodeEntry* entry = find(code)) {
        return entry->name;
    }
    return isSystemError(code) ? "SYSTEM_ERROR" : "UNKNOWN";
}

const char* genregCodeText(unsigned int code) {
    if (code == 0) {
        return "Done.";
    }
    if (const CodeEntry* entry = find(code)) {
        return entry->sentence;
    }
    return isSystemError(code) ? "An error of the operating system; its number is the code less 0x90000100."
                               : "This is no code of the library.";
}

unsigned int genregCodeAt(unsigned long index) {
    return index < std::size(CODES) ? CODES[index].value : 0;
}
}
