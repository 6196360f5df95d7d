// What the schemas share that rewrite a line in its place: pieces that differ are replaced, every other byte stays.
#pragma once

#include <algorithm>
#include <string_view>

#include "genreg/core/Transaction.h"
#include "genreg/text/Lines.h"
#include "genreg/text/Schema.h"

namespace genreg {

// A carriage return is a blank to the schemas that strip white space.
inline bool isWhite(char c) noexcept {
    return isBlank(c) || c == '\r';
}

// The text between two places of a line.
inline std::string_view between(const char* from, const char* to) noexcept {
    return {from, static_cast<std::size_t>(to - from)};
}

// A line, of which pieces are replaced from front to back.
class LineEdit {
public:
    explicit LineEdit(const char* line) noexcept : at_(line), end_(line + std::strcspn(line, "\n")) {}

    // The end of the line, without its newline.
    [[nodiscard]] const char* end() const noexcept { return end_; }

    void insert(std::string_view text) noexcept { text_.append(text.data(), text.size()); }
    void replace(std::string_view piece, std::string_view text) noexcept {
        keepUpTo(piece.data());
        insert(text);
        at_ = std::max(at_, piece.data() + piece.size());
    }
    // The new line over the old one; false, and nothing written, when it is too long.
    [[nodiscard]] bool copyTo(char* line) noexcept {
        keepUpTo(end_);
        return text_.copyTo(line, "\n");
    }

private:
    void keepUpTo(const char* place) noexcept {
        if (place > at_) {
            insert(between(at_, place));
            at_ = place;
        }
    }

    const char* at_;
    const char* end_;
    LineText text_;
};

// Where the comment of a line stands.
struct CommentPlace {
    const char* body;  // the end of what stands before it, blanks left out
    const char* sign;  // its "#", or the end
    const char* end;   // of its text; a carriage return stays behind it
};

inline CommentPlace commentPlace(const char* line, const char* lineEnd) noexcept {
    const char* const sign = std::find(line, lineEnd, '#');
    const char* body = sign;
    while (body > line && isWhite(body[-1])) {
        --body;
    }
    return {body, sign, lineEnd > body && lineEnd[-1] == '\r' ? lineEnd - 1 : lineEnd};
}

// The comment of a record, null for none: a flag without a text is an empty one.
inline const char* commentOf(bool has, const char* text) noexcept {
    const char* const given = text != nullptr ? text : "";
    return has ? given : nullptr;
}

// The blank behind its sign is no part of a comment, nor the carriage return at its end.
inline const char* withoutBlank(const char* comment) noexcept {
    return *comment == ' ' ? comment + 1 : comment;
}
inline std::string_view bareComment(const char* comment) noexcept {
    std::string_view text = withoutBlank(comment);
    text.remove_suffix(text.ends_with('\r') ? 1 : 0);
    return text;
}

// Whether the comment of a line is as a record wants it. A record that was read with the comment cleaned has a dot for
// each byte that is not printable.
inline bool sameComment(const char* stored, const char* wanted) noexcept {
    if (stored == nullptr || wanted == nullptr) {
        return stored == wanted;
    }
    const auto same = [](char kept, char asked) {
        const auto byte = static_cast<signed char>(kept);
        return kept == asked || (asked == '.' && ((byte < ' ' && byte != '\t') || byte == 127));
    };
    const std::string_view kept = bareComment(stored);
    const std::string_view asked = bareComment(wanted);
    return std::equal(kept.begin(), kept.end(), asked.begin(), asked.end(), same);
}

// Puts a comment in the place of another one; null is none. What is written stands behind the gap where no blanks are.
inline void replaceComment(LineEdit& edit, const CommentPlace& place, const char* wanted,
                           std::string_view gap) noexcept {
    if (wanted == nullptr) {
        edit.replace(between(place.body, place.end), "");
        return;
    }
    const char* const at = std::min(place.sign, place.end);
    edit.replace(between(at, place.end), at == place.body ? gap : "");
    edit.insert("# ");
    edit.insert(bareComment(wanted));
}

// Undoes the cleaning of a comment that was read into a record's own copy of the line.
template <std::size_t SIZE>
void restoreComment(const char (&text)[SIZE], char* comment, const char* line) noexcept {
    if (comment != nullptr) {
        std::memcpy(comment, line + (comment - text), std::strlen(comment));
    }
}

}  // namespace genreg
