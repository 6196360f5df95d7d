#include "support/ParsedJson.h"

#include <nlohmann/json.hpp>

struct ParsedJson::Value {
    explicit Value(nlohmann::ordered_json parsed) : json(std::move(parsed)) {}
    nlohmann::ordered_json json;
};

ParsedJson ParsedJson::parse(const std::string& text) {
    return ParsedJson(std::make_shared<Value>(nlohmann::ordered_json::parse(text)));
}

ParsedJson ParsedJson::operator[](const char* key) const {
    return ParsedJson(std::make_shared<Value>(value_->json.at(key)));
}

ParsedJson ParsedJson::at(std::size_t index) const {
    return ParsedJson(std::make_shared<Value>(value_->json.at(index)));
}

std::vector<ParsedJson> ParsedJson::elements() const {
    std::vector<ParsedJson> all;
    for (const auto& element : value_->json) {
        all.push_back(ParsedJson(std::make_shared<Value>(element)));
    }
    return all;
}

bool ParsedJson::contains(const char* key) const {
    return value_->json.contains(key);
}

std::size_t ParsedJson::size() const {
    return value_->json.size();
}

std::string ParsedJson::text() const {
    return value_->json.get<std::string>();
}

long ParsedJson::number() const {
    return value_->json.get<long>();
}

std::string ParsedJson::dump() const {
    return value_->json.dump();
}

bool ParsedJson::operator==(const ParsedJson& other) const {
    return value_->json == other.value_->json;
}

bool ParsedJson::operator==(const std::string& text) const {
    return value_->json == text;
}
