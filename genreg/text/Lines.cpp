#include "genreg/text/Lines.h"

#include <algorithm>
#include <cstring>

#include "genreg/core/SameBytes.h"
#include "genreg/text/Schema.h"

namespace genreg {

bool TextLines::next(Input& input, TextLine* line) const noexcept {
    return input.nextLine(has(REG_FEATURE_LINE_CONTINUATION), &line->raw, &line->length);
}

unsigned int TextLines::checkSearchSlots(bool matches) noexcept {
    if (engine_.parseLine == nullptr) {
        return trace_.fail(90, REG_NO_PARSE_LINE);
    }
    if (matches && engine_.matchRecord == nullptr) {
        return trace_.fail(100, REG_NO_MATCH_RECORD);
    }
    return 0;
}

bool TextLines::isSpokenFor() const noexcept {
    return engine_.ways_ != nullptr && engine_.parseLine == engine_.judgedParse_ &&
           engine_.matchRecord == engine_.judgedMatch_ && !isTraced();
}

void TextLines::passOver(Input& input, unsigned long mask, const void* key) const noexcept {
    while (key != nullptr && isSpokenFor() && input.error() == 0 && input.fill(1) != 0) {
        input.consume(passedAtHand(input, mask, key));
        if (input.ready() != 0) {
            return;
        }
    }
}

std::size_t TextLines::passedAtHand(const Input& input, unsigned long mask, const void* key) const noexcept {
    if (key == nullptr || input.ready() == 0 || !isSpokenFor()) {
        return 0;
    }
    return engine_.ways_->passOver(mask, input.data(), input.ready(), key, has(REG_FEATURE_LINE_CONTINUATION));
}

std::size_t TextLines::equalAtHand(const Input& a, const Input& b) const noexcept {
    if (isTraced()) {
        return 0;  // line by line then, as records one by one
    }
    const char* const bytes = a.data();
    const bool joined = has(REG_FEATURE_LINE_CONTINUATION);
    std::size_t end = sameInFront(bytes, b.data(), std::min(a.ready(), b.ready()));
    while (end > 0 && (bytes[end - 1] != '\n' || (joined && end > 1 && bytes[end - 2] == '\\'))) {
        --end;
    }
    return end;
}

bool TextLines::mayMatch(unsigned long mask, const TextLine& line, const void* key) const noexcept {
    if (line.tooLong()) {
        return false;
    }
    const bool spokenFor = engine_.lineMayMatch != nullptr && engine_.parseLine == engine_.judgedParse_ &&
                           engine_.matchRecord == engine_.judgedMatch_ && !isTraced();
    if (!spokenFor || key == nullptr) {
        return true;
    }
    return isContinued(line) || engine_.lineMayMatch(mask, line.raw, line.length, key);
}

bool TextLines::identify(unsigned long mask, const void* key, unsigned int* identity) const noexcept {
    std::string_view text;
    const bool known = key != nullptr && isSpokenFor() && engine_.ways_->identifyKey(mask, key, &text);
    *identity = mixIdentity(0, text.data(), text.size());
    return known;
}

Place TextLines::nextPlace(Input& input, unsigned int* identity) const noexcept {
    TextLine line = {};
    if (!next(input, &line)) {
        return Place::End;
    }
    std::string_view text;
    const bool known =
        !line.tooLong() && !isContinued(line) && engine_.ways_->identifyLine(line.raw, line.length, &text);
    *identity = mixIdentity(0, text.data(), text.size());
    return known ? Place::Known : Place::Doubtful;
}

// Whether its text differs from its bytes. The last line of a file may be continued by nothing.
bool TextLines::isContinued(const TextLine& line) const noexcept {
    if (!has(REG_FEATURE_LINE_CONTINUATION)) {
        return false;
    }
    const bool toNothing = line.length > 1 && line.endsInNewline() && line.raw[line.length - 2] == '\\';
    return toNothing || std::memchr(line.raw, '\n', line.length - 1) != nullptr;
}

char* TextLines::text(const TextLine& line) noexcept {
    const bool joined = has(REG_FEATURE_LINE_CONTINUATION);
    std::size_t length = 0;
    if (!joined) {
        std::memcpy(text_, line.raw, line.length);
        length = line.length;
    }
    for (std::size_t i = 0; joined && i < line.length; ++i) {
        if (line.raw[i] == '\\' && i + 1 < line.length && line.raw[i + 1] == '\n') {
            ++i;
        } else {
            text_[length++] = line.raw[i];
        }
    }
    text_[length] = '\0';
    return text_;
}

bool TextLines::parse(void* record, const TextLine& line) noexcept {
    const unsigned int rc = line.tooLong() ? engine_.parseLine(record, "") : engine_.parseLine(record, text(line));
    if (rc != 0) {
        trace_.ignore(110, REG_LINE_NOT_PARSED, rc);
        cause_.restore();
    }
    return rc == 0 && !line.tooLong();
}

unsigned int TextLines::format(void* record, char* text) noexcept {
    if (engine_.formatLine == nullptr) {
        return trace_.fail(130, REG_NO_FORMAT_LINE);
    }
    if (const unsigned int rc = engine_.formatLine(record, text)) {
        return trace_.fail(140, REG_FORMAT_FAILED, rc);
    }
    return 0;
}

LinePatch TextLines::patch(const TextLine& line, const char* text) const noexcept {
    const bool joined = has(REG_FEATURE_LINE_CONTINUATION);
    // Where each character of the old text stands in the line, and where they end.
    unsigned short at[REG_LINE_SIZE] = {};
    std::size_t oldLength = 0;
    std::size_t i = 0;
    while (i < line.length && line.raw[i] != '\n' && line.raw[i] != '\0') {
        if (joined && line.raw[i] == '\\' && i + 1 < line.length && line.raw[i + 1] == '\n') {
            i += 2;
        } else {
            at[oldLength++] = static_cast<unsigned short>(i++);
        }
    }
    at[oldLength] = static_cast<unsigned short>(i);
    const std::size_t written = ::strnlen(text, REG_LINE_SIZE);
    const std::size_t newLength = written > 0 && text[written - 1] == '\n' ? written - 1 : written;
    const std::size_t most = std::min(oldLength, newLength);
    std::size_t front = 0;
    while (front < most && line.raw[at[front]] == text[front]) {
        ++front;
    }
    std::size_t back = 0;
    while (back < most - front && line.raw[at[oldLength - back - 1]] == text[newLength - back - 1]) {
        ++back;
    }
    return {at[front], text + front, newLength - front - back, at[oldLength - back]};
}

}  // namespace genreg
