// What the engine of binary registries refuses: frames that end early, and streams that fail below it.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include <osse/Memory.h>

#include "prove/refusals/Refusals.h"

namespace prove {
namespace {

std::string frame(std::size_t length) {
    const auto size = static_cast<unsigned int>(length);
    std::string bytes(reinterpret_cast<const char*>(&size), sizeof size);
    return bytes + std::string(length, 'x');
}

// What the slots of a binary schema do behind the back of whoever calls them: the stream's descriptor or file.
std::FILE* victim = nullptr;

unsigned int sizeAndBlind(unsigned long* size) {
    blind(victim);
    return GenRegBinVarVal::GetMaxRecordSize(size);
}

unsigned int sizeAndTruncate(unsigned long* size) {
    constexpr long KEPT = 4100;
    (void)!::ftruncate(::fileno(victim), KEPT);
    return GenRegBinVarVal::GetMaxRecordSize(size);
}

std::string truncated;

unsigned int matchAndTruncate(unsigned long /*mask*/, void* /*record*/, void* /*key*/) {
    (void)!::truncate(truncated.c_str(), 64L * 1024);
    return 0;
}

}  // namespace

void Refusals::frames() {
    constexpr std::size_t LONG = 8000;  // more than a stream reads ahead
    const auto readFirst = [&](GenRegGetMaxRecordSize size, std::size_t missing = 0) {
        const std::string whole = frame(LONG) + frame(LONG);
        lay(whole.substr(0, whole.size() - missing));
        Binary binary(file_);
        binary.getMaxRecordSize = size;
        std::FILE* const stream = std::fopen(file_.c_str(), "r+b");
        victim = stream;
        void* buffer = ossMemAlloc(64);
        unsigned long length = 0;
        const unsigned int rc = binary.ReadRecord(stream, &buffer, &length);
        rig_.check(length == LONG, "the length is not told");
        (void)ossMemFree(buffer);
        (void)std::fclose(stream);
        return rc;
    };
    expect({"ReadRecord", 20, REG_FRAME_TRUNCATED},
           [&] { return readFirst(GenRegBinVarVal::GetMaxRecordSize, frame(LONG).size() + 1); });
    expect({"ReadRecord", 25, REG_NO_GET_MAX_RECORD_SIZE}, [&] { return readFirst(nullptr); });
    expect({"ReadRecord", 50, REG_FRAME_PAYLOAD_READ_FAILED}, [&] { return readFirst(sizeAndBlind); });
    expect({"ReadRecord", 60, REG_FRAME_TRUNCATED}, [&] { return readFirst(sizeAndTruncate); });
    GenRegBinVarValRecord record = {};
    const auto through = [&](const char* mode, int buffering, const std::function<unsigned int(std::FILE*)>& use) {
        return [=] {
            std::FILE* const stream = std::fopen("/dev/full", mode);
            static char small[256];
            (void)std::setvbuf(stream, small, buffering, sizeof small);
            const unsigned int rc = use(stream);
            (void)std::fclose(stream);
            return rc;
        };
    };
    Binary frames(file_);
    void* nothing = nullptr;
    unsigned long none = 0;
    expect({"ReadRecord", 10, REG_FRAME_LENGTH_READ_FAILED},
           through("w", _IONBF, [&](std::FILE* stream) { return frames.ReadRecord(stream, &nothing, &none); }));
    expect({"WriteRecord", 60, REG_FRAME_LENGTH_WRITE_FAILED},
           through("w", _IONBF, [&](std::FILE* stream) { return frames.WriteRecord(stream, &record); }));
    expect({"WriteRecord", 70, REG_FRAME_PAYLOAD_WRITE_FAILED}, through("w", _IOFBF, [&](std::FILE* stream) {
               const std::string filling(248, 'x');  // leaves room for a length, and for no record
               (void)std::fputs(filling.c_str(), stream);
               return frames.WriteRecord(stream, &record);
           }));
    expectOnce({"ReadRecord", 30, REG_NO_WORK_BUFFER}, PlatformCall::Alloc,
               [&] { return readFirst(GenRegBinVarVal::GetMaxRecordSize); });
    expectOnce({"ReadRecord", 40, REG_FREE_WORK_BUFFER_FAILED}, PlatformCall::Free,
               [&] { return readFirst(GenRegBinVarVal::GetMaxRecordSize); });

    const auto look = [&] {
        GenRegBinVarValRecord found = {};
        Binary binary(file_);
        return binary.Get(0x1, &record, &found);
    };
    lay(frame(LONG));
    expectOnce({"GenRegBin::Get", 465, REG_READ_FAILED}, PlatformCall::Alloc, look);
    const auto verify = [&] {
        lay(frame(sizeof record));
        std::ofstream(path(".tmp"), std::ios::binary) << frame(sizeof record) << frame(LONG);
        Binary binary(file_);
        return binary.Verify(REG_OP_ADD, 0x1, &record, nullptr);
    };
    expectOnce({"GenRegBin::Verify", 165, REG_VERIFY_READ_FAILED}, PlatformCall::Alloc, verify);
    expect({"GenRegBin::Get", 440, REG_FRAME_TRUNCATED}, REG_READ_FAILED, [&] {
        std::string bytes;
        while (bytes.size() < 256UL * 1024) {
            bytes += frame(LONG);
        }
        lay(bytes);
        truncated = file_;
        GenRegBinVarValRecord found = {};
        Binary binary(file_);
        binary.matchRecord = matchAndTruncate;
        return binary.Get(0x1, &record, &found);
    });
    const auto change = [&] {
        lay(frame(sizeof record));
        Plain plain(file_);
        record.value = 1;
        return plain.Change(0, &record, &record);
    };
    expectOnce({"GenRegBin::Change", 525, REG_NO_RECORD_BUFFER}, PlatformCall::Alloc, change);
    std::filesystem::remove(path(".tmp"));
    std::filesystem::remove(path(".cor"));
}

}  // namespace prove
