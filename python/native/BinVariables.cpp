// The registries of binary variables.
#include <genreg/GenRegBinVarVal.h>

#include <cstring>
#include <tuple>

#include "Layout.h"
#include "Registry.h"

namespace {

constexpr unsigned long EVERY_FIELD = ~0UL;

template <std::size_t SIZE>
Text textOf(const char (&member)[SIZE]) {
    return {std::string(member, ::strnlen(member, SIZE))};
}

template <std::size_t SIZE>
void put(char (&member)[SIZE], const Text& text, const char* what) {
    if (text.bytes.size() >= SIZE) {
        throw Failed::refused(std::string(what) + " has at most " + std::to_string(SIZE - 1) + " bytes");
    }
    (void)text.bytes.copy(member, SIZE);
}

// The library's own function leaves comments out, so a change of one alone would be none.
unsigned int matchWhole(unsigned long mask, void* record, void* key) {
    if (mask == EVERY_FIELD && key != nullptr &&
        std::strncmp(static_cast<GenRegBinVarValRecord*>(record)->comment,
                     static_cast<GenRegBinVarValRecord*>(key)->comment, sizeof GenRegBinVarValRecord::comment) != 0) {
        return 0;
    }
    return GenRegBinVarVal::MatchRecord(mask, record, key);
}

class BinVariables final : public GenRegBinVarVal {
public:
    using Key = Text;                         // name
    using Row = std::tuple<Text, int, Text>;  // name, value, comment

    explicit BinVariables(const std::string& path) : BinVariables(path, 0) {}

    std::optional<Row> find(const Key& key) {
        GenRegBinVarValRecord keyRecord = recordOf(key);
        GenRegBinVarValRecord found = {};
        const unsigned int code = Get(BINVARVAL_MATCH_VARIABLE, &keyRecord, &found);
        if (code == REG_NOT_FOUND) {
            return std::nullopt;
        }
        check(code);
        return rowOf(found);
    }

    void readAll(std::vector<Row>* rows) {
        readScan<GenRegBinVarValRecord>(*this, [&](const auto& record) { rows->push_back(rowOf(record)); });
    }

    void add(Row& row) {
        GenRegBinVarValRecord record = recordOf(row);
        check(Add(BINVARVAL_MATCH_VARIABLE, &record));
    }

    void change(const Key& key, Row& row) {
        GenRegBinVarValRecord keyRecord = recordOf(key);
        GenRegBinVarValRecord record = recordOf(row);
        if (const unsigned int code = Change(BINVARVAL_MATCH_VARIABLE, &keyRecord, &record); code != REG_UNCHANGED) {
            check(code);
        }
    }

    void remove(const Key& key, bool every) {
        GenRegBinVarValRecord keyRecord = recordOf(key);
        removeAs(*this, every, [&] { return Delete(BINVARVAL_MATCH_VARIABLE, &keyRecord); });
    }

private:
    BinVariables(const std::string& path, unsigned int code) : GenRegBinVarVal(path.c_str(), &code) {
        check(code);
        matchRecord = matchWhole;
        (void)unsetFeature(REG_FEATURE_ALLOW_DUPLICATES);
        features |= layoutFeatures(path);
    }

    static Row rowOf(const GenRegBinVarValRecord& record) {
        return {textOf(record.variable), record.value, textOf(record.comment)};
    }
    static GenRegBinVarValRecord recordOf(const Row& row) {
        GenRegBinVarValRecord record = recordOf(std::get<0>(row));
        record.value = std::get<1>(row);
        put(record.comment, std::get<2>(row), "a comment");
        return record;
    }
    static GenRegBinVarValRecord recordOf(const Key& key) {
        GenRegBinVarValRecord record = {};
        put(record.variable, key, "a name");
        return record;
    }
};

}  // namespace

void bindBinVariables(py::module_& module) {
    bindRegistry<BinVariables>(module, "BinVariablesFile", "BinVariablesBatch");
}
