#include "mirror/Packing.h"

#include <fmt/core.h>
#include <openssl/evp.h>
#include <zlib.h>

#include <algorithm>
#include <new>

#include "base/Failure.h"
#include "base/Text.h"
#include "mirror/HostValue.h"

namespace fleet {
namespace {

constexpr std::string_view GZIP = "\x1f\x8b";
constexpr int WINDOW = 15 + 16;  // a gzip header in front, its check behind
constexpr int MEMORY = 8;
constexpr int UNKNOWN_SYSTEM = 255;
constexpr std::size_t PIECE = 64UL * 1024;

Bytef* bytesOf(std::string_view text) {
    // The library's door for input lacks the const that it keeps.
    return reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
}

class Inflater {
public:
    explicit Inflater(std::string_view stored) {
        stream_.next_in = bytesOf(stored);
        stream_.avail_in = static_cast<uInt>(stored.size());
        if (inflateInit2(&stream_, WINDOW) != Z_OK) {
            throw std::bad_alloc();
        }
    }
    ~Inflater() { (void)inflateEnd(&stream_); }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    // Up to the end of the member; no more than may be, and one byte.
    std::string run() {
        std::string text;
        int answer = Z_OK;
        while (answer == Z_OK && text.size() <= MOST_UNPACKED) {
            const std::size_t before = text.size();
            const std::size_t piece = std::min(std::max(PIECE, before), MOST_UNPACKED + 1 - before);
            text.resize(before + piece);
            stream_.next_out = bytesOf(text) + before;
            stream_.avail_out = static_cast<uInt>(piece);
            answer = inflate(&stream_, Z_NO_FLUSH);
            text.resize(before + piece - stream_.avail_out);
        }
        judge(answer, text.size());
        return text;
    }

private:
    void judge(int answer, std::size_t size) const {
        if (size > MOST_UNPACKED) {
            refuseValue(fmt::format("unpacked it is larger than {} bytes", MOST_UNPACKED));
        }
        if (answer == Z_MEM_ERROR) {
            throw std::bad_alloc();
        }
        if (answer == Z_BUF_ERROR) {
            refuseValue("it is cut: its gzip member has no end");
        }
        if (answer != Z_STREAM_END) {
            refuseValue(
                fmt::format("its gzip member is damaged: {}", stream_.msg != nullptr ? stream_.msg : "no data"));
        }
        if (stream_.avail_in != 0) {
            refuseValue(fmt::format("{} behind its gzip member", tool::counted(stream_.avail_in, "byte")));
        }
    }

    z_stream stream_{};
};

}  // namespace

void refuseValue(const std::string& why) {
    tool::Failure failure;
    failure.kind = "damaged-value";
    failure.exitStatus = tool::EXIT_DAMAGED;
    failure.message = why;
    throw failure;
}

std::string packed(std::string_view text) {
    z_stream stream{};
    gz_header header{};
    header.os = UNKNOWN_SYSTEM;
    if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, WINDOW, MEMORY, Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::bad_alloc();
    }
    (void)deflateSetHeader(&stream, &header);
    std::string result(deflateBound(&stream, text.size()), '\0');
    stream.next_in = bytesOf(text);
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = bytesOf(result);
    stream.avail_out = static_cast<uInt>(result.size());
    (void)deflate(&stream, Z_FINISH);  // which the bound lets come to its end at once
    result.resize(result.size() - stream.avail_out);
    (void)deflateEnd(&stream);
    return result;
}

std::string unpacked(std::string_view stored) {
    if (stored.size() > MOST_STORED) {
        refuseValue(fmt::format("it has {} bytes, more than {}", stored.size(), MOST_STORED));
    }
    return stored.starts_with(GZIP) ? Inflater(stored).run() : std::string(stored);
}

std::string sha256(std::string_view bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha256(), nullptr) != 1) {
        throw std::bad_alloc();
    }
    return tool::hexDigits({reinterpret_cast<const char*>(digest), size});
}

}  // namespace fleet
