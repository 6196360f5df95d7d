#include "entries/EntryLine.h"

#include <genreg/GenRegText.h>

namespace tool {

std::optional<std::string> shownComment(const char* comment) {
    if (comment == nullptr) {
        return std::nullopt;
    }
    std::string shown = *comment == ' ' ? comment + 1 : comment;
    if (shown.ends_with('\r')) {
        shown.pop_back();
    }
    return shown;
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

std::optional<std::string> askedComment(const std::optional<std::string>& asked) {
    return asked ? std::optional(commentCell(asked->empty() ? std::nullopt : asked)) : std::nullopt;
}

std::string rewrittenLine(std::string_view line, void* record, unsigned int (*rewrite)(void* record, char* line)) {
    std::string text(line);
    text.resize(REG_LINE_SIZE);
    return rewrite(record, text.data()) == 0 ? text.substr(0, text.find_first_of(std::string_view("\n\0", 2)))
                                             : unwritableLine();
}

std::string unwritableLine() {
    return std::string(REG_LINE_SIZE, ' ');
}

}  // namespace tool
