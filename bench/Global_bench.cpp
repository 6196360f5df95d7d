// The global registry at several sizes: open - look up - close, list all, durable change; beside a bare program of the
// same system calls, and beside SQLite doing the same work on a table of the same records.
#include <genreg/genreg.h>
#include <osse/Memory.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "Bare.h"
#include "Measure.h"

#ifdef RVN_HAVE_SQLITE
#include <sqlite3.h>
#endif

namespace {

constexpr unsigned long VERSION = 0x0009000700000002;
constexpr unsigned long KEY = INSTANCE_SERVICE | INSTANCE_VERSION_CODE | INSTANCE_NAME;

std::string instanceName(int number) {
    return "instance" + std::to_string(number);
}

OSSInstanceInfo_t instance(int number, char usage) {
    OSSInstanceInfo_t info = {};
    info.versionCode = VERSION;
    (void)std::snprintf(info.service, sizeof info.service, "RVN");
    (void)std::snprintf(info.instanceName, sizeof info.instanceName, "%s", instanceName(number).c_str());
    (void)std::snprintf(info.instancePath, sizeof info.instancePath, "/home/%s/rvnhome", info.instanceName);
    (void)std::snprintf(info.usage, sizeof info.usage, "use%c", usage);
    info.flags = INSTANCE_INFO_START_AT_BOOT;
    return info;
}

// The registry with its announcements off: the bare program and SQLite announce nothing either.
class QuietGlobalReg : public GlobalReg {
public:
    QuietGlobalReg() noexcept { features &= ~(REG_FEATURE_CHANGE_LOG | REG_FEATURE_NOTIFY); }
};

GlobalRegRecord toRecord(const OSSInstanceInfo_t& info) {
    GlobalRegRecord record = {};
    record.recordType = GLOBALREG_INSTANCE;
    record.fieldMask = KEY | INSTANCE_PATH | INSTANCE_USAGE | INSTANCE_START_AT_BOOT;
    GlobalRegInstance& body = record.body.instance;
    std::memcpy(body.service, info.service, sizeof body.service);
    body.versionCode = info.versionCode;
    std::memcpy(body.instanceName, info.instanceName, sizeof body.instanceName);
    std::memcpy(body.instancePath, info.instancePath, sizeof body.instancePath);
    std::memcpy(body.usage, info.usage, sizeof body.usage);
    body.startAtBoot = 1;
    return record;
}

// A registry of so many instances, written as one file: adding them one by one would take minutes.
void fillRegistry(const std::string& path, int records) {
    std::FILE* const file = std::fopen(path.c_str(), "wb");
    bare::require(file != nullptr);
    void* buffer = _ossMemAlloc(sizeof(GlobalRegRecord), "bench", 0);
    for (int i = 0; i < records; ++i) {
        const GlobalRegRecord record = toRecord(instance(i, '0'));
        std::memcpy(buffer, &record, sizeof record);
        bare::require(GlobalReg::PackRecord(&buffer, nullptr) == 0);
        unsigned long size = 0;
        bare::require(GlobalReg::GetPackedRecordSize(buffer, &size) == 0);
        const auto length = static_cast<unsigned int>(size);
        bare::require(std::fwrite(&length, sizeof length, 1, file) == 1 && std::fwrite(buffer, size, 1, file) == 1);
    }
    (void)_ossMemFree(buffer, "bench", 0);
    bare::require(std::fclose(file) == 0);
}

int listAll() {
    char service[] = "RVN";
    void* list = nullptr;
    bare::require(ossOpenInstanceList(service, &list) == 0);
    OSSInstanceInfo_t info;
    int count = 0;
    while (ossGetNextInstance(list, &info) == 0) {
        ++count;
    }
    bare::require(ossCloseInstanceList(list) == 0);
    return count;
}

#ifdef RVN_HAVE_SQLITE

// The same records as rows, keyed alike, with SQLite's own durability.
class Rows {
public:
    explicit Rows(const std::string& path) : path_(path) {}

    void fill(int records) {
        Connection db(path_);
        db.run(
            "CREATE TABLE instance (service TEXT, version INTEGER, name TEXT, path TEXT, usage TEXT, start INTEGER, "
            "PRIMARY KEY (service, version, name))");
        db.run("BEGIN");
        for (int i = 0; i < records; ++i) {
            const OSSInstanceInfo_t info = instance(i, '0');
            db.run("INSERT INTO instance VALUES ('RVN', " + std::to_string(VERSION) + ", '" + info.instanceName +
                   "', '" + info.instancePath + "', '" + info.usage + "', 1)");
        }
        db.run("COMMIT");
    }
    void lookUp(int number) const {
        Connection db(path_);
        bare::require(db.rows("SELECT * FROM instance WHERE service = 'RVN' AND version = " + std::to_string(VERSION) +
                              " AND name = '" + instanceName(number) + "'") == 1);
    }
    [[nodiscard]] int list() const {
        Connection db(path_);
        return db.rows("SELECT * FROM instance WHERE service = 'RVN'");
    }
    void change(int number, char usage) const {
        Connection db(path_);
        db.run(std::string("UPDATE instance SET usage = 'use") + usage + "' WHERE service = 'RVN' AND version = " +
               std::to_string(VERSION) + " AND name = '" + instanceName(number) + "'");
    }

private:
    class Connection {
    public:
        explicit Connection(const std::string& path) { bare::require(sqlite3_open(path.c_str(), &db_) == SQLITE_OK); }
        ~Connection() { (void)sqlite3_close(db_); }
        Connection(const Connection&) = delete;
        Connection& operator=(const Connection&) = delete;
        void run(const std::string& sql) {
            bare::require(sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK);
        }
        int rows(const std::string& sql) {
            sqlite3_stmt* statement = nullptr;
            bare::require(sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK);
            int count = 0;
            while (sqlite3_step(statement) == SQLITE_ROW) {
                bare::require(sqlite3_column_text(statement, 2) != nullptr);
                ++count;
            }
            (void)sqlite3_finalize(statement);
            return count;
        }

    private:
        sqlite3* db_ = nullptr;
    };
    std::string path_;
};

#endif

void benchSize(const std::string& directory, int records) {
    const bare::Paths paths(directory, "global" + std::to_string(records) + ".reg");
    fillRegistry(paths.registry, records);
    bare::require(::setenv("RVN_GLOBAL_REG_PATHNAME", paths.registry.c_str(), 1) == 0);
    const auto size = static_cast<std::size_t>(std::filesystem::file_size(paths.registry));
    const int last = records - 1;
    const std::string count = std::to_string(records) + " records";
    const auto look = [](const std::vector<char>& content) {
        bare::require(std::memchr(content.data(), 0xff, content.size()) == nullptr);
    };
    const auto bareGet = [&] { bare::get(paths, size, look); };
    const auto get = [&] {
        char service[] = "RVN";
        std::string name = instanceName(last);
        OSSInstanceInfo_t info;
        bare::require(ossGetInstanceInfo(service, VERSION, name.data(), &info) == 0);
    };
    const auto list = [&] { bare::require(listAll() == records); };
    char bareUsage = '0';
    const auto bareChange = [&] {
        bare::change(paths, size, [&](std::vector<char>& content) {
            bareUsage = bareUsage == '0' ? '1' : '0';
            content[content.size() - 12] = bareUsage;  // the usage's last letter: before NUL, start at boot, checksum
        });
    };
    char usage = '2';
    const auto change = [&] {
        usage = usage == '2' ? '3' : '2';
        GlobalRegRecord record = toRecord(instance(last, usage));
        QuietGlobalReg registry;
        bare::require(registry.Change(KEY, &record, &record) == 0);
    };
    std::vector<measure::Rival> lookers = {{"bare", bareGet}, {"genreg", get}};
    std::vector<measure::Rival> listers = {{"bare", bareGet}, {"genreg", list}};
    std::vector<measure::Rival> changers = {{"bare", bareChange}, {"genreg", change}};
#ifdef RVN_HAVE_SQLITE
    Rows rows(directory + "/rows" + std::to_string(records) + ".db");
    rows.fill(records);
    char rowUsage = '4';
    lookers.push_back({"sqlite", [&] { rows.lookUp(last); }});
    listers.push_back({"sqlite", [&] { bare::require(rows.list() == records); }});
    changers.push_back({"sqlite", [&] {
                            rowUsage = rowUsage == '4' ? '5' : '4';
                            rows.change(last, rowUsage);
                        }});
#endif
    const int calls = records >= 10000 ? 5 : 50;
    measure::report("open - look up - close, " + count, lookers, 31, calls);
    measure::report("list all, " + count, listers, 31, calls);
    measure::report("durable change, " + count, changers, 31, 3);
}

}  // namespace

int main() {
    const measure::Scratch scratch;
    std::printf("Global registry, last record of the file; bare: the same system calls and one scan\n");
    for (const int records : {10, 100, 1000, 10000}) {
        benchSize(scratch.path(), records);
    }
    return 0;
}
