#include "genreg/core/ChecksumHeader.h"

#include <genreg/Checksum.h>
#include <genreg/Codes.h>
#include <osse/Text.h>

#include <cstring>

#include "genreg/core/FrameBytes.h"
#include "genreg/core/RecordBuffer.h"
#include "platform/posix/Posix.h"

namespace genreg {
namespace {

constexpr unsigned long LONGEST_CHECKSUM = 12;  // "-2147483648" and its NUL

// Room to spare, as the stamped copy needs it for its header.
constexpr unsigned long SPARE = 100;

// *platformCode: why reading failed, 0 when the file was just too short.
unsigned int readAll(int descriptor, unsigned long size, RecordBuffer& content, unsigned int* platformCode) noexcept {
    *platformCode = 0;
    if (!content.allocate(size + SPARE)) {
        return REG_NO_CHECKSUM_BUFFER;
    }
    std::size_t got = 0;
    *platformCode = posix::readAt(descriptor, content.get(), size, 0, &got);
    if (*platformCode != 0 || got != size) {
        return REG_CHECKSUM_READ_FAILED;
    }
    return 0;
}

void printChecksum(unsigned int checksum, char* header) noexcept {
    std::memset(header, 0, CHECKSUM_HEADER_SIZE);
    (void)ossSnprintf(header, CHECKSUM_HEADER_SIZE, "%d", static_cast<int>(checksum));
}

bool looksLikeHeader(const char* bytes) noexcept {
    const char* const digits = *bytes == '-' ? bytes + 1 : bytes;
    const char* end = digits;
    while (end - bytes < static_cast<long>(LONGEST_CHECKSUM) && *end >= '0' && *end <= '9') {
        ++end;
    }
    return end > digits && end - bytes < static_cast<long>(LONGEST_CHECKSUM) && *end == '\0';
}

bool fitsBody(const char* content, unsigned long size) noexcept {
    char expected[CHECKSUM_HEADER_SIZE];
    printChecksum(bodyChecksum(content, size), expected);
    return std::strncmp(expected, content, CHECKSUM_HEADER_SIZE) == 0;
}

}  // namespace

unsigned int bodyChecksum(const char* content, unsigned long size) noexcept {
    return sqlzChecksumXOR(content + CHECKSUM_HEADER_SIZE, size - CHECKSUM_HEADER_SIZE);
}

HeaderFit judgeHeader(const char* content, unsigned long size) noexcept {
    if (size < CHECKSUM_HEADER_SIZE || !looksLikeHeader(content)) {
        return HeaderFit::None;
    }
    return fitsBody(content, size) ? HeaderFit::Fits : HeaderFit::Misfits;
}

unsigned int judgeChecksumHeader(int descriptor, unsigned long size, bool bigEndian, HeaderFit* fit,
                                 unsigned int* platformCode) noexcept {
    *fit = HeaderFit::None;
    *platformCode = 0;
    if (size < CHECKSUM_HEADER_SIZE) {
        return 0;
    }
    RecordBuffer content{"GenRegFile"};
    if (const unsigned int rc = readAll(descriptor, size, content, platformCode)) {
        return rc;
    }
    const auto* const bytes = static_cast<const char*>(content.get());
    *fit = judgeHeader(bytes, size);
    if (*fit == HeaderFit::Misfits && parsesAsFrames(bigEndian, bytes, size, 0)) {
        *fit = HeaderFit::None;
    }
    return 0;
}

unsigned int verifyChecksumHeader(int descriptor, unsigned long size, unsigned int* platformCode) noexcept {
    *platformCode = 0;
    if (size < CHECKSUM_HEADER_SIZE) {
        return REG_READ_FAILED;
    }
    RecordBuffer content{"GenRegFile"};
    if (const unsigned int rc = readAll(descriptor, size, content, platformCode)) {
        return rc;
    }
    return fitsBody(static_cast<const char*>(content.get()), size) ? 0U
                                                                   : static_cast<unsigned int>(REG_CHECKSUM_DIFFERS);
}

unsigned int stampChecksumHeader(int descriptor, unsigned long size, bool inserted, unsigned long* bodySize,
                                 unsigned int* checksum, unsigned int* platformCode) noexcept {
    RecordBuffer content{"GenRegFile"};
    if (const unsigned int rc = readAll(descriptor, size, content, platformCode)) {
        return rc;
    }
    const unsigned long skipped = inserted ? 0 : CHECKSUM_HEADER_SIZE;
    if (size < skipped) {
        return REG_CHECKSUM_READ_FAILED;
    }
    const char* const body = static_cast<const char*>(content.get()) + skipped;
    const unsigned long length = size - skipped;
    *bodySize = length;
    const unsigned int sum = sqlzChecksumXOR(body, length);
    char header[CHECKSUM_HEADER_SIZE];
    printChecksum(sum, header);
    *platformCode = posix::writeAt(descriptor, header, sizeof header, 0);
    if (*platformCode == 0 && inserted) {
        *platformCode = posix::writeAt(descriptor, body, length, CHECKSUM_HEADER_SIZE);
    }
    if (*platformCode != 0) {
        return REG_COPY_WRITE_FAILED;
    }
    *checksum = sum;
    return 0;
}

}  // namespace genreg
