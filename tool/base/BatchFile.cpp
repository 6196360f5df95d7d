#include "base/BatchFile.h"

#include <fmt/core.h>

#include <algorithm>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "base/DiskFiles.h"
#include "base/Progress.h"
#include "base/Text.h"

namespace tool {
namespace {

constexpr std::string_view BYTES = "Base64";
constexpr int SCHEMA = 1;

std::string shownSource(const std::string& source) {
    return source.empty() || source == "-" ? "standard input" : printable(source);
}

// What the reading library says, without the names of its own.
std::string reasonOf(const std::string& text) {
    const std::size_t column = text.find("column ");
    return column == std::string::npos ? text : text.substr(column);
}

}  // namespace

std::string_view nameOf(BatchOp op) {
    return op == BatchOp::Set ? "set" : op == BatchOp::Add ? "add" : "delete";
}

std::string BatchTally::summary() const {
    return fmt::format("{} added, {} changed, {} deleted, {} as they were", added, changed, deleted, unchanged);
}

BatchItem::BatchItem(const std::string& source, std::size_t line, std::string_view text)
    : source_(source), line_(line) {
    try {
        members_ = Json::parse(text);
    } catch (const std::invalid_argument& wrong) {
        throw failure("it is no JSON: " + reasonOf(wrong.what()), "one object on each line");
    }
    takeOp();
}

BatchItem::BatchItem(const std::string& source, std::size_t line, Json object)
    : source_(source), line_(line), members_(std::move(object)) {
    takeOp();
}

void BatchItem::takeOp() {
    if (!members_.is_object()) {
        throw failure("it is no JSON object", "one object on each line");
    }
    const auto schema = take("schema");
    if (schema && !(schema->is_number() && schema->get<int>() == SCHEMA)) {
        throw failure("its \"schema\" is not 1", "a newer genreg may read it");
    }
    const std::string op = takeText("op").value_or("set");
    if (op != "set" && op != "add" && op != "delete") {
        throw failure(fmt::format("there is no \"op\" {}", cell(op)), "set, add or delete");
    }
    op_ = op == "set" ? BatchOp::Set : op == "add" ? BatchOp::Add : BatchOp::Delete;
}

std::optional<Json> BatchItem::take(const std::string& name) {
    if (!members_.contains(name)) {
        return std::nullopt;
    }
    Json value = std::as_const(members_)[name];
    members_.erase(name);
    return value;
}

std::optional<std::string> BatchItem::textOf(const std::string& name, const Json& value) const {
    if (value.is_null()) {
        return std::nullopt;
    }
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_bool() || value.is_number()) {
        return value.dump();
    }
    throw failure(fmt::format("\"{}\" is neither a text nor a number", printable(name)), "");
}

std::optional<std::string> BatchItem::takeText(const std::string& name, bool* isNull) {
    const auto value = take(name);
    if (isNull != nullptr) {
        *isNull = value && value->is_null();
    }
    if (value) {
        return textOf(name, *value);
    }
    const auto encoded = take(name + std::string(BYTES));
    if (!encoded) {
        return std::nullopt;
    }
    return bytesOf(name, *encoded);
}

std::string BatchItem::bytesOf(const std::string& name, const Json& encoded) const {
    auto bytes = encoded.is_string() ? fromBase64(encoded.get<std::string>()) : std::nullopt;
    if (!bytes) {
        throw failure(fmt::format("\"{}{}\" is no base64", printable(name), BYTES), "");
    }
    return *bytes;
}

std::string BatchItem::takeName(const std::string& name) {
    const auto text = takeText(name);
    if (!text || text->empty()) {
        throw failure(fmt::format("it has no \"{}\"", name), "what it is about");
    }
    return *text;
}

std::optional<std::string> BatchItem::takeOrNone(const std::string& name) {
    bool isNull = false;
    const auto text = takeText(name, &isNull);
    return isNull ? std::optional(std::string()) : text;
}

std::vector<std::pair<std::string, std::optional<std::string>>> BatchItem::takeTexts(const std::string& name) {
    std::vector<std::pair<std::string, std::optional<std::string>>> texts;
    const auto inner = take(name);
    if (!inner) {
        return texts;
    }
    if (!inner->is_object()) {
        throw failure(fmt::format("\"{}\" is no object", name), "");
    }
    for (const Json::Member& member : inner->items()) {
        if (member.key.ends_with(BYTES)) {
            const std::string plain = member.key.substr(0, member.key.size() - BYTES.size());
            texts.emplace_back(plain, bytesOf(plain, member.value));
        } else {
            texts.emplace_back(member.key, textOf(member.key, member.value));
        }
    }
    return texts;
}

void BatchItem::refuseRest(const std::vector<std::string>& known) const {
    if (members_.empty()) {
        return;
    }
    const std::string& name = members_.items().front().key;
    const std::string near = nearest(name, known);
    std::string all;
    for (const std::string& each : known) {
        all += (all.empty() ? "" : ", ") + each;
    }
    throw failure(fmt::format("it has an unknown member {}", cell(name)), near.empty() ? all : near);
}

Failure BatchItem::failure(const std::string& message, const std::string& hint) const {
    Failure failed;
    failed.kind = "invalid";
    failed.exitStatus = EXIT_INVALID;
    failed.path = source_;
    failed.message = fmt::format("{}: line {}: {}", shownSource(source_), line_, message);
    failed.hint = hint;
    return failed;
}

void BatchItem::name(Failure& failed) const {
    const std::string place = fmt::format("{}: line {}: ", shownSource(source_), line_);
    if (!failed.message.starts_with(place)) {
        failed.message = place + failed.message;
    }
}

void readBatch(const std::string& source, const std::function<void(BatchItem item)>& take) {
    std::string bytes;
    if (source.empty() || source == "-") {
        bytes.assign(std::istreambuf_iterator<char>(std::cin), {});
    } else {
        bytes = readFile(source, "read the batch");
    }
    std::size_t number = 0;
    const Progress progress("reading the batch", static_cast<std::size_t>(std::ranges::count(bytes, '\n')));
    for (std::string_view rest = bytes; !rest.empty();) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        const std::string_view line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        ++number;
        Progress::step();
        if (line.find_first_not_of(" \t\r") != std::string_view::npos) {
            take(BatchItem(source, number, line));
        }
    }
}

}  // namespace tool
