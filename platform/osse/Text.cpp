#include <osse/Text.h>
#include <strings.h>

#include <cstdarg>
#include <cstdio>

unsigned long ossSnprintf(char* buffer, unsigned long size, const char* format, ...) {
    if (buffer == nullptr || size == 0) {
        return 0;
    }
    std::va_list arguments;
    va_start(arguments, format);
    const int needed = std::vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    if (needed < 0) {
        buffer[0] = '\0';
        return 0;
    }
    const auto length = static_cast<unsigned long>(needed);
    return length < size ? length : size - 1;
}

bool ossStrToBoolean(const char* text, bool* value) {
    struct Word {
        const char* text;
        bool value;
    };
    static constexpr Word WORDS[] = {{"1", true},   {"0", false},  {"true", true}, {"false", false},
                                     {"yes", true}, {"no", false}, {"on", true},   {"off", false},
                                     {"t", true},   {"f", false},  {"y", true},    {"n", false}};
    if (text == nullptr || value == nullptr) {
        return false;
    }
    for (const Word& word : WORDS) {
        if (::strcasecmp(text, word.text) == 0) {
            *value = word.value;
            return true;
        }
    }
    return false;
}
