// What the tests of the line forms share: a registry in a folder of its own, and lines that are written.
#pragma once

#include <genreg/GenRegText.h>

#include <cstring>

#include "support/Scratch.h"

inline std::string textOf(const char* text) {
    return text != nullptr ? text : "(null)";
}

// The line that FormatLine writes over the old one, or its code.
template <typename Schema, typename Record>
std::string formattedLine(Record record, const std::string& old = "") {
    constexpr std::size_t GUARD = 16;
    std::string line = old + '\0';
    line.resize(REG_LINE_SIZE + GUARD, '~');
    const unsigned int rc = Schema::FormatLine(&record, line.data());
    EXPECT_EQ(line.substr(REG_LINE_SIZE), std::string(GUARD, '~'));
    return rc == 0 ? line.c_str() : genregCodeName(rc);
}

class SchemaFile : public Scratch {
protected:
    [[nodiscard]] std::string registry() const { return path("registry"); }
    [[nodiscard]] std::string content() const { return read("registry"); }
    void content(const std::string& text) const {
        remove("registry");  // truncating would wait for the disk
        write("registry", text);
    }
};
