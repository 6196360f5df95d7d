#include "prove/support/Clients.h"

#include <genreg/GenRegBinVarVal.h>
#include <genreg/GenRegVarVal.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <utility>

namespace prove {
namespace {

// Schemas ask for the size of a record once before any file is touched, and once more when the verification begins: by
// then the copy is written and closed. The slots know no object, so the thread's current one is kept here.
class Watched {
public:
    virtual void sizeAsked() = 0;

protected:
    ~Watched() = default;
};

thread_local Watched* watched = nullptr;

template <typename Schema>
class Watching : public Schema, public Watched {
public:
    Watching(const Kind& kind, const char* path, unsigned int* rc) : Schema(path, rc) {
        this->features = kind.features;
        this->getMaxRecordSize = [](unsigned long* size) {
            if (watched != nullptr) {
                watched->sizeAsked();
            }
            return Schema::GetMaxRecordSize(size);
        };
    }

    void sizeAsked() override {
        if (action_ && this->tmpFp == nullptr && ::access(this->tmpPath, F_OK) == 0) {
            const auto action = std::exchange(action_, nullptr);
            action();
        }
    }

    void setAction(std::function<void()> action) { action_ = std::move(action); }
    void expectHeader() { this->checksumHeaderPending = 0; }

private:
    std::function<void()> action_;
};

template <typename Schema>
class Wrapped : public Client {
public:
    Wrapped(const Kind& kind, const std::string& path, unsigned int* rc) : schema_(kind, path.c_str(), rc) {}

    unsigned int openScan() override { return schema_.OpenScan(); }
    unsigned int closeScan() override { return schema_.CloseScan(); }
    unsigned int lock(unsigned long flags) override { return schema_.Lock(flags, 10); }
    unsigned int unlock() override { return schema_.UnLock(); }
    void expectHeader() override { schema_.expectHeader(); }
    void beforeVerify(std::function<void()> action) override { schema_.setAction(std::move(action)); }

protected:
    template <typename Operation>
    unsigned int update(Operation operation) {
        watched = &schema_;
        const unsigned int rc = operation();
        watched = nullptr;
        return rc;
    }

    Watching<Schema> schema_;
};

class TextClient final : public Wrapped<GenRegVarVal> {
public:
    using Wrapped::Wrapped;

    unsigned int add(const Entry& entry) override {
        Line line(entry);
        return update([&] { return schema_.Add(VARVAL_MATCH_VARIABLE, &line.record); });
    }
    unsigned int change(const std::string& name, const Entry& entry) override {
        Line key({name, 0, ""});
        Line line(entry);
        return update([&] { return schema_.Change(VARVAL_MATCH_VARIABLE, &key.record, &line.record); });
    }
    unsigned int remove(const std::string& name) override {
        Line key({name, 0, ""});
        return update([&] { return schema_.Delete(VARVAL_MATCH_VARIABLE, &key.record); });
    }
    unsigned int get(const std::string& name, Entry* entry) override {
        Line key({name, 0, ""});
        GenRegVarValRecord found = {};
        const unsigned int rc = schema_.Get(VARVAL_MATCH_VARIABLE, &key.record, &found);
        return rc != 0 ? rc : entryOf(found, entry);
    }
    unsigned int next(Entry* entry) override {
        GenRegVarValRecord found = {};
        do {
            if (const unsigned int rc = schema_.GetNext(0, nullptr, &found)) {
                return rc;
            }
        } while (found.variable == nullptr || found.value == nullptr);
        return entryOf(found, entry);
    }

private:
    struct Line {
        explicit Line(const Entry& entry)
            : name(entry.name), value(std::to_string(entry.value)), comment(entry.comment) {
            record.contains = VARVAL_HAS_PAIR | (comment.empty() ? 0 : VARVAL_HAS_COMMENT);
            record.variable = name.data();
            record.value = value.data();
            record.comment = comment.empty() ? nullptr : comment.data();
        }
        std::string name;
        std::string value;
        std::string comment;
        GenRegVarValRecord record = {};
    };

    // A value that is no number is kept apart from all numbers.
    static unsigned int entryOf(const GenRegVarValRecord& found, Entry* entry) {
        char* end = nullptr;
        const long value = std::strtol(found.value, &end, 10);
        entry->name = found.variable;
        entry->value = end != found.value && *end == '\0' ? static_cast<int>(value) : -1;
        const char* comment = found.comment != nullptr ? found.comment : "";
        entry->comment = comment + std::strspn(comment, " ");
        return 0;
    }
};

class BinClient final : public Wrapped<GenRegBinVarVal> {
public:
    using Wrapped::Wrapped;

    unsigned int add(const Entry& entry) override {
        GenRegBinVarValRecord record = recordOf(entry);
        return update([&] { return schema_.Add(BINVARVAL_MATCH_VARIABLE, &record); });
    }
    unsigned int change(const std::string& name, const Entry& entry) override {
        GenRegBinVarValRecord key = recordOf({name, 0, ""});
        GenRegBinVarValRecord record = recordOf(entry);
        return update([&] { return schema_.Change(BINVARVAL_MATCH_VARIABLE, &key, &record); });
    }
    unsigned int remove(const std::string& name) override {
        GenRegBinVarValRecord key = recordOf({name, 0, ""});
        return update([&] { return schema_.Delete(BINVARVAL_MATCH_VARIABLE, &key); });
    }
    unsigned int get(const std::string& name, Entry* entry) override {
        GenRegBinVarValRecord key = recordOf({name, 0, ""});
        GenRegBinVarValRecord found = {};
        const unsigned int rc = schema_.Get(BINVARVAL_MATCH_VARIABLE, &key, &found);
        return rc != 0 ? rc : entryOf(found, entry);
    }
    unsigned int next(Entry* entry) override {
        GenRegBinVarValRecord found = {};
        const unsigned int rc = schema_.GetNext(0, &found, &found);
        return rc != 0 ? rc : entryOf(found, entry);
    }

private:
    static GenRegBinVarValRecord recordOf(const Entry& entry) {
        GenRegBinVarValRecord record = {};
        std::strncpy(record.variable, entry.name.c_str(), sizeof record.variable - 1);
        record.value = entry.value;
        std::strncpy(record.comment, entry.comment.c_str(), sizeof record.comment - 1);
        return record;
    }

    static unsigned int entryOf(const GenRegBinVarValRecord& found, Entry* entry) {
        entry->name.assign(found.variable, ::strnlen(found.variable, sizeof found.variable));
        entry->value = found.value;
        entry->comment.assign(found.comment, ::strnlen(found.comment, sizeof found.comment));
        return 0;
    }
};

}  // namespace

std::unique_ptr<Client> openClient(const Kind& kind, const std::string& path, unsigned int* rc) {
    unsigned int code = 0;
    std::unique_ptr<Client> registry;
    if (kind.binary) {
        registry = std::make_unique<BinClient>(kind, path, &code);
    } else {
        registry = std::make_unique<TextClient>(kind, path, &code);
    }
    if (rc != nullptr) {
        *rc = code;
    }
    return code == 0 ? std::move(registry) : nullptr;
}

unsigned int scanAll(Client& registry, std::vector<Entry>* entries) {
    entries->clear();
    if (const unsigned int rc = registry.openScan()) {
        return rc;
    }
    Entry entry;
    unsigned int rc = 0;
    while ((rc = registry.next(&entry)) == 0) {
        entries->push_back(entry);
    }
    const unsigned int closed = registry.closeScan();
    return rc != REG_NO_MORE_RECORDS ? rc : closed;
}

}  // namespace prove
