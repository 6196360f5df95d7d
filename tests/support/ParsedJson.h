// A JSON text as the tool printed it, to be looked at. The library that parses it is known to ParsedJson.cpp alone,
// since it takes longer to compile than a file of tests.
#pragma once

#include <concepts>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

class ParsedJson {
public:
    // Throws where it is none.
    static ParsedJson parse(const std::string& text);

    // A member, an element; throws where there is none.
    [[nodiscard]] ParsedJson operator[](const char* key) const;
    [[nodiscard]] ParsedJson operator[](const std::string& key) const { return (*this)[key.c_str()]; }
    [[nodiscard]] ParsedJson at(std::size_t index) const;
    [[nodiscard]] std::vector<ParsedJson> elements() const;

    [[nodiscard]] bool contains(const char* key) const;
    [[nodiscard]] bool is_null() const { return *this == nullptr; }
    [[nodiscard]] std::size_t size() const;
    [[nodiscard]] bool empty() const { return size() == 0; }
    // Throw where it is none.
    [[nodiscard]] std::string text() const;
    [[nodiscard]] long number() const;
    // On one line, members in their order.
    [[nodiscard]] std::string dump() const;

    bool operator==(const ParsedJson& other) const;
    bool operator==(std::nullptr_t) const { return dump() == "null"; }
    bool operator==(const char* text) const { return *this == std::string(text); }
    bool operator==(const std::string& text) const;
    template <std::integral Number>
    bool operator==(Number value) const {
        if constexpr (std::same_as<Number, bool>) {
            return dump() == (value ? "true" : "false");
        } else {
            return dump() == std::to_string(value);
        }
    }
    friend std::ostream& operator<<(std::ostream& stream, const ParsedJson& json) { return stream << json.dump(); }

private:
    struct Value;
    explicit ParsedJson(std::shared_ptr<const Value> value) : value_(std::move(value)) {}

    std::shared_ptr<const Value> value_;
};
