#include "Records.h"

#include <genreg/GenRegBinVarVal.h>
#include <genreg/GenRegVarVal.h>

#include <cstdint>
#include <cstring>

namespace prove {
namespace {

// --- the library's side ----------------------------------------------------------------------------------------------

// What differs between the schemas: a record of theirs that holds a row, and the row that a record of theirs holds.
class TextSchema : public GenRegVarVal {
public:
    using GenRegVarVal::GenRegVarVal;

    struct Record : GenRegVarValRecord {
        Record() : GenRegVarValRecord{} {}
        explicit Record(const Row& row) : GenRegVarValRecord{}, name(row.name), text(std::to_string(row.value)) {
            contains = VARVAL_HAS_PAIR;
            variable = name.data();
            value = text.data();
        }
        Record(const Record&) = delete;
        Record& operator=(const Record&) = delete;
        // Not by its bits alone: a line without "=" has them too.
        [[nodiscard]] bool holdsRow() const { return (contains & VARVAL_HAS_PAIR) != 0 && variable != nullptr; }
        [[nodiscard]] Row row() const { return {variable, std::stoi(value)}; }

        std::string name;
        std::string text;
    };
};

struct BinaryRecord : GenRegBinVarValRecord {
    BinaryRecord() : GenRegBinVarValRecord{} { value = 0; }
    explicit BinaryRecord(const Row& row) : GenRegBinVarValRecord{} {
        row.name.copy(variable, sizeof variable - 1);
        value = row.value;
    }
    [[nodiscard]] static bool holdsRow() { return true; }
    [[nodiscard]] Row row() const { return {variable, value}; }
};

class BinarySchema : public GenRegBinVarVal {
public:
    using GenRegBinVarVal::GenRegBinVarVal;
    using Record = BinaryRecord;
};

constexpr std::size_t VALUE_SIZE = 4;

void putBigEndian(std::uint32_t number, char* bytes) {
    for (std::size_t i = 0; i < VALUE_SIZE; ++i) {
        bytes[i] = static_cast<char>(number >> (8 * (VALUE_SIZE - 1 - i)));
    }
}

std::uint32_t getBigEndian(const char* bytes) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < VALUE_SIZE; ++i) {
        number = number << 8U | static_cast<unsigned char>(bytes[i]);
    }
    return number;
}

// Image: the length of the name in one byte, the name, the value in four bytes, most significant first.
class PackedSchema : public GenRegBinVarVal {
public:
    using Record = BinaryRecord;

    PackedSchema(const char* path, unsigned int* rc) : GenRegBinVarVal(path, rc) {
        packRecord = Pack;
        unpackRecord = Unpack;
        getPackedRecordSize = PackedSize;
        useShortcuts(Check, nullptr, nullptr);
        (void)setFeature(REG_FEATURE_PACKED);
        (void)setFeature(REG_FEATURE_BIG_ENDIAN);
    }

    static std::string image(const Row& row) {
        char value[VALUE_SIZE];
        putBigEndian(static_cast<std::uint32_t>(row.value), value);
        return static_cast<char>(row.name.size()) + row.name + std::string(value, VALUE_SIZE);
    }

private:
    static unsigned int Pack(void** buffer, void* /*previousImage*/) {
        // Without memory of its own: the rigs take that away from the library, not from its clients.
        GenRegBinVarValRecord record;
        std::memcpy(&record, *buffer, sizeof record);
        const std::size_t length = ::strnlen(record.variable, sizeof record.variable - 1);
        auto* bytes = static_cast<char*>(*buffer);
        bytes[0] = static_cast<char>(length);
        std::memcpy(bytes + 1, record.variable, length);
        putBigEndian(static_cast<std::uint32_t>(record.value), bytes + 1 + length);
        return 0;
    }
    static unsigned int Unpack(void** buffer) {
        const auto* bytes = static_cast<const char*>(*buffer);
        GenRegBinVarValRecord record = {};
        const auto length = static_cast<std::size_t>(static_cast<unsigned char>(bytes[0]));
        std::memcpy(record.variable, bytes + 1, length);
        record.value = static_cast<int>(getBigEndian(bytes + 1 + length));
        std::memcpy(*buffer, &record, sizeof record);
        return 0;
    }
    static unsigned int PackedSize(void* packed, unsigned long* size) {
        *size = 1 + static_cast<unsigned long>(*static_cast<const char*>(packed)) + VALUE_SIZE;
        return 0;
    }
    static unsigned int Check(const void* packed, unsigned long length) {
        const auto* bytes = static_cast<const unsigned char*>(packed);
        const bool whole = length > VALUE_SIZE && bytes[0] < sizeof(GenRegBinVarValRecord::variable) &&
                           length == 1UL + bytes[0] + VALUE_SIZE;
        return whole ? 0U : static_cast<unsigned int>(REG_UNPACK_FAILED);
    }
};

template <typename Schema>
class SchemaRegistry final : public Registry {
public:
    using Record = typename Schema::Record;
    static constexpr unsigned long BY_NAME = 0x1;

    SchemaRegistry(const std::string& path, unsigned long features, unsigned int* rc) : object_(path.c_str(), rc) {
        for (const unsigned long feature :
             {REG_FEATURE_DEFERRED_COMMIT, REG_FEATURE_ALLOW_DUPLICATES, REG_FEATURE_CHECKSUM_HEADER}) {
            (void)((features & feature) != 0 ? object_.setFeature(feature) : object_.unsetFeature(feature));
        }
    }

    unsigned int add(const Row& row) override {
        Record record(row);
        return object_.Add(BY_NAME, &record);
    }
    unsigned int change(const Row& row) override {
        Record record(row);
        return object_.Change(BY_NAME, &record, &record);
    }
    unsigned int remove(const std::string& name) override {
        Record key(Row{name, 0});
        return object_.Delete(BY_NAME, &key);
    }
    unsigned int read(Rows* rows) override {
        rows->clear();
        return scan([rows](const Record& record) { rows->push_back(record.row()); });
    }
    unsigned int look(const std::string& name, Row* found, long* count) override {
        Record key(Row{name, 0});
        Record record;
        if (const unsigned int rc = object_.Get(BY_NAME, &key, &record)) {
            return rc;
        }
        *found = record.row();
        *count = 0;
        return scan([count](const Record&) { ++*count; });
    }
    unsigned int unlock() override { return object_.UnLock(); }

private:
    // Visits the record of each row.
    template <typename Visit>
    unsigned int scan(Visit visit) {
        if (const unsigned int rc = object_.OpenScan()) {
            return rc;
        }
        Record key;
        unsigned int rc = 0;
        for (;;) {
            Record record;
            rc = object_.GetNext(0, &key, &record);
            if (rc != 0) {
                break;
            }
            if (record.holdsRow()) {
                visit(record);
            }
        }
        const unsigned int closed = object_.CloseScan();
        return rc == REG_NO_MORE_RECORDS ? closed : rc;
    }

    Schema object_;
};

template <typename Schema>
std::unique_ptr<Registry> openSchema(const std::string& path, unsigned long features) {
    unsigned int rc = 0;
    auto registry = std::make_unique<SchemaRegistry<Schema>>(path, features, &rc);
    return rc == 0 ? std::move(registry) : nullptr;
}

// --- the bytes, laid out apart from the library ----------------------------------------------------------------------

std::string textBytes(const Rows& rows) {
    std::string bytes;
    for (const Row& row : rows) {
        bytes += row.name + " = " + std::to_string(row.value) + "\n";
    }
    return bytes;
}

std::string binaryBytes(const Rows& rows) {
    constexpr std::uint32_t PAYLOAD = 36;
    constexpr std::size_t VALUE_AT = 16;
    std::string bytes;
    for (const Row& row : rows) {
        std::string frame(sizeof PAYLOAD + PAYLOAD, '\0');
        std::memcpy(frame.data(), &PAYLOAD, sizeof PAYLOAD);
        row.name.copy(frame.data() + sizeof PAYLOAD, VALUE_AT - 1);
        std::memcpy(frame.data() + sizeof PAYLOAD + VALUE_AT, &row.value, sizeof row.value);
        bytes += frame;
    }
    return bytes;
}

std::string packedBytes(const Rows& rows) {
    std::string bytes;
    for (const Row& row : rows) {
        const std::string image = PackedSchema::image(row);
        char length[VALUE_SIZE];
        putBigEndian(static_cast<std::uint32_t>(image.size()), length);
        bytes += std::string(length, sizeof length) + image;
    }
    return bytes;
}

}  // namespace

const Form TEXT_FORM = {"text", false, true, openSchema<TextSchema>, textBytes};
const Form BINARY_FORM = {"binary", true, true, openSchema<BinarySchema>, binaryBytes};
const Form PACKED_FORM = {"packed", true, true, openSchema<PackedSchema>, packedBytes};

std::string checksumHeader(const std::string& body) {
    constexpr std::size_t HEADER_SIZE = 32;
    std::uint32_t sum = 0;
    std::size_t at = 0;
    for (; at + sizeof sum <= body.size(); at += sizeof sum) {
        std::uint32_t word = 0;
        std::memcpy(&word, body.data() + at, sizeof word);
        sum ^= word;
    }
    for (; at < body.size(); ++at) {
        sum ^= static_cast<std::uint32_t>(static_cast<signed char>(body[at]));
    }
    std::string header = std::to_string(static_cast<std::int32_t>(sum));
    header.resize(HEADER_SIZE, '\0');
    return header;
}

}  // namespace prove
