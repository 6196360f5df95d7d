// What the schemas of the text engine share: their construction, and the pieces that their callbacks are made of.
#pragma once

#include <genreg/GenRegText.h>

#include <cstddef>
#include <cstring>
#include <string_view>

#include "genreg/core/FunctionTrace.h"

namespace genreg {

// What the library's schemas say of many lines.
struct LineWays {
    // How many bytes in front are whole lines that ParseLine takes and that do not match the key (not null) under the
    // mask. Joined: what a backslash continues is no whole line.
    std::size_t (*passOver)(unsigned long mask, const char* lines, std::size_t length, const void* key, bool joined);
    // What lines and keys are known by, told without parsing: the identity of a line that parses to a record which
    // matches a key (not null) is the key's. False for a line that ParseLine may refuse, or of which nobody can tell;
    // for a key that may match records of another identity.
    bool (*identifyLine)(const char* line, std::size_t length, std::string_view* identity);
    bool (*identifyKey)(unsigned long mask, const void* key, std::string_view* identity);
};

inline bool isBlank(char c) noexcept {
    return c == ' ' || c == '\t';
}

// A null text, as a refused line leaves it, equals nothing.
inline bool sameText(const char* a, const char* b) noexcept {
    return a != nullptr && b != nullptr && std::strcmp(a, b) == 0;
}

// A record's own copy of its line: cut to the buffer and at the first newline, always terminated.
inline void copyLine(char (&text)[REG_LINE_SIZE], const char* line) noexcept {
    const std::size_t length = ::strnlen(line, sizeof text - 1);
    std::memcpy(text, line, length);
    text[length] = '\0';
    text[std::strcspn(text, "\n")] = '\0';
}

// Ends the text at its first "#" and answers what stands behind it; null when there is none.
inline char* cutComment(char* text) noexcept {
    char* const sign = std::strchr(text, '#');
    if (sign == nullptr) {
        return nullptr;
    }
    *sign = '\0';
    return sign + 1;
}

// Whether the bytes begin with the text and one of the ends, a NUL, or nothing more behind it.
inline bool beginsWithField(const char* at, const char* end, const char* text, const char* ends) noexcept {
    for (; *text != '\0'; ++at, ++text) {
        if (at == end || *at != *text) {
            return false;
        }
    }
    return at == end || std::strchr(ends, *at) != nullptr;
}

// What stands in front of the first of the ends, of a NUL, or of the end.
inline std::string_view frontOf(const char* at, const char* end, std::string_view ends) noexcept {
    const char* stop = at;
    while (stop != end && *stop != '\0' && ends.find(*stop) == std::string_view::npos) {
        ++stop;
    }
    return {at, static_cast<std::size_t>(stop - at)};
}
inline std::string_view frontOf(const char* text, std::string_view ends) noexcept {
    return frontOf(text, text + std::strlen(text), ends);
}

// Whether the text is there, and has no blanks.
inline bool isWord(const char* text) noexcept {
    return *text != '\0' && text[std::strcspn(text, " \t\r\n")] == '\0';
}

// A line that grows up to its buffer's length and remembers when it would not fit.
class LineText {
public:
    void append(const char* text, std::size_t length) noexcept {
        if (length > CAPACITY - length_) {
            overflow_ = true;
            return;
        }
        std::memcpy(text_ + length_, text, length);
        length_ += length;
    }
    void append(const char* text) noexcept { append(text, std::strlen(text)); }

    // The text into the line buffer (REG_LINE_SIZE bytes), with or without a newline; false, and nothing written, when
    // it is longer than a line of the file may be.
    [[nodiscard]] bool copyTo(char* line, const char* newline) const noexcept {
        if (overflow_) {
            return false;
        }
        std::memcpy(line, text_, length_);
        std::memcpy(line + length_, newline, std::strlen(newline) + 1);
        return true;
    }

private:
    static constexpr std::size_t CAPACITY = REG_LINE_SIZE - 2;

    char text_[CAPACITY];
    std::size_t length_ = 0;
    bool overflow_ = false;
};

// A schema's records have one size.
template <typename Record>
unsigned int tellRecordSize(Function function, unsigned long* size) noexcept {
    FunctionTrace trace{function};
    *size = sizeof(Record);
    return trace.exit(0);
}

class TextSchema {
public:
    // Fills the slots with the functions of the schema and sets its features.
    template <typename Schema>
    static void install(Schema& schema, GenRegLineMayMatch lineMayMatch, const LineWays& ways,
                        unsigned long features) noexcept {
        GenRegText& engine = schema;
        engine.validateRecord = Schema::ValidateRecord;
        engine.matchRecord = Schema::MatchRecord;
        engine.printRecord = Schema::PrintRecord;
        engine.parseLine = Schema::ParseLine;
        engine.formatLine = Schema::FormatLine;
        engine.useShortcuts(lineMayMatch);
        engine.ways_ = &ways;
        engine.ownSlots_ = {engine.parseLine, engine.matchRecord, engine.formatLine};
        engine.keptSlots_ = {keptParse<Schema>(), Schema::MatchWhole, Schema::RewriteLine};
        engine.getMaxRecordSize = Schema::GetMaxRecordSize;
        engine.getRecordSize = Schema::GetRecordSize;
        engine.features |= features;
    }

    // The steps of a constructor that takes a path: an object whose path is refused stays without slots and features,
    // one whose path cannot be taken apart stays without features.
    template <typename Schema>
    static unsigned int construct(Schema& schema, FunctionTrace& trace, const char* path,
                                  GenRegLineMayMatch lineMayMatch, const LineWays& ways,
                                  unsigned long features) noexcept {
        GenRegText& engine = schema;
        const unsigned int rc = engine.setRegistryPaths(path);
        if (rc == REG_EMPTY_ARGUMENT || rc == REG_PATH_TOO_LONG) {
            return trace.fail(10, rc);
        }
        install(schema, lineMayMatch, ways, rc == 0 ? features : 0);
        return rc == 0 ? 0 : trace.fail(20, rc);
    }

private:
    // A schema that does not clean its comments reads a kept line as any other.
    template <typename Schema>
    static constexpr GenRegParseLine keptParse() noexcept {
        if constexpr (requires { &Schema::ParseKeptLine; }) {
            return Schema::ParseKeptLine;
        } else {
            return Schema::ParseLine;
        }
    }
};

}  // namespace genreg
