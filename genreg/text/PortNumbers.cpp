// The port numbers of a services-style registry.
#include <genreg/GenRegText.h>

#include <cstdlib>
#include <cstring>

#include "genreg/core/FileInternals.h"
#include "genreg/core/FunctionTrace.h"
#include "genreg/text/Lines.h"

using genreg::FileInternals;
using genreg::Function;
using genreg::Input;
using genreg::OperationTrace;
using genreg::TextLine;
using genreg::TextLines;

namespace {

// The text of the second field up to its "/", cut out of the line; null when there is none or it is empty.
char* portField(char* line) noexcept {
    constexpr const char* BLANKS = "  \t";
    char* rest = nullptr;
    if (::strtok_r(line, BLANKS, &rest) == nullptr) {
        return nullptr;
    }
    char* const field = ::strtok_r(nullptr, BLANKS, &rest);
    if (field == nullptr) {
        return nullptr;
    }
    field[std::strcspn(field, "/\r\n")] = '\0';
    return *field != '\0' ? field : nullptr;
}

}  // namespace

unsigned int GenRegText::GetPortnumbers(int* ports) noexcept {
    OperationTrace trace{Function::GetPortnumbers};
    if (regFp == nullptr || ports == nullptr) {
        return trace.fail(10, REG_INVALID_ARGUMENT);
    }
    FileInternals& inside = FileInternals::of(*this);
    Input* const input = inside.scanInput();
    if (input == nullptr) {
        return trace.fail(15, REG_NO_RECORD_BUFFER);
    }
    TextLines lines{*this, trace};
    int last = 0;
    for (TextLine line = {}; lines.next(*input, &line);) {
        char raw[REG_LINE_SIZE];
        if (line.tooLong() || line.raw[0] == '#') {
            continue;
        }
        std::memcpy(raw, line.raw, line.length);
        raw[line.length] = '\0';
        const char* const field = portField(raw);
        if (field == nullptr) {
            continue;
        }
        const int port = std::atoi(field);
        if (port != last) {
            *ports++ = port;
            last = port;
        }
    }
    const unsigned int error = input->error();
    inside.handOverStream();
    return error != 0 ? trace.fail(20, REG_READ_FAILED, error) : 0;
}
