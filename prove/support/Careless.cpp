#include "Careless.h"

#include <fcntl.h>
#include <genreg/Codes.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/System.h"

namespace prove {
namespace {

Vice viceInUse = Vice::Boasts;
std::string furtherRow;  // what the second operation of the scenario in use adds

// A row as a line of its own, not in one write.
bool writeInPlace(const std::string& path, const Row& row) {
    std::ofstream file(path, std::ios::binary | std::ios::app);
    file << row.name << std::flush << " = " << row.value << "\n" << std::flush;
    return file.good();
}

std::string lockOf(const std::string& path) {
    const std::filesystem::path file(path);
    return file.parent_path() / ("." + file.filename().string() + ".lock");
}

int claim(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    (void)platform::lockWholeFile(descriptor, platform::FileLock::Exclusive, false);
    return descriptor;
}

class Careless final : public Registry {
public:
    Careless(const std::string& path, unsigned long features)
        : vice_(viceInUse), path_(path), honest_(TEXT_SCHEMA.open(path, features)) {}
    ~Careless() override {
        if (vice_ != Vice::DescriptorAtEnd) {
            letGo();
        }
    }
    Careless(const Careless&) = delete;
    Careless& operator=(const Careless&) = delete;

    unsigned int add(const Row& row) override {
        const bool again = row.name == furtherRow;
        if (vice_ == Vice::InPlace && !again) {
            return writeInPlace(path_, row) ? 0U : static_cast<unsigned int>(REG_RECORD_WRITE_FAILED);
        }
        if (vice_ == Vice::FailsAgain && again) {
            return REG_RECORD_WRITE_FAILED;
        }
        if (vice_ == Vice::Litters && !again) {
            std::ofstream(path_ + ".litter") << "x";
        }
        if (vice_ == Vice::SkipsLock && !again) {
            std::ofstream(path_ + ".tmp") << "x";
            (void)::unlink((path_ + ".tmp").c_str());
        }
        const bool wrong = vice_ == Vice::WrongAgain && again;
        return after(honest_->add({row.name, wrong ? row.value + 1 : row.value}));
    }
    unsigned int change(const Row& row) override { return honest_->change(row); }
    unsigned int remove(const std::string& name) override { return honest_->remove(name); }
    unsigned int read(Rows* rows) override {
        const unsigned int rc = honest_->read(rows);
        for (Row& row : *rows) {
            row.value += misread();
        }
        return rc;
    }
    unsigned int look(const std::string& name, Row* found, long* count) override {
        const unsigned int rc = honest_->look(name, found, count);
        found->value += misread();
        return rc;
    }
    unsigned int unlock() override {
        letGo();
        return 0;
    }
    unsigned int begin() override { return honest_->begin(); }
    unsigned int commit() override { return honest_->commit(); }
    unsigned int abandon() override { return honest_->abandon(); }

private:
    unsigned int after(unsigned int rc) {
        switch (vice_) {
            case Vice::Boasts:
                return 0;
            case Vice::Denies:
                return REG_RECORD_WRITE_FAILED;
            case Vice::KeepsLock:
                kept_ = claim(lockOf(path_));
                return rc;
            case Vice::Descriptor:
            case Vice::DescriptorAtEnd:
                kept_ = kept_ == -1 ? ::open("/dev/null", O_RDONLY | O_CLOEXEC) : kept_;
                return rc;
            case Vice::Memory:
                leftBehind = std::malloc(1);
                return rc;
            case Vice::WrongCause:
                if (rc != 0) {
                    (void)honest_->remove("nobody");
                }
                return rc;
            default:
                return rc;
        }
    }
    void letGo() {
        if (kept_ != -1) {
            (void)::close(kept_);
            kept_ = -1;
        }
    }
    [[nodiscard]] int misread() const { return vice_ == Vice::MisreadsRows ? 1 : 0; }

    static inline void* volatile leftBehind = nullptr;

    const Vice vice_;
    const std::string path_;
    const std::unique_ptr<Registry> honest_;
    int kept_ = -1;
};

std::unique_ptr<Registry> openCareless(const std::string& path, unsigned long features) {
    return std::make_unique<Careless>(path, features);
}

const Schema CARELESS_SCHEMA = {"careless", false, true, openCareless, TEXT_SCHEMA.bytes};

Scenario careless(const std::vector<Scenario>& list, const std::string& name, Vice vice) {
    viceInUse = vice;
    Scenario scenario = *std::find_if(list.begin(), list.end(), [&](const Scenario& s) { return s.name == name; });
    scenario.name = "control";
    scenario.schema = &CARELESS_SCHEMA;
    furtherRow = scenario.again.row.name;
    return scenario;
}

}  // namespace

Scenario carelessUpdate(Vice vice) {
    return careless(updates(), "text add deferred", vice);
}

Scenario carelessReading(Vice vice) {
    return careless(readings(), "text read deferred", vice);
}

}  // namespace prove
