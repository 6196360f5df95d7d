// A JSON value, which is what programs are told with --json. Objects keep the order in which their members were set.
//
// This is the value alone, in terms of the language's own headers, because nearly every source of the tool builds some.
// How it is written is the business of a library that Json.cpp keeps to itself.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tool {

class Json {
public:
    struct Member;
    using Array = std::vector<Json>;
    using Object = std::vector<Member>;

    // Null, and what a value is made of. Json{{"name", value}, ...} is an object; an array begins as array().
    Json() noexcept;
    Json(std::nullptr_t) noexcept;
    Json(bool truth);
    Json(int number);
    Json(long number);
    Json(long long number);
    Json(unsigned int number);
    Json(unsigned long number);
    Json(unsigned long long number);
    Json(double number);
    Json(std::string text);
    Json(std::string_view text);
    Json(const char* text);
    Json(const void*) = delete;  // which would be taken for a truth
    Json(Array elements);
    Json(std::initializer_list<Member> members);
    static Json array();
    static Json object();

    Json(const Json& other);
    Json(Json&& other) noexcept;
    Json& operator=(const Json& other);
    Json& operator=(Json&& other) noexcept;
    ~Json();

    [[nodiscard]] bool is_null() const;
    [[nodiscard]] bool is_string() const;
    [[nodiscard]] bool is_bool() const;
    [[nodiscard]] bool is_number() const;
    [[nodiscard]] bool is_array() const;
    [[nodiscard]] bool is_object() const;
    [[nodiscard]] bool is_number_float() const;
    // bool, a number (of any kind, taken as T) or std::string. Another kind of value is a defect, and thrown as one.
    template <typename T>
    [[nodiscard]] T get() const {
        if constexpr (std::same_as<T, bool>) {
            return truth();
        } else if constexpr (std::floating_point<T>) {
            return static_cast<T>(real());
        } else if constexpr (std::unsigned_integral<T>) {
            return static_cast<T>(natural());
        } else if constexpr (std::signed_integral<T>) {
            return static_cast<T>(integer());
        } else {
            static_assert(std::same_as<T, std::string>);
            return text();
        }
    }

    // Of an object: a member that is set anew keeps its place. Null becomes an object.
    Json& operator[](std::string_view key);
    const Json& operator[](std::string_view key) const;  // which must be there
    [[nodiscard]] bool contains(std::string_view key) const;
    // The member's text, or the other one where there is no such member.
    [[nodiscard]] std::string value(std::string_view key, std::string_view otherwise) const;
    void erase(std::string_view key);
    void update(const Json& members);
    [[nodiscard]] const Object& items() const;

    [[nodiscard]] const Array& elements() const;

    // Of an array. Null becomes one.
    void push_back(Json element);
    [[nodiscard]] const Json& back() const;

    // No member, no element; null is empty, too.
    [[nodiscard]] bool empty() const;

    // On one line. Bytes that are no UTF-8 are replaced.
    [[nodiscard]] std::string dump() const;
    // What the text says; of members of one name the last, or such are refused. Throws std::invalid_argument, which
    // says what is wrong.
    enum class Repeated { LAST, REFUSED };
    [[nodiscard]] static Json parse(std::string_view text, Repeated repeated = Repeated::LAST);

    bool operator==(const Json& other) const;

private:
    struct Writer;
    class Reader;

    [[nodiscard]] bool truth() const;
    [[nodiscard]] double real() const;
    [[nodiscard]] std::int64_t integer() const;
    [[nodiscard]] std::uint64_t natural() const;
    [[nodiscard]] const std::string& text() const;
    [[nodiscard]] const Json* find(std::string_view key) const;

    std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string, Array, Object> value_;
};

struct Json::Member {
    std::string key;
    Json value;

    bool operator==(const Member& other) const { return key == other.key && value == other.value; }
};

}  // namespace tool
