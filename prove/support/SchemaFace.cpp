#include "SchemaFace.h"

#include <genreg/GenRegBinVarVal.h>
#include <genreg/GenRegVarVal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace prove {
namespace {

// --- the library's side ----------------------------------------------------------------------------------------------

// What differs between the schemas: a record of theirs that holds a row, and the row that a record of theirs holds.
class TextSchema : public GenRegVarVal {
public:
    using GenRegVarVal::GenRegVarVal;

    struct Record : GenRegVarValRecord {
        Record() : GenRegVarValRecord{} {}
        explicit Record(const Row& row)
            : GenRegVarValRecord{}, name(row.name), text(std::to_string(row.value)), remark(row.comment) {
            contains = VARVAL_HAS_PAIR | (remark.empty() ? 0 : VARVAL_HAS_COMMENT);
            variable = name.data();
            value = text.data();
            comment = remark.empty() ? nullptr : remark.data();
        }
        Record(const Record&) = delete;
        Record& operator=(const Record&) = delete;
        // Not by its bits alone: a line without "=" has them too.
        [[nodiscard]] bool holdsRow() const { return variable != nullptr && value != nullptr; }
        // A value that is no number is kept apart from all numbers.
        void tell(Row* row) const {
            char* end = nullptr;
            const long number = std::strtol(value, &end, 10);
            row->name = variable;
            row->value = end != value && *end == '\0' ? static_cast<int>(number) : -1;
            row->comment = comment != nullptr ? comment + std::strspn(comment, " ") : "";
        }

        std::string name;
        std::string text;
        std::string remark;
    };
};

struct BinaryRecord : GenRegBinVarValRecord {
    BinaryRecord() : GenRegBinVarValRecord{} { value = 0; }
    explicit BinaryRecord(const Row& row) : GenRegBinVarValRecord{} {
        (void)row.name.copy(variable, sizeof variable - 1);
        value = row.value;
        (void)row.comment.copy(comment, sizeof comment - 1);
    }
    [[nodiscard]] static bool holdsRow() { return true; }
    void tell(Row* row) const {
        row->name.assign(variable, ::strnlen(variable, sizeof variable));
        row->value = value;
        row->comment.assign(comment, ::strnlen(comment, sizeof comment));
    }
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

// Schemas ask for the size of a record once before any file is touched, and once more when the verification begins: by
// then the copy is written and closed. The slots know no object, so the thread's current one is kept here.
class Watched {
public:
    virtual void sizeAsked() = 0;

protected:
    ~Watched() = default;
};

thread_local Watched* watched = nullptr;

template <typename Engine>
class Object : public Engine, public Watched {
public:
    Object(const std::string& path, unsigned long chosen, unsigned int* rc) : Engine(path.c_str(), rc) {
        constexpr unsigned long CHOSEN =
            REG_FEATURE_DEFERRED_COMMIT | REG_FEATURE_ALLOW_DUPLICATES | REG_FEATURE_CHECKSUM_HEADER;
        this->features = (this->features & ~CHOSEN) | chosen;
    }

    void sizeAsked() override {
        if (action_ && this->tmpFp == nullptr && copyIsWritten()) {
            const auto action = std::exchange(action_, nullptr);
            action();
        }
    }
    void setAction(std::function<void()> action) {
        action_ = std::move(action);
        this->getMaxRecordSize = [](unsigned long* size) {
            if (watched != nullptr) {
                watched->sizeAsked();
            }
            return Engine::GetMaxRecordSize(size);
        };
    }
    void expectHeader() { this->checksumHeaderPending = 0; }

private:
    // An update that keeps its files has no stream on the copy, and writes it at the end as long as it is small.
    [[nodiscard]] bool copyIsWritten() const {
        struct stat status;
        return ::stat(this->tmpPath, &status) == 0 && status.st_size > 0;
    }

    std::function<void()> action_;
};

template <typename Engine>
class RegistryOf final : public SchemaRegistry {
public:
    using Record = typename Engine::Record;
    static constexpr unsigned long BY_NAME = 0x1;

    RegistryOf(const std::string& path, unsigned long features, unsigned int* rc) : object_(path, features, rc) {}

    unsigned int add(const Row& row) override {
        Record record(row);
        return update([&] { return object_.Add(BY_NAME, &record); });
    }
    unsigned int change(const Row& row) override {
        Record key(Row{row.name, 0});
        Record record(row);
        return update([&] { return object_.Change(BY_NAME, &key, &record); });
    }
    unsigned int remove(const std::string& name) override {
        Record key(Row{name, 0});
        return update([&] { return object_.Delete(BY_NAME, &key); });
    }
    unsigned int get(const std::string& name, Row* row) override {
        Record key(Row{name, 0});
        Record record;
        const unsigned int rc = object_.Get(BY_NAME, &key, &record);
        if (rc == 0) {
            record.tell(row);
        }
        return rc;
    }
    unsigned int next(Row* row) override {
        Record key;
        for (;;) {
            Record record;
            if (const unsigned int rc = object_.GetNext(0, &key, &record)) {
                return rc;
            }
            if (record.holdsRow()) {
                record.tell(row);
                return 0;
            }
        }
    }
    unsigned int openScan() override { return object_.OpenScan(); }
    unsigned int closeScan() override { return object_.CloseScan(); }
    unsigned int lock(unsigned long flags) override { return object_.Lock(flags, 10); }
    unsigned int unlock() override { return object_.UnLock(); }
    unsigned int begin() override { return object_.BeginBatch(); }
    unsigned int commit() override { return object_.CommitBatch(); }
    unsigned int abandon() override { return object_.AbandonBatch(); }
    void expectHeader() override { object_.expectHeader(); }
    void beforeVerify(std::function<void()> action) override { object_.setAction(std::move(action)); }

private:
    template <typename Operation>
    unsigned int update(Operation operation) {
        watched = &object_;
        const unsigned int rc = operation();
        watched = nullptr;
        return rc;
    }

    Object<Engine> object_;
};

template <typename Engine>
std::unique_ptr<RegistryOf<Engine>> openRegistry(const std::string& path, unsigned long features, unsigned int* rc) {
    *rc = 0;
    auto registry = std::make_unique<RegistryOf<Engine>>(path, features, rc);
    return *rc == 0 ? std::move(registry) : nullptr;
}

template <typename Engine>
std::unique_ptr<Registry> openAny(const std::string& path, unsigned long features) {
    unsigned int rc = 0;
    return openRegistry<Engine>(path, features, &rc);
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

const Schema TEXT_SCHEMA = {"text", false, true, openAny<TextSchema>, textBytes};
const Schema BINARY_SCHEMA = {"binary", true, true, openAny<BinarySchema>, binaryBytes};
const Schema PACKED_SCHEMA = {"packed", true, true, openAny<PackedSchema>, packedBytes};

std::unique_ptr<SchemaRegistry> openSchema(const Kind& kind, const std::string& path, unsigned int* rc) {
    unsigned int code = 0;
    unsigned int* const told = rc != nullptr ? rc : &code;
    if (kind.binary) {
        return openRegistry<BinarySchema>(path, kind.features, told);
    }
    return openRegistry<TextSchema>(path, kind.features, told);
}

unsigned int SchemaRegistry::read(Rows* rows) {
    rows->clear();
    if (const unsigned int rc = openScan()) {
        return rc;
    }
    Row row;
    unsigned int rc = 0;
    while ((rc = next(&row)) == 0) {
        rows->push_back(row);
    }
    const unsigned int closed = closeScan();
    return rc == REG_NO_MORE_RECORDS ? closed : rc;
}

unsigned int SchemaRegistry::look(const std::string& name, Row* found, long* count) {
    if (const unsigned int rc = get(name, found)) {
        return rc;
    }
    if (const unsigned int rc = openScan()) {
        return rc;
    }
    *count = 0;
    Row row;
    unsigned int rc = 0;
    while ((rc = next(&row)) == 0) {
        ++*count;
    }
    const unsigned int closed = closeScan();
    return rc == REG_NO_MORE_RECORDS ? closed : rc;
}

std::string checksumHeader(const std::string& body) {
    constexpr std::size_t SUM_HEADER_SIZE = 32;
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
    header.resize(SUM_HEADER_SIZE, '\0');
    return header;
}

}  // namespace prove
