#include "entries/EntryLine.h"

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

}  // namespace tool
