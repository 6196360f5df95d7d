// The text engine's view of a registry: logical lines, and the schema's functions over them.
#pragma once

#include <genreg/GenRegText.h>

#include <cstddef>

#include "genreg/core/FileInternals.h"
#include "genreg/core/FunctionTrace.h"
#include "genreg/core/Identity.h"
#include "genreg/core/Input.h"

namespace genreg {

constexpr const char* TEXT_TAG = "GenRegText";  // for the platform's books of memory

// One logical line as it stands in the file: all its physical lines with their newlines. Valid until the next one of
// the same input.
struct TextLine {
    const char* raw;
    std::size_t length;

    // A line that does not fit the line buffer is carried along, never parsed.
    [[nodiscard]] bool tooLong() const noexcept { return length >= REG_LINE_SIZE; }
    [[nodiscard]] bool endsInNewline() const noexcept { return length > 0 && raw[length - 1] == '\n'; }
    // A backslash at the end, before the newline if there is one.
    [[nodiscard]] bool endsInBackslash() const noexcept {
        const std::size_t text = endsInNewline() ? length - 1 : length;
        return text > 0 && raw[text - 1] == '\\';
    }
};

// What of a line a new text leaves as it stands, its continuations and what is behind a NUL included: so many bytes in
// front, and those from an offset on. Between them goes the piece of the text.
struct LinePatch {
    std::size_t front;
    const char* piece;
    std::size_t pieceLength;
    std::size_t tail;
};

class TextLines {
public:
    TextLines(GenRegText& engine, FunctionTrace& trace) noexcept : engine_(engine), trace_(trace) {}

    [[nodiscard]] bool next(Input& input, TextLine* line) const noexcept;

    // Whether the slots that a search needs are there: REG_NO_PARSE_LINE, REG_NO_MATCH_RECORD.
    [[nodiscard]] unsigned int checkSearchSlots(bool matches) noexcept;

    // Whether what a schema of the library says of its lines speaks for the functions in the slots. It saves calls: not
    // while they are traced.
    [[nodiscard]] bool isSpokenFor() const noexcept;
    // Goes past whole lines that surely do not match the key under the mask, as many as are at hand.
    void passOver(Input& input, unsigned long mask, const void* key) const noexcept;

    // How many bytes at hand are whole lines that surely do not match it, and that ParseLine takes.
    [[nodiscard]] std::size_t passedAtHand(const Input& input, unsigned long mask, const void* key) const noexcept;
    // How many bytes at hand, the same ones in both inputs, are whole lines.
    [[nodiscard]] std::size_t equalAtHand(const Input& a, const Input& b) const noexcept;

    // False when the line surely does not match the key under the mask, told without parsing it.
    [[nodiscard]] bool mayMatch(unsigned long mask, const TextLine& line, const void* key) const noexcept;

    // Whether the key has an identity that speaks for the slots.
    [[nodiscard]] bool identify(unsigned long mask, const void* key, unsigned int* identity) const noexcept;
    // Goes past a line without a word and tells its identity.
    [[nodiscard]] Place nextPlace(Input& input, unsigned int* identity) const noexcept;

    // The line without its continuations, terminated, in the buffer of this object.
    [[nodiscard]] char* text(const TextLine& line) noexcept;

    // Fills the record from the line; whether it is one of the schema. What is refused is logged and no failure.
    bool parse(void* record, const TextLine& line) noexcept;

    [[nodiscard]] unsigned int match(unsigned long mask, void* record, void* key) const noexcept {
        return engine_.matchRecord(mask, record, key);
    }
    [[nodiscard]] unsigned int parseText(void* record, const char* text) const noexcept {
        return engine_.parseLine(record, text);
    }
    // Writes the record's line into the text (REG_LINE_SIZE bytes, holding the line as it stood). REG_NO_FORMAT_LINE,
    // REG_FORMAT_FAILED.
    [[nodiscard]] unsigned int format(void* record, char* text) noexcept;

    // How the text, which was written over that of the line, goes into it.
    [[nodiscard]] LinePatch patch(const TextLine& line, const char* text) const noexcept;

    [[nodiscard]] bool keepsLines() const noexcept { return engine_.keepsLines_; }
    [[nodiscard]] bool has(unsigned long feature) const noexcept { return (engine_.features & feature) != 0; }
    [[nodiscard]] std::FILE* registry() const noexcept { return engine_.regFp; }
    [[nodiscard]] Output& copy() const noexcept { return FileInternals::of(engine_).output(); }
    [[nodiscard]] unsigned long state() const noexcept { return engine_.state; }

private:
    [[nodiscard]] bool isContinued(const TextLine& line) const noexcept;

    GenRegText& engine_;
    FunctionTrace& trace_;
    const CauseMark cause_;
    char text_[REG_LINE_SIZE];  // as long as a line is in it
};

}  // namespace genreg
