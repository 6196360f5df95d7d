#include "base/Json.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace tool {
namespace {

// What a value is asked for that it is not.
template <typename Kind, typename Value>
auto& as(Value& value) {
    auto* held = std::get_if<Kind>(&value);
    if (held == nullptr) {
        throw std::logic_error("a JSON value of another kind");
    }
    return *held;
}

template <typename Kind, typename Value>
Kind& madeInto(Value& value) {
    if (std::holds_alternative<std::nullptr_t>(value)) {
        value.template emplace<Kind>();
    }
    return as<Kind>(value);
}

auto hasKey(std::string_view key) {
    return [key](const Json::Member& member) { return member.key == key; };
}

}  // namespace

Json::Json() noexcept : value_(nullptr) {}
Json::Json(std::nullptr_t) noexcept : value_(nullptr) {}
Json::Json(bool truth) : value_(truth) {}
Json::Json(int number) : value_(std::int64_t{number}) {}
Json::Json(long number) : value_(std::int64_t{number}) {}
Json::Json(long long number) : value_(std::int64_t{number}) {}
Json::Json(unsigned int number) : value_(std::uint64_t{number}) {}
Json::Json(unsigned long number) : value_(std::uint64_t{number}) {}
Json::Json(unsigned long long number) : value_(std::uint64_t{number}) {}
Json::Json(double number) : value_(number) {}
Json::Json(std::string text) : value_(std::move(text)) {}
Json::Json(std::string_view text) : value_(std::string(text)) {}
Json::Json(const char* text) : value_(std::string(text)) {}
Json::Json(Array elements) : value_(std::move(elements)) {}
Json::Json(std::initializer_list<Member> members) : value_(Object(members)) {}
Json::Json(const Json& other) = default;
Json::Json(Json&& other) noexcept = default;
Json& Json::operator=(const Json& other) = default;
Json& Json::operator=(Json&& other) noexcept = default;
Json::~Json() = default;

Json Json::array() {
    return Array();
}

Json Json::object() {
    Json made;
    made.value_ = Object();
    return made;
}

bool Json::is_null() const {
    return std::holds_alternative<std::nullptr_t>(value_);
}

bool Json::is_string() const {
    return std::holds_alternative<std::string>(value_);
}

bool Json::is_bool() const {
    return std::holds_alternative<bool>(value_);
}

bool Json::is_number() const {
    return std::holds_alternative<std::int64_t>(value_) || std::holds_alternative<std::uint64_t>(value_) ||
           is_number_float();
}

bool Json::is_array() const {
    return std::holds_alternative<Array>(value_);
}

bool Json::is_object() const {
    return std::holds_alternative<Object>(value_);
}

bool Json::is_number_float() const {
    return std::holds_alternative<double>(value_);
}

bool Json::truth() const {
    return as<bool>(value_);
}

double Json::real() const {
    const auto* real = std::get_if<double>(&value_);
    return real != nullptr ? *real : static_cast<double>(integer());
}

std::int64_t Json::integer() const {
    const auto* natural = std::get_if<std::uint64_t>(&value_);
    return natural != nullptr ? static_cast<std::int64_t>(*natural) : as<std::int64_t>(value_);
}

std::uint64_t Json::natural() const {
    const auto* integer = std::get_if<std::int64_t>(&value_);
    return integer != nullptr ? static_cast<std::uint64_t>(*integer) : as<std::uint64_t>(value_);
}

const std::string& Json::text() const {
    return as<std::string>(value_);
}

const Json* Json::find(std::string_view key) const {
    const auto* members = std::get_if<Object>(&value_);
    if (members == nullptr) {
        return nullptr;
    }
    const auto found = std::find_if(members->begin(), members->end(), hasKey(key));
    return found == members->end() ? nullptr : &found->value;
}

Json& Json::operator[](std::string_view key) {
    auto& members = madeInto<Object>(value_);
    const auto found = std::find_if(members.begin(), members.end(), hasKey(key));
    return found == members.end() ? members.emplace_back(Member{std::string(key), {}}).value : found->value;
}

const Json& Json::operator[](std::string_view key) const {
    const Json* found = find(key);
    if (found == nullptr) {
        throw std::logic_error("no JSON member " + std::string(key));
    }
    return *found;
}

bool Json::contains(std::string_view key) const {
    return find(key) != nullptr;
}

std::string Json::value(std::string_view key, std::string_view otherwise) const {
    const Json* found = find(key);
    return found == nullptr ? std::string(otherwise) : found->text();
}

void Json::erase(std::string_view key) {
    std::erase_if(as<Object>(value_), hasKey(key));
}

void Json::update(const Json& members) {
    for (const auto& [key, value] : members.items()) {
        (*this)[key] = value;
    }
}

const Json::Object& Json::items() const {
    return as<Object>(value_);
}

void Json::push_back(Json element) {
    madeInto<Array>(value_).push_back(std::move(element));
}

const Json::Array& Json::elements() const {
    return as<Array>(value_);
}

const Json& Json::back() const {
    return as<Array>(value_).back();
}

bool Json::empty() const {
    if (const auto* elements = std::get_if<Array>(&value_)) {
        return elements->empty();
    }
    return is_null() || items().empty();
}

bool Json::operator==(const Json& other) const {
    return value_ == other.value_;
}

struct Json::Writer {
    std::string line{};

    void operator()(const Array& elements) {
        line += '[';
        for (const Json& element : elements) {
            line += &element == elements.data() ? "" : ",";
            std::visit(*this, element.value_);
        }
        line += ']';
    }
    void operator()(const Object& members) {
        line += '{';
        for (const Member& member : members) {
            line += &member == members.data() ? "" : ",";
            (*this)(member.key);
            line += ':';
            std::visit(*this, member.value.value_);
        }
        line += '}';
    }
    template <typename Plain>
    void operator()(const Plain& plain) {
        line += nlohmann::json(plain).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
};

// What the library reads, as it comes.
class Json::Reader : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit Reader(Repeated repeated) : repeated_(repeated) {}

    bool null() override { return put(nullptr); }
    bool boolean(bool truth) override { return put(truth); }
    bool number_integer(number_integer_t number) override { return put(static_cast<long long>(number)); }
    bool number_unsigned(number_unsigned_t number) override { return put(static_cast<unsigned long long>(number)); }
    bool number_float(number_float_t number, const string_t& /*text*/) override { return put(number); }
    bool string(string_t& text) override { return put(std::move(text)); }
    bool binary(binary_t& /*bytes*/) override { return false; }
    bool start_object(std::size_t /*size*/) override { return open(object()); }
    bool key(string_t& name) override {
        keys_.back() = std::move(name);
        return true;
    }
    bool end_object() override {
        settle(as<Object>(open_.back().value_));
        return close();
    }
    bool start_array(std::size_t /*size*/) override { return open(array()); }
    bool end_array() override { return close(); }
    bool parse_error(std::size_t /*place*/, const std::string& /*token*/,
                     const nlohmann::detail::exception& error) override {
        throw std::invalid_argument(error.what());
    }

    Json result{};

private:
    static constexpr std::size_t DEEPEST = 32;

    bool put(Json value) {
        if (open_.empty()) {
            result = std::move(value);
        } else if (open_.back().is_array()) {
            open_.back().push_back(std::move(value));
        } else {
            as<Object>(open_.back().value_).push_back({std::move(keys_.back()), std::move(value)});
        }
        return true;
    }
    bool open(Json value) {
        if (open_.size() == DEEPEST) {
            throw std::invalid_argument("it is nested too deeply");
        }
        open_.push_back(std::move(value));
        keys_.emplace_back();
        return true;
    }
    bool close() {
        Json value = std::move(open_.back());
        open_.pop_back();
        keys_.pop_back();
        return put(std::move(value));
    }

    // Of members of one name the last value counts, in the place of the first. Sorted, since nobody says how many
    // members there are.
    void settle(Object& members) const {
        std::vector<std::size_t> order(members.size());
        std::iota(order.begin(), order.end(), 0U);
        std::stable_sort(order.begin(), order.end(),
                         [&](std::size_t a, std::size_t b) { return members[a].key < members[b].key; });
        std::vector<bool> superseded(members.size());
        bool any = false;
        for (std::size_t i = 0, first = 0; i < order.size(); ++i) {
            if (i == 0 || members[order[i]].key != members[order[first]].key) {
                first = i;
                continue;
            }
            if (repeated_ == Repeated::REFUSED) {
                throw std::invalid_argument("it has two members of one name");
            }
            members[order[first]].value = std::move(members[order[i]].value);
            superseded[order[i]] = any = true;
        }
        if (any) {
            std::size_t at = 0;
            std::erase_if(members, [&](const Member&) { return superseded[at++]; });
        }
    }

    Repeated repeated_;
    std::vector<Json> open_{};
    std::vector<std::string> keys_{};
};

Json Json::parse(std::string_view text, Repeated repeated) {
    Reader reader(repeated);
    if (!nlohmann::json::sax_parse(text.begin(), text.end(), &reader)) {
        throw std::invalid_argument("it cannot be read");
    }
    return std::move(reader.result);
}

std::string Json::dump() const {
    Writer writer;
    std::visit(writer, value_);
    return std::move(writer.line);
}

}  // namespace tool
