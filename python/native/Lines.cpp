// The registries of lines: variables, services and inittabs.
#include <genreg/GenRegInitTab.h>
#include <genreg/GenRegServices.h>
#include <genreg/GenRegVarVal.h>

#include <bit>
#include <cstring>
#include <tuple>

#include "Registry.h"

namespace {

using OptionalText = std::optional<Text>;

// One blank behind the "#" is layout: Python never sees it, and what is written has it.
OptionalText withoutBlank(const char* comment) {
    return comment == nullptr ? std::nullopt : std::optional(Text{comment + (*comment == ' ' ? 1 : 0)});
}

void putBlank(OptionalText* comment) {
    if (*comment) {
        (*comment)->bytes.insert(0, " ");
    }
}

// The library's ports are in network byte order, in the lower half of their number; the other way round it is the same.
unsigned short portOf(unsigned int stored) {
    const auto port = static_cast<unsigned short>(stored);
    return std::endian::native == std::endian::big ? port : static_cast<unsigned short>(port >> 8U | port << 8U);
}

// What tells one schema from another: its names in the library, what finds a record, and
//   isEntry, rowOf   whether a record is one that Python sees, and what it sees
//   fill             a record that points into the row; what is none is not set
struct Variables {
    using Library = GenRegVarVal;
    using Record = GenRegVarValRecord;
    using Key = Text;                                          // name
    using Row = std::tuple<Text, OptionalText, OptionalText>;  // name, value, comment
    static constexpr unsigned long KEY_MASK = VARVAL_MATCH_VARIABLE;
    static constexpr GenRegParseLine PARSE = GenRegVarVal::ParseKeptLine;

    static bool isEntry(const Record& record) { return record.variable != nullptr && record.value != nullptr; }
    static Row rowOf(const Record& record) {
        return {Text{record.variable}, Text{record.value}, withoutBlank(record.comment)};
    }
    static Row rowOf(const Key& key) { return {key, std::nullopt, std::nullopt}; }
    static void fill(Record& record, Row& row) {
        auto& [name, value, comment] = row;
        putBlank(&comment);
        record.contains = VARVAL_HAS_PAIR | (comment ? VARVAL_HAS_COMMENT : 0);
        record.variable = name.data();
        record.value = value ? value->data() : nullptr;
        record.comment = comment ? comment->data() : nullptr;
    }
};

struct Services {
    using Library = GenRegServices;
    using Record = GenRegServicesRecord;
    using Key = std::tuple<Text, Text>;                                                   // name, protocol
    using Row = std::tuple<Text, unsigned short, Text, std::vector<Text>, OptionalText>;  // and port, aliases, comment
    static constexpr unsigned long KEY_MASK = SERVICES_MATCH_NAME | SERVICES_MATCH_PROTOCOL;
    static constexpr GenRegParseLine PARSE = GenRegServices::ParseKeptLine;

    static bool isEntry(const Record& record) { return record.name != nullptr && record.protocol != nullptr; }
    static Row rowOf(const Record& record) {
        std::vector<Text> aliases;
        for (char** alias = record.aliases; alias != nullptr && *alias != nullptr; ++alias) {
            aliases.push_back({*alias});
        }
        return {Text{record.name}, portOf(record.port), Text{record.protocol}, std::move(aliases),
                withoutBlank(record.comment)};
    }
    static Row rowOf(const Key& key) {
        return {std::get<0>(key), static_cast<unsigned short>(0), std::get<1>(key), std::vector<Text>(), std::nullopt};
    }
    static void fill(Record& record, Row& row) {
        auto& [name, port, protocol, aliases, comment] = row;
        if (aliases.size() >= std::size(record.aliasTable)) {
            throw Failed::refused("a service has at most 127 aliases");
        }
        putBlank(&comment);
        record.flags = SERVICES_HAS_NAME | (comment ? SERVICES_HAS_COMMENT : 0);
        record.name = name.data();
        record.port = portOf(port);
        record.protocol = protocol.data();
        record.comment = comment ? comment->data() : nullptr;
        char** place = record.aliasTable;
        for (Text& alias : aliases) {
            *place++ = alias.data();
        }
        *place = nullptr;
        record.aliases = aliases.empty() ? nullptr : record.aliasTable;
    }
};

struct InitTab {
    using Library = GenRegInitTab;
    using Record = GenRegInitTabRecord;
    using Key = Text;                                              // id
    using Row = std::tuple<Text, Text, Text, Text, OptionalText>;  // id, run levels, action, command, comment
    static constexpr unsigned long KEY_MASK = INITTAB_MATCH_ID;
    static constexpr GenRegParseLine PARSE = GenRegInitTab::ParseLine;

    static bool isEntry(const Record& record) { return record.command != nullptr; }
    static Row rowOf(const Record& record) {
        const bool commented = (record.flags & INITTAB_HAS_COMMENT) != 0;
        return {Text{record.id}, Text{record.runLevel}, Text{record.action}, Text{record.command},
                commented ? std::optional(Text{record.comment}) : std::nullopt};
    }
    static Row rowOf(const Key& key) { return {key, Text(), Text(), Text(), std::nullopt}; }
    static void fill(Record& record, Row& row) {
        auto& [id, runLevels, action, command, comment] = row;
        record.flags = INITTAB_HAS_ENTRY | (comment ? INITTAB_HAS_COMMENT : 0);
        record.id = id.data();
        record.runLevel = runLevels.data();
        record.action = action.data();
        record.command = command.data();
        record.comment = comment ? comment->data() : nullptr;
    }
};

template <typename Schema>
class Lines final : public Schema::Library {
public:
    using Key = typename Schema::Key;
    using Row = typename Schema::Row;

    explicit Lines(const std::string& path) : Lines(path, 0) {}

    std::optional<Row> find(const Key& key) {
        Row wanted = Schema::rowOf(key);
        const auto keyRecord = recordOf(wanted);
        const auto found = std::make_unique<Record>();
        const unsigned int code = this->Get(Schema::KEY_MASK, keyRecord.get(), found.get());
        if (code == REG_NOT_FOUND) {
            return std::nullopt;
        }
        check(code);
        return Schema::rowOf(*found);
    }

    void readAll(std::vector<Row>* rows) {
        readScan<Record>(*this, [&](const Record& record) {
            if (Schema::isEntry(record)) {
                rows->push_back(Schema::rowOf(record));
            }
        });
    }

    void add(Row& row) {
        const auto record = recordOf(row);
        refuseUnwritable(*record);
        check(this->Add(Schema::KEY_MASK, record.get()));
    }

    void change(const Key& key, Row& row) {
        Row wanted = Schema::rowOf(key);
        const auto keyRecord = recordOf(wanted);
        const auto record = recordOf(row);
        refuseUnwritable(*record);
        if (const unsigned int code = this->Change(Schema::KEY_MASK, keyRecord.get(), record.get());
            code != REG_UNCHANGED) {
            check(code);
        }
    }

    void remove(const Key& key, bool every) {
        Row wanted = Schema::rowOf(key);
        const auto keyRecord = recordOf(wanted);
        removeAs(*this, every, [&] { return this->Delete(Schema::KEY_MASK, keyRecord.get()); });
    }

private:
    using Record = typename Schema::Record;

    Lines(const std::string& path, unsigned int code) : Schema::Library(path.c_str(), &code) {
        check(code);
        check(this->KeepLines(true));
        (void)this->unsetFeature(REG_FEATURE_ALLOW_DUPLICATES);
    }

    static std::unique_ptr<Record> recordOf(Row& row) {
        auto record = std::make_unique<Record>();
        Schema::fill(*record, row);
        return record;
    }

    // What a new line would not say, or what would be two lines, is refused for what it is.
    static void refuseUnwritable(Record& record) {
        char line[REG_LINE_SIZE] = "";
        if (const unsigned int code = Schema::Library::RewriteLine(&record, line)) {
            Failed failed = Failed::refused({});
            failed.outcome.cause.code = code;
            throw failed;
        }
        const auto read = std::make_unique<Record>();
        const std::size_t newline = std::strcspn(line, "\n");
        if (line[newline + (line[newline] != '\0' ? 1 : 0)] != '\0' || Schema::PARSE(read.get(), line) != 0 ||
            Schema::Library::MatchWhole(~0UL, read.get(), &record) != 1) {
            throw Failed::refused("no line reads back as this");
        }
    }
};

// The library's own getters, and why they refuse: there is none, or it is of another type.

template <typename Number>
Number typed(Lines<Variables>& object, const Text& name, bool (GenRegVarVal::*getter)(const char*, Number*) noexcept,
             const char* what) {
    Number number{};
    if (!(object.*getter)(name.bytes.c_str(), &number)) {
        const auto row = object.find(name);
        if (!row) {
            throw Failed{Outcome(REG_NOT_FOUND)};
        }
        throw Failed::refused(name.bytes + " is no " + what + ": " + std::get<1>(*row)->bytes);
    }
    return number;
}

template <typename Number>
void bindTyped(py::class_<File<Lines<Variables>>>& file, py::class_<Batch<Lines<Variables>>>& batch, const char* method,
               bool (GenRegVarVal::*getter)(const char*, Number*) noexcept, const char* what) {
    using OfFile = File<Lines<Variables>>;
    using OfBatch = Batch<Lines<Variables>>;
    file.def(
        method,
        [getter, what](OfFile& self, const Text& name, std::optional<double> timeout) {
            Number number{};
            self.read(timeout, [&](auto& object) { number = typed(object, name, getter, what); });
            return number;
        },
        py::arg("name"), py::arg("timeout"));
    batch.def(
        method,
        [getter, what](OfBatch& self, const Text& name) {
            Number number{};
            self.change([&](auto& object) { number = typed(object, name, getter, what); });
            return number;
        },
        py::arg("name"));
}

}  // namespace

void bindLines(py::module_& module) {
    auto [file, batch] = bindRegistry<Lines<Variables>>(module, "VariablesFile", "VariablesBatch");
    bindTyped(file, batch, "get_bool", &GenRegVarVal::GetBooleanValue, "boolean");
    bindTyped(file, batch, "get_int", &GenRegVarVal::GetSint64Value, "integer");
    bindTyped(file, batch, "get_unsigned", &GenRegVarVal::GetUint64Value, "integer of 0 and more");
    bindTyped(file, batch, "get_float", &GenRegVarVal::GetDoubleValue, "number");
    bindRegistry<Lines<Services>>(module, "ServicesFile", "ServicesBatch");
    bindRegistry<Lines<InitTab>>(module, "InitTabFile", "InitTabBatch");
}
