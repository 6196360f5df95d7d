// What a host says of itself in the store: one JSON object, compressed where it is large.
//
// Members, in this order: "schema" (1), "id", "writer", "sequence", "hostName", "time" (ISO 8601, UTC), where a clash
// was resolved "tookOver" (a list of nonces), "sha256", "errors", "registries". "sha256", in lower hexadecimal digits,
// is that of the text which follows it and its comma up to the end of the object, brace included: of all that stays the
// same while the registries do. "errors": [{"path","kind","message"}], of registries that could not be read.
// "registries": [{"path","records":[...]}], the records as `genreg export` prints them, in its order. Texts that are no
// UTF-8 are told as base64, "pathBase64" in place of "path".
//
// Stored as it is up to 4,096 bytes, else as a gzip member. Nobody trusts a value: it may be of another host, cut,
// changed, or a bomb.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/Json.h"

namespace fleet {

inline constexpr std::size_t MOST_PLAIN = 4096;
inline constexpr std::size_t MOST_STORED = std::size_t{256} * 1024;
inline constexpr std::size_t MOST_UNPACKED = std::size_t{8} * 1024 * 1024;

struct RegistryError {
    std::string path;
    std::string kind;  // as a failure of genreg has it
    std::string message;
};

struct MirroredRegistry {
    std::string path;
    std::vector<tool::Json> records;
};

struct HostValue {
    std::string id;
    std::string writer;  // NONCE.BOOT: of the state folder, and of the machine's start
    std::uint64_t sequence = 0;
    std::string hostName;
    std::string time;
    std::vector<std::string> tookOver;  // nonces of those that wrote under the same id before
    std::string sha256;                 // of its content; filled in where it is decoded
    std::vector<RegistryError> errors;
    std::vector<MirroredRegistry> registries;
};

// The text from "errors" on, and its digest.
struct HostContent {
    std::string text;
    std::string sha256;
};
[[nodiscard]] HostContent contentOf(const std::vector<RegistryError>& errors,
                                    const std::vector<MirroredRegistry>& registries);
// As it is stored, of the value's members in front of the content; it may be larger than MOST_STORED.
[[nodiscard]] std::string encode(const HostValue& value, const HostContent& content);

// What is stored under the key of this host. Throws a tool::Failure (exit 7, kind "damaged-value") that says what is
// wrong with it, printable.
[[nodiscard]] HostValue decode(std::string_view stored, std::string_view id);

// What lies under the other key: whose it is, and whether somebody else claims the id, too.
// {"schema":1,"writer":W,"time":T} or, of a clash, {"schema":1,"writer":W,"time":T,"clash":[W1,W2]}.
struct AliveValue {
    std::string writer;
    std::string time;
    std::vector<std::string> clash;
};
[[nodiscard]] std::string encode(const AliveValue& value);
// Throws likewise.
[[nodiscard]] AliveValue decodeAlive(std::string_view stored);

// A writer for people: the beginnings of its nonce and of what tells the machine's start.
[[nodiscard]] std::string writerWords(const std::string& writer);

// In lower hexadecimal digits.
[[nodiscard]] std::string sha256(std::string_view bytes);

}  // namespace fleet
