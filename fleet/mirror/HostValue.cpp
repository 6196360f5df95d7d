#include "mirror/HostValue.h"

#include <fmt/core.h>

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "base/Output.h"
#include "base/Text.h"
#include "mirror/Keys.h"
#include "mirror/Packing.h"
#include "mirror/Times.h"

namespace fleet {
namespace {

using tool::Json;

constexpr int SCHEMA = 1;
constexpr std::size_t LONGEST_WRITER = 128;
constexpr std::size_t LONGEST_NAME = 255;
constexpr std::size_t LONGEST_PATH = 4096;
constexpr std::size_t LONGEST_KIND = 64;
constexpr std::size_t LONGEST_MESSAGE = 4096;
constexpr std::size_t MOST_WRITERS = 64;
constexpr std::size_t MOST_REGISTRIES = 256;
constexpr std::size_t MOST_ALIVE = 16UL * 1024;
constexpr std::size_t DIGEST_DIGITS = 64;

Json parsed(std::string_view text) {
    constexpr std::size_t MOST_SAID = 200;
    try {
        return Json::parse(text, Json::Repeated::REFUSED);
    } catch (const std::invalid_argument& wrong) {
        // The reading library quotes what it read last, however long.
        const std::string_view why = wrong.what();
        const std::string_view told = why.substr(why.starts_with('[') ? std::min(why.find("] ") + 2, why.size()) : 0);
        refuseValue("it cannot be read: " + tool::printable(told.substr(0, MOST_SAID)));
    }
}

// The members of an object, each asked for by what it must be.
class Members {
public:
    // what: as it is called in what is said of it; empty for the value itself.
    Members(const Json& object, std::string what) : object_(object), what_(std::move(what)) {
        if (!object_.is_object()) {
            refuseValue(what_.empty() ? "it is no JSON object" : fmt::format("{} is no object", what_));
        }
    }

    [[nodiscard]] bool has(const char* name) const { return object_.contains(name); }

    [[nodiscard]] std::string text(const char* name, std::size_t longest, bool mayBeEmpty = false) const {
        const Json& value = member(name);
        if (!value.is_string()) {
            refuse(name, "is no text");
        }
        return judged(name, value.get<std::string>(), longest, mayBeEmpty);
    }
    // Or its bytes, where they are no UTF-8.
    [[nodiscard]] std::string bytes(const char* name, std::size_t longest, bool mayBeEmpty = false) const {
        const std::string encoded = std::string(name) + "Base64";
        if (!has(encoded.c_str())) {
            return text(name, longest, mayBeEmpty);
        }
        const auto bytes = tool::fromBase64(text(encoded.c_str(), 2 * longest));
        if (!bytes || has(name)) {
            refuse(encoded.c_str(), bytes ? "is there twice" : "is no base64");
        }
        return judged(name, *bytes, longest, mayBeEmpty);
    }
    [[nodiscard]] std::uint64_t natural(const char* name) const {
        const Json& value = member(name);
        if (!value.is_number() || value.is_number_float() || value.get<std::int64_t>() < 0) {
            refuse(name, "is no natural number");
        }
        return value.get<std::uint64_t>();
    }
    [[nodiscard]] const Json::Array& list(const char* name) const {
        if (!member(name).is_array()) {
            refuse(name, "is no list");
        }
        return member(name).elements();
    }

    void needSchema() const {
        if (natural("schema") != SCHEMA) {
            refuse("schema", "is not 1; a newer genreg-fleet may read it");
        }
    }

    [[noreturn]] void refuse(const char* name, const std::string& why) const {
        refuseValue(fmt::format("{}\"{}\" {}", what_.empty() ? "" : what_ + ": ", name, why));
    }

private:
    [[nodiscard]] const Json& member(const char* name) const {
        if (!has(name)) {
            refuse(name, "is missing");
        }
        return object_[name];
    }
    [[nodiscard]] std::string judged(const char* name, std::string value, std::size_t longest, bool mayBeEmpty) const {
        if (value.size() > longest) {
            refuse(name, fmt::format("has {} bytes, more than {}", value.size(), longest));
        }
        if (value.empty() && !mayBeEmpty) {
            refuse(name, "is empty");
        }
        return value;
    }

    const Json& object_;
    std::string what_;
};

bool isWord(std::string_view text) {
    return !text.empty() && text.size() <= LONGEST_WRITER && std::ranges::all_of(text, [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' || c == '_';
    });
}

// NONCE.BOOT
bool isWriter(std::string_view text) {
    const std::size_t dot = text.find('.');
    return dot != std::string_view::npos && isWord(text.substr(0, dot)) && isWord(text.substr(dot + 1));
}

std::string takeWriter(const Members& members) {
    std::string writer = members.text("writer", LONGEST_WRITER);
    if (!isWriter(writer)) {
        members.refuse("writer", "is none");
    }
    return writer;
}

std::string takeTime(const Members& members) {
    std::string time = members.text("time", LONGEST_NAME);
    if (!secondsOf(time)) {
        members.refuse("time", "is no time");
    }
    return time;
}

// Nonces, or writers; none where there is no such member.
std::vector<std::string> takeWords(const Members& members, const char* name, bool (*isOne)(std::string_view)) {
    std::vector<std::string> words;
    if (!members.has(name)) {
        return words;
    }
    const Json::Array& list = members.list(name);
    if (list.size() > MOST_WRITERS) {
        members.refuse(name, fmt::format("has {} elements, more than {}", list.size(), MOST_WRITERS));
    }
    for (const Json& each : list) {
        if (!each.is_string() || !isOne(each.get<std::string>())) {
            members.refuse(name, "has an element that is none");
        }
        words.push_back(each.get<std::string>());
    }
    return words;
}

std::vector<RegistryError> takeErrors(const Members& value) {
    std::vector<RegistryError> errors;
    for (const Json& each : value.list("errors")) {
        const Members error(each, fmt::format("error {}", errors.size() + 1));
        errors.push_back({error.bytes("path", LONGEST_PATH), error.text("kind", LONGEST_KIND),
                          error.bytes("message", LONGEST_MESSAGE, true)});
    }
    return errors;
}

std::vector<MirroredRegistry> takeRegistries(const Members& value) {
    std::vector<MirroredRegistry> registries;
    if (value.list("registries").size() > MOST_REGISTRIES) {
        value.refuse("registries", fmt::format("are more than {}", MOST_REGISTRIES));
    }
    for (const Json& each : value.list("registries")) {
        const Members registry(each, fmt::format("registry {}", registries.size() + 1));
        MirroredRegistry taken{registry.bytes("path", LONGEST_PATH), registry.list("records")};
        const auto is = [&](const MirroredRegistry& other) { return other.path == taken.path; };
        if (std::ranges::any_of(registries, is)) {
            refuseValue(fmt::format("registry {} is there twice", tool::cell(taken.path)));
        }
        if (!std::ranges::all_of(taken.records, [](const Json& record) { return record.is_object(); })) {
            registry.refuse("records", "has an element that is no object");
        }
        registries.push_back(std::move(taken));
    }
    return registries;
}

// The digest must be that of all that stands behind it.
void checkDigest(const Members& value, std::string_view text) {
    const std::string digest = value.text("sha256", DIGEST_DIGITS);
    const std::string member = fmt::format("\"sha256\":\"{}\",", digest);
    const std::size_t at = text.find(member);
    if (at == std::string_view::npos || !text.substr(at + member.size()).starts_with("\"errors\":")) {
        value.refuse("sha256", "does not stand in front of \"errors\"");
    }
    if (sha256(text.substr(at + member.size())) != digest) {
        value.refuse("sha256", "does not fit what follows it");
    }
}

Json listOf(const std::vector<std::string>& words) {
    Json list = Json::array();
    for (const std::string& word : words) {
        list.push_back(word);
    }
    return list;
}

}  // namespace

HostContent contentOf(const std::vector<RegistryError>& errors, const std::vector<MirroredRegistry>& registries) {
    Json content{{"errors", Json::array()}, {"registries", Json::array()}};
    for (const RegistryError& error : errors) {
        Json told = Json::object();
        tool::putText(told, "path", error.path);
        told["kind"] = error.kind;
        tool::putText(told, "message", error.message);
        content["errors"].push_back(std::move(told));
    }
    for (const MirroredRegistry& registry : registries) {
        Json told = Json::object();
        tool::putText(told, "path", registry.path);
        told["records"] = registry.records;
        content["registries"].push_back(std::move(told));
    }
    HostContent result{content.dump().substr(1), {}};
    result.sha256 = sha256(result.text);
    return result;
}

std::string encode(const HostValue& value, const HostContent& content) {
    Json head{{"schema", SCHEMA}, {"id", value.id}, {"writer", value.writer}, {"sequence", value.sequence}};
    tool::putText(head, "hostName", value.hostName);
    head["time"] = value.time;
    if (!value.tookOver.empty()) {
        head["tookOver"] = listOf(value.tookOver);
    }
    head["sha256"] = content.sha256;
    std::string text = head.dump();
    text.back() = ',';
    text += content.text;
    return text.size() <= MOST_PLAIN ? text : packed(text);
}

HostValue decode(std::string_view stored, std::string_view id) {
    const std::string text = unpacked(stored);
    const Json object = parsed(text);
    const Members members(object, "");
    members.needSchema();
    HostValue value;
    value.id = members.text("id", LONGEST_NAME);
    if (value.id != id) {
        members.refuse("id", fmt::format("is {}, another host's", tool::cell(value.id)));
    }
    value.writer = takeWriter(members);
    value.sequence = members.natural("sequence");
    value.hostName = members.bytes("hostName", LONGEST_NAME);
    value.time = takeTime(members);
    value.tookOver = takeWords(members, "tookOver", isWord);
    checkDigest(members, text);
    value.sha256 = members.text("sha256", DIGEST_DIGITS);
    value.errors = takeErrors(members);
    value.registries = takeRegistries(members);
    return value;
}

std::string encode(const AliveValue& value) {
    Json object{{"schema", SCHEMA}, {"writer", value.writer}, {"time", value.time}};
    if (!value.clash.empty()) {
        object["clash"] = listOf(value.clash);
    }
    return object.dump();
}

AliveValue decodeAlive(std::string_view stored) {
    if (stored.size() > MOST_ALIVE) {
        refuseValue(fmt::format("it has {} bytes, more than {}", stored.size(), MOST_ALIVE));
    }
    const Json object = parsed(stored);
    const Members members(object, "");
    members.needSchema();
    return {takeWriter(members), takeTime(members), takeWords(members, "clash", isWriter)};
}

std::string writerWords(const std::string& writer) {
    constexpr std::size_t SHOWN = 8;
    const std::size_t dot = std::min(writer.find('.'), writer.size());
    return tool::printable(writer.substr(0, std::min(dot, SHOWN)) + writer.substr(dot, SHOWN + 1));
}

}  // namespace fleet
