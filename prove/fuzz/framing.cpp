// Any bytes as a binary registry: the reading of one frame, the engine's own walk, a scan, a lookup and the reading of
// bytes in memory tell the same of it, and an update that finds nothing leaves it alone.
// First byte: 1 big-endian lengths, 2 the checksum header, 4 packed records.
#include <genreg/Codes.h>
#include <genreg/RegistryBytes.h>
#include <sys/stat.h>

#include <cstring>
#include <vector>

#include "Fuzz.h"
#include "genreg/bin/Frames.h"
#include "tests/support/BinSchema.h"

namespace {

constexpr unsigned long HEADER = 32;

struct Walk {
    std::vector<std::string> payloads;
    unsigned int end = 0;
};

Walk readOneByOne(BinItems& items, std::FILE* stream) {
    Walk walk;
    void* buffer = ossMemAlloc(sizeof(BinItem));
    unsigned long length = 0;
    while ((walk.end = items.ReadRecord(stream, &buffer, &length)) == 0) {
        walk.payloads.emplace_back(static_cast<char*>(buffer), length);
    }
    (void)ossMemFree(buffer);
    return walk;
}

Walk walkInPlace(BinItems& items, std::FILE* stream, std::size_t size) {
    Walk walk;
    genreg::FunctionTrace trace{genreg::Function::BinGet};
    genreg::BinFrames frames{items, trace};
    genreg::Input input{::fileno(stream), 0, size};
    genreg::Frame frame = {};
    while ((walk.end = frames.next(input, &frame)) == 0) {
        walk.payloads.emplace_back(frame.payload, frame.length);
    }
    return walk;
}

// What a scan over these frames gives: a record or a refused image each.
void followScan(BinItems& items, const Walk& walk, bool packed) {
    BinItem key = {};
    BinItem found = {};
    for (const std::string& payload : walk.payloads) {
        BinItem expected = {};
        const BinImage image(payload.data(), payload.size());
        if (packed) {
            expected = image.whole ? image.item() : expected;
        } else {
            std::memcpy(&expected, payload.data(), std::min(payload.size(), sizeof expected));
        }
        const unsigned int rc = items.GetNext(0, &key, &found);
        claim(packed && !image.whole ? rc == REG_UNPACK_FAILED : rc == 0, "a scan tells of each frame");
        claim(std::memcmp(&found, &expected, sizeof found) == 0, "a scan gives the record of the frame");
    }
    const unsigned int rc = items.GetNext(0, &key, &found);
    claim(walk.end == REG_NO_MORE_RECORDS ? rc == walk.end : rc == REG_READ_FAILED, "a scan ends as the walk does");
}

// What is read of the bytes in memory is what an object finds that does not know the file yet. Only of damaged ones
// that begin as a record of the global registry the object says that they have a header, which does not fit.
void claimSameInMemory(const std::string& path, const std::string& bytes) {
    GenRegLayout layout;
    const unsigned int rc = genregReadLayout(bytes.data(), bytes.size(), &layout);
    claim((layout.stated != nullptr) == (layout.records == HEADER), "a header is told with what it states");
    BinItems items(path, REG_FEATURE_CHECKSUM_HEADER | layout.features);
    const unsigned int opened = items.OpenReg(REG_OP_READ);
    const std::string type = bytes.size() > 8 ? bytes.substr(4, 4) : "";
    const bool record =
        type.size() == 4 && std::strchr("\1\2\4", type[0]) != nullptr && type.substr(1) == std::string(3, 0);
    claim(opened == rc || (opened == REG_CHECKSUM_DIFFERS && record), "both judge the header alike");
    void* buffer = ossMemAlloc(sizeof(BinItem));
    unsigned long length = 0;
    GenRegFrame frame = {};
    unsigned int read = opened;
    claim(opened != 0 || std::ftell(items.regFp) == static_cast<long>(layout.records), "both begin at the same place");
    for (unsigned long at = layout.records; read == 0; at = frame.end) {
        read = genregReadFrame(bytes.data(), bytes.size(), layout.features, at, &frame);
        claim(items.ReadRecord(items.regFp, &buffer, &length) == read, "both find the same frames");
        claim(read != 0 || (frame.length == length && std::memcmp(frame.payload, buffer, length) == 0), "and bytes");
        claim(read != REG_FRAME_TRUNCATED || frame.length == length || bytes.size() - at < 4, "and length that lies");
        claim(frame.end <= bytes.size(), "a frame ends in the file");
    }
    (void)ossMemFree(buffer);
    (void)items.CloseReg(REG_OP_READ);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const FuzzFolder folder;
    const FuzzQuiet quiet;
    if (size == 0) {
        return 0;
    }
    const bool stamped = (bytes[0] & 2) != 0;
    const bool packed = (bytes[0] & 4) != 0;
    const unsigned long features = ((bytes[0] & 1) != 0 ? REG_FEATURE_BIG_ENDIAN : 0) |
                                   (stamped ? REG_FEATURE_CHECKSUM_HEADER : 0) | (packed ? REG_FEATURE_PACKED : 0);
    const std::string content(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    const std::string path = folder.write("items.reg", content);
    BinItems items(path, features, BinItems::Slots::All);

    claimSameInMemory(path, content);
    std::FILE* const stream = std::fopen(path.c_str(), "rb");
    const Walk read = readOneByOne(items, stream);
    const Walk walked = walkInPlace(items, stream, content.size());
    (void)std::fclose(stream);
    claim(read.payloads == walked.payloads && read.end == walked.end, "both ways of reading frames agree");

    const unsigned int opened = items.OpenScan();
    claim(opened == 0 || (stamped && opened == REG_CHECKSUM_DIFFERS), "only a header that does not fit is refused");
    if (opened == 0 && !stamped) {
        followScan(items, read, packed);
    }
    claim(items.CloseScan() == 0, "the scan is closed");

    BinItem absent = binItem("absent", 0x5a5a5a5a, "absent");
    BinItem found = {};
    const unsigned int got = items.Get(~0UL, &absent, &found);
    const unsigned int deleted = items.Delete(~0UL, &absent);
    if (got != 0) {
        const bool refused = packed || deleted == got || deleted == REG_COPY_WRITE_FAILED;
        claim(deleted != 0 && refused, "what finds nothing deletes nothing");
        claim(folder.read("items.reg") == content, "the file is left alone");
    }
    return 0;
}
