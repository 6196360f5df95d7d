#include <genreg/Codes.h>
#include <genreg/LineUtilities.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "genreg/core/FunctionTrace.h"
#include "genreg/core/RecordBuffer.h"

using genreg::Function;
using genreg::FunctionTrace;
using genreg::RecordBuffer;

extern "C" {

int bCompactFormattedLine = 0;

char* GenRegReadLine(char* rawBuffer, char* line, unsigned long maxLength, std::FILE* stream, unsigned int* rc,
                     bool joinContinuations) {
    FunctionTrace trace{Function::GenRegReadLine};
    unsigned int ignored = 0;
    unsigned int& code = rc != nullptr ? *rc : ignored;
    if (rawBuffer == nullptr || line == nullptr || maxLength == 0 || stream == nullptr) {
        code = trace.fail(10, REG_INVALID_ARGUMENT);
        return nullptr;
    }
    code = 0;
    *rawBuffer = '\0';
    *line = '\0';
    std::size_t consumed = 0;  // characters of rawBuffer
    std::size_t length = 0;    // characters of line
    for (;;) {
        char* const piece = rawBuffer + consumed;
        if (consumed > 0 && maxLength - consumed < 2) {
            return rawBuffer;  // the buffer ends within a continued line
        }
        const int room = static_cast<int>(std::min<unsigned long>(maxLength - consumed, INT_MAX));
        if (maxLength < 2 || std::fgets(piece, room, stream) == nullptr) {
            *piece = '\0';
            code = trace.exit(REG_END_OF_INPUT);
            return consumed > 0 ? rawBuffer : nullptr;
        }
        const std::size_t got = std::strlen(piece);
        consumed += got;
        const bool continues = joinContinuations && got >= 2 && piece[got - 1] == '\n' && piece[got - 2] == '\\';
        const std::size_t kept = continues ? got - 2 : got;
        std::memcpy(line + length, piece, kept);
        length += kept;
        line[length] = '\0';
        if (!continues) {
            return rawBuffer;
        }
    }
}

unsigned int GenRegWriteLine(char* line, unsigned long width, std::FILE* stream) {
    FunctionTrace trace{Function::GenRegWriteLine};
    constexpr unsigned long LEAST_WIDTH = 3;  // below it no character gets between two folds
    if (line == nullptr || width < LEAST_WIDTH || stream == nullptr) {
        return trace.fail(10, REG_INVALID_ARGUMENT);
    }
    const std::size_t length = std::strlen(line);
    RecordBuffer folded{"GenRegText"};
    // Every fold adds two characters to at least one of the line's.
    if (!folded.allocate(3 * length + 3)) {
        return trace.fail(20, REG_NO_WORK_BUFFER);
    }
    auto* const out = static_cast<char*>(folded.get());
    std::size_t position = 0;
    // Kept: the positions count what is inserted, so the first physical line carries one character more than the
    // others.
    for (std::size_t taken = 0; taken < length || (length > 0 && (position + 1) % width == 0);) {
        if ((position + 1) % width == 0) {
            out[position++] = '\\';
            out[position++] = '\n';
        } else {
            out[position++] = line[taken++];
        }
    }
    out[position] = '\0';
    (void)std::fputs(out, stream);
    if (folded.release() != 0) {
        return trace.fail(30, REG_FREE_WORK_BUFFER_FAILED);
    }
    return 0;
}

unsigned int StripWhiteSpace(char* text) {
    FunctionTrace trace{Function::StripWhiteSpace};
    if (text == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    // Without a work buffer: a line must never be taken for one that does not match because memory was short.
    char* out = text;
    bool quoted = false;
    for (const char* from = text; *from != '\0'; ++from) {
        const bool blank = *from == ' ' || *from == '\t' || *from == '\n' || *from == '\r';
        if (blank && !quoted && (out == text || out[-1] == ' ')) {
            continue;
        }
        if (*from == '"') {
            quoted = !quoted;
        }
        *out++ = blank ? ' ' : *from;
    }
    while (out > text && out[-1] == ' ') {
        --out;
    }
    *out = '\0';
    return 0;
}

void CleanString(char* text) {
    const FunctionTrace trace{Function::CleanString};
    if (text == nullptr) {
        return;
    }
    for (; *text != '\0'; ++text) {
        const auto byte = static_cast<signed char>(*text);
        if ((byte < ' ' && byte != '\t') || byte == 127) {
            *text = '.';
        }
    }
}

unsigned int ExtractNextField(char** field, char** cursor) {
    FunctionTrace trace{Function::ExtractNextField};
    if (field == nullptr || cursor == nullptr) {
        return trace.fail(10, REG_INVALID_ARGUMENT);
    }
    *field = nullptr;
    if (*cursor == nullptr) {
        return trace.exit(REG_END_OF_INPUT);
    }
    char* const start = *cursor + std::strspn(*cursor, " \t");
    if (*start == '\0') {
        return trace.exit(REG_END_OF_INPUT);
    }
    *field = start;
    char* const end = start + std::strcspn(start, " \t");
    *cursor = *end == '\0' ? nullptr : end + 1;
    *end = '\0';
    return 0;
}
}
