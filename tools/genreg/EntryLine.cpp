#include "EntryLine.h"

namespace tool {
namespace {

std::string_view cutFront(std::string_view& text, std::size_t length) {
    const std::string_view front = text.substr(0, length);
    text.remove_prefix(front.size());
    return front;
}

}  // namespace

std::string_view takeUntil(std::string_view& text, std::string_view ends) {
    return cutFront(text, text.find_first_of(ends));
}

std::string_view takeBlanks(std::string_view& text, std::string_view blanks) {
    return cutFront(text, text.find_first_not_of(blanks));
}

std::string_view takeBlanksAtEnd(std::string_view& text, std::string_view blanks) {
    const std::size_t last = text.find_last_not_of(blanks);
    const std::size_t length = last == std::string_view::npos ? 0 : last + 1;
    const std::string_view end = text.substr(length);
    text = text.substr(0, length);
    return end;
}

std::optional<std::string> LineComment::shown() const {
    return text && text->starts_with(' ') ? text->substr(1) : text;
}

void LineComment::set(std::string_view wanted, std::string_view newGap) {
    if (wanted.empty()) {
        if (text) {
            gap.clear();
        }
        text.reset();
        return;
    }
    if (shown() != wanted) {
        gap = gap.empty() ? newGap : gap;
        text = " " + std::string(wanted);
    }
}

LineComment takeComment(std::string_view& line, std::string_view blanks) {
    LineComment comment;
    const std::size_t sign = line.find('#');
    if (sign != std::string_view::npos) {
        comment.text = line.substr(sign + 1);
        line = line.substr(0, sign);
    }
    comment.gap = takeBlanksAtEnd(line, blanks);
    return comment;
}

std::string commentCell(const std::optional<std::string>& shown) {
    return shown ? cell(*shown) : std::string(ABSENT);
}

void putComment(Json& members, const std::optional<std::string>& shown) {
    if (shown) {
        putText(members, "comment", *shown);
    } else {
        members["comment"] = nullptr;
    }
}

}  // namespace tool
