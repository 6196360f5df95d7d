// The global registry. A record is its type and the values of its fields in the order of the library's table, None for
// one that is absent.
#include <genreg/GlobalReg.h>
#include <genreg/GlobalRegFields.h>
#include <genreg/VersionCodes.h>

#include <cstring>
#include <sstream>
#include <tuple>
#include <variant>

#include "Layout.h"
#include "Registry.h"

namespace {

constexpr unsigned long EVERY_FIELD = ~0UL;

using Value = std::variant<std::monostate, long, unsigned long, Text>;

struct Fields {
    unsigned long count = 0;  // set by what comes next
    const GlobalRegField* first;

    explicit Fields(unsigned int type) : first(globalRegFields(type, &count)) {}
    [[nodiscard]] const GlobalRegField* begin() const { return first; }
    [[nodiscard]] const GlobalRegField* end() const { return first + count; }

    // Of its bits those that are keys, or all.
    [[nodiscard]] unsigned long mask(bool keys) const {
        unsigned long bits = 0;
        for (const GlobalRegField& field : *this) {
            bits |= keys && !field.key ? 0 : field.bit;
        }
        return bits;
    }
};

Value valueOf(const GlobalRegRecord& record, const GlobalRegField& field) {
    const char* const member = reinterpret_cast<const char*>(&record) + field.offset;
    switch (field.kind) {
        case GLOBALREG_FIELD_VERSION: {
            unsigned long version = 0;
            std::memcpy(&version, member, sizeof version);
            return version;
        }
        case GLOBALREG_FIELD_NUMBER: {
            int number = 0;
            std::memcpy(&number, member, sizeof number);
            return long{number};
        }
        case GLOBALREG_FIELD_FLAG:
            return Text{std::string(member, 1)};
        default:
            return Text{std::string(member, ::strnlen(member, field.capacity))};
    }
}

template <typename Number>
void putNumber(char* member, Number number) {
    std::memcpy(member, &number, sizeof number);
}

void put(GlobalRegRecord& record, const GlobalRegField& field, const Value& value) {
    char* const member = reinterpret_cast<char*>(&record) + field.offset;
    if (std::holds_alternative<std::monostate>(value)) {
        return;
    }
    record.fieldMask |= field.bit;
    if (field.kind == GLOBALREG_FIELD_VERSION) {
        const auto* const plain = std::get_if<long>(&value);
        putNumber(member, plain != nullptr ? static_cast<unsigned long>(*plain) : std::get<unsigned long>(value));
        return;
    }
    if (field.kind == GLOBALREG_FIELD_NUMBER) {
        putNumber(member, static_cast<int>(std::get<long>(value)));
        return;
    }
    const std::string& bytes = std::get<Text>(value).bytes;
    const unsigned long most = field.kind == GLOBALREG_FIELD_FLAG ? 1 : field.capacity - 1;
    if (bytes.size() > most || (field.kind == GLOBALREG_FIELD_FLAG && bytes.empty())) {
        throw Failed::refused(std::string(field.name) + " has " + (most == 1 ? "one byte" : "at most ") +
                              (most == 1 ? "" : std::to_string(most) + " bytes"));
    }
    (void)bytes.copy(member, bytes.size());
}

// Two records of one type are equal only where the same fields are there: the library's own function takes one that is
// absent for an empty one.
unsigned int matchWhole(unsigned long mask, void* record, void* key) {
    const auto& found = *static_cast<const GlobalRegRecord*>(record);
    const auto& wanted = *static_cast<const GlobalRegRecord*>(key);
    if (mask == EVERY_FIELD && found.recordType == wanted.recordType &&
        ((found.fieldMask ^ wanted.fieldMask) & Fields(found.recordType).mask(false)) != 0) {
        return 0;
    }
    return GlobalReg::MatchRecord(mask, record, key);
}

// A variable is found by its service and name. The library's own function wants its text besides.
unsigned int matchVariable(unsigned long mask, void* record, void* key) {
    const auto& found = *static_cast<const GlobalRegRecord*>(record);
    const auto& wanted = *static_cast<const GlobalRegRecord*>(key);
    const bool matches = mask == 0 || (found.recordType == GLOBALREG_VARIABLE &&
                                       std::strcmp(found.body.variable.service, wanted.body.variable.service) == 0 &&
                                       std::strcmp(found.body.variable.variable, wanted.body.variable.variable) == 0);
    return matches ? 1 : 0;
}

class Global final : public GlobalReg {
public:
    using Row = std::tuple<unsigned int, std::vector<Value>>;  // type, values
    using Key = Row;                                           // of which only the key fields are looked at

    explicit Global(const std::string& path) {
        check(setRegistryPaths(path.c_str()));
        features |= layoutFeatures(path);
    }

    std::optional<Row> find(const Key& key) {
        GlobalRegRecord found;
        return findRecord(key, &found) ? std::optional(rowOf(found)) : std::nullopt;
    }

    void readAll(std::vector<Row>* rows) {
        readScan<GlobalRegRecord>(*this, [&](const auto& record) { rows->push_back(rowOf(record)); });
    }

    void add(Row& row) {
        GlobalRegRecord record = recordOf(row);
        if (record.recordType == GLOBALREG_VARIABLE) {
            refuseSecond(row);
        }
        check(Add(Fields(record.recordType).mask(true), &record));
    }

    // Items of later releases stay.
    void change(const Key& key, Row& row) {
        GlobalRegRecord found;
        if (!findRecord(key, &found)) {
            throw Failed{Outcome(REG_NOT_FOUND)};
        }
        GlobalRegRecord record = recordOf(row);
        const Fields fields(record.recordType);
        const bool sameFields = ((found.fieldMask ^ record.fieldMask) & fields.mask(false)) == 0;
        record.fieldMask |= found.fieldMask & ~fields.mask(false);
        matchRecord = sameFields ? matchRecord : matchWhole;
        const Outcome outcome = Change(fields.mask(true), &found, &record);
        matchRecord = MatchRecord;
        if (outcome.code != 0 && outcome.code != REG_UNCHANGED) {
            throw Failed{outcome};
        }
    }

    void remove(const Key& key, bool every) {
        GlobalRegRecord found;
        if (!findRecord(key, &found)) {
            throw Failed{Outcome(REG_NOT_FOUND)};
        }
        removeAs(*this, every, [&] { return Delete(Fields(found.recordType).mask(true), &found); });
    }

private:
    static Row rowOf(const GlobalRegRecord& record) {
        std::vector<Value> values;
        for (const GlobalRegField& field : Fields(record.recordType)) {
            values.push_back((record.fieldMask & field.bit) != 0 ? valueOf(record, field) : Value());
        }
        return {record.recordType, std::move(values)};
    }

    static GlobalRegRecord recordOf(const Row& row) {
        GlobalRegRecord record = {};
        record.recordType = std::get<0>(row);
        const std::vector<Value>& values = std::get<1>(row);
        std::size_t at = 0;
        for (const GlobalRegField& field : Fields(record.recordType)) {
            put(record, field, at < values.size() ? values[at] : Value());
            ++at;
        }
        return record;
    }

    // A file that is to be made has none.
    void refuseSecond(const Row& row) {
        GlobalRegRecord found;
        try {
            if (findRecord(row, &found)) {
                throw Failed{Outcome(REG_DUPLICATE)};
            }
        } catch (const Failed& failed) {
            if (!failed.outcome.isMissing()) {
                throw;
            }
        }
    }

    bool findRecord(const Key& key, GlobalRegRecord* found) {
        GlobalRegRecord keyRecord = recordOf(key);
        const unsigned long mask = Fields(keyRecord.recordType).mask(true);
        unsigned int code = Get(mask, &keyRecord, found);
        if (code == REG_NOT_FOUND && keyRecord.recordType == GLOBALREG_VARIABLE) {
            matchRecord = matchVariable;
            code = Get(mask, &keyRecord, found);
            matchRecord = MatchRecord;
        }
        if (code != REG_NOT_FOUND) {
            check(code);
        }
        return code == 0;
    }
};

py::bytes globalPath() {
    char path[REG_PATH_SIZE] = "";
    unsigned short length = sizeof path;
    check(GetGlobalRegPathname(path, &length));
    return path;
}

// The library reads more than is a version: nothing as 0, and of a large number its lower bits.
unsigned long versionCode(const Text& version) {
    unsigned long code = 0;
    check(ossVersionStringToCode(version.bytes.c_str(), &code));
    std::istringstream parts(version.bytes + ".");
    for (std::string part; std::getline(parts, part, '.');) {
        constexpr std::size_t MOST_DIGITS = 5;
        constexpr unsigned long LARGEST = 0xffff;
        if (part.empty() || part.size() > MOST_DIGITS || std::stoul(part) > LARGEST) {
            Failed failed{Outcome(REG_VERSION_INVALID)};
            failed.outcome.cause = {};
            throw failed;
        }
    }
    return code;
}

std::string versionText(unsigned long code) {
    constexpr std::size_t ALWAYS_ENOUGH = 24;
    char text[ALWAYS_ENOUGH] = "";
    check(ossVersionCodeToString(code, text, sizeof text));
    return text;
}

// Name and kind of each field, in the order of the values.
std::vector<std::tuple<std::string, unsigned int, bool>> fieldTable(unsigned int type) {
    std::vector<std::tuple<std::string, unsigned int, bool>> table;
    for (const GlobalRegField& field : Fields(type)) {
        table.emplace_back(field.name, field.kind, field.key);
    }
    return table;
}

}  // namespace

void bindGlobal(py::module_& module) {
    bindRegistry<Global>(module, "GlobalFile", "GlobalBatch");
    module.def("global_path", globalPath);
    module.def("version_code", versionCode, py::arg("version"));
    module.def("version_text", versionText, py::arg("code"));
    module.def("field_table", fieldTable, py::arg("record_type"));
    module.attr("INSTANCE") = GLOBALREG_INSTANCE;
    module.attr("SERVICE") = GLOBALREG_SERVICE;
    module.attr("VARIABLE") = GLOBALREG_VARIABLE;
}
