#include <genreg/VersionCodes.h>
#include <osse/Text.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "genreg/core/FunctionTrace.h"
#include "genreg/global/Fields.h"

using genreg::boundedText;
using genreg::Function;
using genreg::FunctionTrace;

namespace {

constexpr unsigned int PARTS = 4;
constexpr unsigned int PART_BITS = 16;
constexpr unsigned long PART_MASK = 0xffff;
constexpr std::size_t TEXT_SIZE = 24;  // "65535.65535.65535.65535" and its NUL

// Part 1 is the most significant.
int partOf(unsigned long code, unsigned int part) noexcept {
    return static_cast<int>((code >> (PART_BITS * (PARTS - part))) & PART_MASK);
}

// Digits up to the end; nothing at all reads as 0, and what is too large keeps its low 16 bits.
bool readPart(std::string_view digits, unsigned long* part) noexcept {
    *part = 0;
    for (const char digit : digits) {
        if (digit < '0' || digit > '9') {
            return false;
        }
        *part = (*part * 10 + static_cast<unsigned long>(digit - '0')) & PART_MASK;
    }
    return true;
}

}  // namespace

unsigned long ossVersionCodeRVNToService(unsigned int level) {
    FunctionTrace trace{Function::OssVersionCodeRVNToService};
    unsigned long code = 0;
    for (unsigned int part = 0; part < PARTS; ++part) {
        code |= static_cast<unsigned long>(level % 100) << (PART_BITS * part);
        level /= 100;
    }
    return code;
}

int ossVersionCodeServiceToRVN(unsigned long code) {
    FunctionTrace trace{Function::OssVersionCodeServiceToRVN};
    char text[TEXT_SIZE];
    ossSnprintf(text, sizeof text, "%2d%02d%02d%02d\n", partOf(code, 1), partOf(code, 2), partOf(code, 3),
                partOf(code, 4));
    // Kept: a part above 99 takes more than its two digits and shifts the others.
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

unsigned int ossVersionCodeToString(unsigned long code, char* buffer, unsigned long size) {
    FunctionTrace trace{Function::OssVersionCodeToString};
    if (buffer == nullptr) {
        return trace.fail(10, REG_VERSION_NULL);
    }
    char text[TEXT_SIZE];
    const unsigned long length = ossSnprintf(text, sizeof text, "%d.%d.%d.%d", partOf(code, 1), partOf(code, 2),
                                             partOf(code, 3), partOf(code, 4));
    if (length == 0) {
        return trace.fail(20, REG_VERSION_FORMAT_FAILED);
    }
    if (size < length + 1) {
        return trace.fail(30, REG_VERSION_BUFFER_TOO_SMALL);
    }
    std::memcpy(buffer, text, length + 1);
    buffer[size - 1] = '\0';  // Kept: also in a buffer that is larger than the text
    return trace.exit(0);
}

unsigned int ossVersionStringToCode(const char* text, unsigned long* code) {
    FunctionTrace trace{Function::OssVersionStringToCode};
    if (text == nullptr || code == nullptr) {
        return trace.fail(10, REG_VERSION_NULL);
    }
    std::string_view rest = boundedText(text, TEXT_SIZE - 1);
    unsigned long read = 0;
    for (unsigned int part = 1; part <= PARTS; ++part) {
        // The last part takes all that is left, a further dot included, which then is no digit.
        const std::size_t end = part < PARTS ? rest.find('.') : std::string_view::npos;
        unsigned long value = 0;
        if (!readPart(rest.substr(0, end), &value)) {
            return trace.fail(20, REG_VERSION_INVALID);
        }
        read = read << PART_BITS | value;
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
    *code = read;
    return trace.exit(0);
}
