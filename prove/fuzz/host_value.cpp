// Any bytes as what a host stored: they are taken or refused as damaged, in words that a terminal is safe from; and
// what was taken comes back from what is made of it, as the same bytes twice.
//
// First byte: 1 the bytes are packed first, 2 a digest that fits is put in the place of "DIGEST", 4 they lie under the
// other key.
#include "mirror/HostValue.h"

#include "Fuzz.h"
#include "base/Failure.h"
#include "base/Text.h"
#include "mirror/Packing.h"
#include "mirror/Times.h"

namespace {

const std::string ID(32, 'a');

std::string stored(std::uint8_t form, std::string bytes) {
    constexpr std::string_view DIGEST = "\"DIGEST\",";
    const std::size_t at = bytes.find(DIGEST);
    if ((form & 2U) != 0 && at != std::string::npos) {
        bytes.replace(at, DIGEST.size(), "\"" + fleet::sha256(bytes.substr(at + DIGEST.size())) + "\",");
    }
    return (form & 1U) != 0 ? fleet::packed(bytes) : bytes;
}

// Whether it was taken.
template <typename Work>
bool isTaken(Work work) {
    try {
        work();
        return true;
    } catch (const tool::Failure& failure) {
        claim(failure.exitStatus == tool::EXIT_DAMAGED && !failure.message.empty(), "a refusal says what is wrong");
        claim(tool::printable(failure.message) == failure.message, "a refusal is printable");
        return false;
    }
}

void tryAlive(const std::string& bytes) {
    fleet::AliveValue value;
    if (isTaken([&] { value = fleet::decodeAlive(bytes); })) {
        const fleet::AliveValue again = fleet::decodeAlive(encode(value));
        claim(again.writer == value.writer && again.time == value.time && again.clash == value.clash,
              "what was taken comes back");
    }
}

void tryValue(const std::string& bytes) {
    fleet::HostValue value;
    if (!isTaken([&] { value = fleet::decode(bytes, ID); })) {
        return;
    }
    claim(value.id == ID && fleet::secondsOf(value.time).has_value(), "it is the host's, with a time");
    claim(!isTaken([&] { (void)fleet::decode(bytes, std::string(32, 'b')); }), "it is no other host's");
    const std::string made = encode(value, contentOf(value.errors, value.registries));
    if (made.size() <= fleet::MOST_STORED && fleet::unpacked(made).size() <= fleet::MOST_UNPACKED) {
        const fleet::HostValue again = fleet::decode(made, ID);
        claim(encode(again, contentOf(again.errors, again.registries)) == made, "what was taken comes back");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string value = stored(bytes[0], {reinterpret_cast<const char*>(bytes) + 1, size - 1});
    (bytes[0] & 4U) != 0 ? tryAlive(value) : tryValue(value);
    return 0;
}
