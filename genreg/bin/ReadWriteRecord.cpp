// One frame between an open stream and memory.
#include <osse/Errors.h>

#include <cerrno>

#include "genreg/bin/Frames.h"
#include "genreg/core/FileInternals.h"
#include "platform/posix/Posix.h"

using genreg::FRAME_LENGTH_SIZE;
using genreg::Function;
using genreg::OperationTrace;
using genreg::RecordBuffer;

unsigned int GenRegBin::ReadRecord(std::FILE* stream, void** buffer, unsigned long* length) noexcept {
    OperationTrace trace{Function::ReadRecord};
    if (stream == nullptr || buffer == nullptr || length == nullptr) {
        return trace.fail(5, REG_NULL_POINTER);
    }
    if (stream == regFp) {
        genreg::FileInternals::of(*this).handOverStream();
    }
    char head[FRAME_LENGTH_SIZE] = {};
    const std::size_t got = std::fread(head, 1, sizeof head, stream);
    *length = genreg::decodeLength((features & REG_FEATURE_BIG_ENDIAN) != 0, head);
    if (got == 0) {
        return std::ferror(stream) != 0 ? trace.fail(10, REG_FRAME_LENGTH_READ_FAILED, ossErrorMapSystem(errno))
                                        : trace.exit(REG_NO_MORE_RECORDS);
    }
    const long position = std::ftell(stream);
    posix::FileStatus status = {};
    if (got < sizeof head || position < 0 || posix::statusOf(posix::descriptorOf(stream), &status) != 0 ||
        static_cast<unsigned long>(position) + *length > status.size) {
        return trace.fail(20, REG_FRAME_TRUNCATED);
    }
    if (getMaxRecordSize == nullptr) {
        return trace.fail(25, REG_NO_GET_MAX_RECORD_SIZE);
    }
    unsigned long largest = 0;
    (void)getMaxRecordSize(&largest);
    if (*length > largest) {
        RecordBuffer larger{"GenRegBin"};
        if (!larger.allocate(*length)) {
            return trace.fail(30, REG_NO_WORK_BUFFER);
        }
        larger.swap(buffer);
        if (const unsigned int rc = larger.release()) {
            return trace.fail(40, REG_FREE_WORK_BUFFER_FAILED, rc);
        }
    }
    const std::size_t read = *length == 0 ? 0 : std::fread(*buffer, 1, *length, stream);
    if (read < *length) {
        return std::ferror(stream) != 0 ? trace.fail(50, REG_FRAME_PAYLOAD_READ_FAILED, ossErrorMapSystem(errno))
                                        : trace.fail(60, REG_FRAME_TRUNCATED);
    }
    return 0;
}

unsigned int GenRegBin::WriteRecord(std::FILE* stream, void* record) noexcept {
    OperationTrace trace{Function::WriteRecord};
    if (stream == nullptr || record == nullptr) {
        return trace.fail(5, REG_NULL_POINTER);
    }
    genreg::BinFrames frames{*this, trace};
    unsigned long size = 0;
    if (const unsigned int rc = frames.payloadSize(record, &size)) {
        return rc;
    }
    char head[FRAME_LENGTH_SIZE];
    genreg::encodeLength((features & REG_FEATURE_BIG_ENDIAN) != 0, static_cast<unsigned int>(size), head);
    if (std::fwrite(head, 1, sizeof head, stream) != sizeof head) {
        return trace.fail(60, REG_FRAME_LENGTH_WRITE_FAILED, ossErrorMapSystem(errno));
    }
    if (std::fwrite(record, 1, size, stream) != size) {
        return trace.fail(70, REG_FRAME_PAYLOAD_WRITE_FAILED, ossErrorMapSystem(errno));
    }
    return 0;
}
