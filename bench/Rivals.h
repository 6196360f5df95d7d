// What a user would pick instead, where Debian has it: each keeps the same rows under the same keys, and makes a change
// as durable as it can. "opened" is opened for every operation, as the library's functions are; "kept" stays open.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Bare.h"
#include "Measure.h"

#ifdef RVN_HAVE_SQLITE
#include <sqlite3.h>
#endif
#ifdef RVN_HAVE_TDB
#include <sys/stat.h>
extern "C" {
#include <tdb.h>
}
#endif
#ifdef RVN_HAVE_LMDB
#include <lmdb.h>
#endif

namespace rivals {

// Rows are told apart by a name, and hold a text.
inline std::string nameOf(int row) {
    return "instance" + std::to_string(row);
}
inline std::string textOf(int row, char usage) {
    return "/home/" + nameOf(row) + "/rvnhome:use" + usage;
}

// An open store.
class Store {
public:
    virtual ~Store() = default;
    virtual void fill(int rows) = 0;  // at once, and only then
    virtual void lookUp(int row) = 0;
    virtual void change(int row, char usage) = 0;
    virtual int list() = 0;
};

#ifdef RVN_HAVE_SQLITE
class Sqlite final : public Store {
public:
    explicit Sqlite(const std::string& path) {
        bare::require(sqlite3_open(path.c_str(), &db_) == SQLITE_OK);
        (void)sqlite3_busy_timeout(db_, 60000);
    }
    ~Sqlite() override {
        for (sqlite3_stmt* statement : {get_, set_}) {
            (void)sqlite3_finalize(statement);
        }
        (void)sqlite3_close(db_);
    }
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;
    void fill(int rows) override {
        run("CREATE TABLE instance (service TEXT, version INTEGER, name TEXT, path TEXT, usage TEXT, start INTEGER, "
            "PRIMARY KEY (service, version, name))");
        run("BEGIN");
        for (int row = 0; row < rows; ++row) {
            run("INSERT INTO instance VALUES ('RVN', 9, '" + nameOf(row) + "', '/home/" + nameOf(row) +
                "/rvnhome', 'use0', 1)");
        }
        run("COMMIT");
    }
    void lookUp(int row) override {
        prepare(&get_, "SELECT * FROM instance WHERE service = 'RVN' AND version = 9 AND name = ?");
        const std::string name = nameOf(row);
        (void)sqlite3_bind_text(get_, 1, name.c_str(), -1, SQLITE_STATIC);
        bare::require(sqlite3_step(get_) == SQLITE_ROW && sqlite3_column_text(get_, 2) != nullptr);
        (void)sqlite3_reset(get_);
    }
    void change(int row, char usage) override {
        prepare(&set_, "UPDATE instance SET usage = ? WHERE service = 'RVN' AND version = 9 AND name = ?");
        const std::string name = nameOf(row);
        const std::string used = std::string("use") + usage;
        (void)sqlite3_bind_text(set_, 1, used.c_str(), -1, SQLITE_STATIC);
        (void)sqlite3_bind_text(set_, 2, name.c_str(), -1, SQLITE_STATIC);
        bare::require(sqlite3_step(set_) == SQLITE_DONE);
        (void)sqlite3_reset(set_);
    }
    int list() override {
        sqlite3_stmt* all = nullptr;
        prepare(&all, "SELECT * FROM instance WHERE service = 'RVN'");
        int count = 0;
        while (sqlite3_step(all) == SQLITE_ROW) {
            for (const int column : {0, 2, 3, 4}) {
                bare::require(sqlite3_column_text(all, column) != nullptr);
            }
            ++count;
        }
        (void)sqlite3_finalize(all);
        return count;
    }

private:
    void run(const std::string& sql) {
        bare::require(sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK);
    }
    void prepare(sqlite3_stmt** statement, const char* sql) {
        bare::require(*statement != nullptr || sqlite3_prepare_v2(db_, sql, -1, statement, nullptr) == SQLITE_OK);
    }

    sqlite3* db_ = nullptr;
    sqlite3_stmt* get_ = nullptr;
    sqlite3_stmt* set_ = nullptr;
};
#endif

#ifdef RVN_HAVE_TDB
class Tdb final : public Store {
public:
    explicit Tdb(const std::string& path) : db_(tdb_open(path.c_str(), 10000, TDB_DEFAULT, O_RDWR | O_CREAT, 0644)) {
        bare::require(db_ != nullptr);
    }
    ~Tdb() override { (void)tdb_close(db_); }
    Tdb(const Tdb&) = delete;
    Tdb& operator=(const Tdb&) = delete;
    void fill(int rows) override {
        bare::require(tdb_transaction_start(db_) == 0);
        for (int row = 0; row < rows; ++row) {
            put(row, '0');
        }
        bare::require(tdb_transaction_commit(db_) == 0);
    }
    void lookUp(int row) override {
        std::string name = nameOf(row);
        const TDB_DATA found = tdb_fetch(db_, datum(name));
        bare::require(found.dptr != nullptr);
        std::free(found.dptr);
    }
    void change(int row, char usage) override {
        bare::require(tdb_transaction_start(db_) == 0);
        put(row, usage);
        bare::require(tdb_transaction_commit(db_) == 0);
    }
    int list() override {
        return tdb_traverse_read(
            db_, [](tdb_context*, TDB_DATA, TDB_DATA, void*) { return 0; }, nullptr);
    }

private:
    static TDB_DATA datum(std::string& text) { return {reinterpret_cast<unsigned char*>(text.data()), text.size()}; }
    void put(int row, char usage) {
        std::string name = nameOf(row);
        std::string text = textOf(row, usage);
        bare::require(tdb_store(db_, datum(name), datum(text), TDB_REPLACE) == 0);
    }

    tdb_context* db_;
};
#endif

#ifdef RVN_HAVE_LMDB
class Lmdb final : public Store {
public:
    explicit Lmdb(const std::string& path) {
        constexpr std::size_t MAP_SIZE = 256UL << 20;
        bare::require(mdb_env_create(&env_) == 0 && mdb_env_set_mapsize(env_, MAP_SIZE) == 0 &&
                      mdb_env_open(env_, path.c_str(), MDB_NOSUBDIR, 0644) == 0);
        inside(0, [&](MDB_txn* work) { bare::require(mdb_dbi_open(work, nullptr, 0, &dbi_) == 0); });
    }
    ~Lmdb() override { mdb_env_close(env_); }
    Lmdb(const Lmdb&) = delete;
    Lmdb& operator=(const Lmdb&) = delete;
    void fill(int rows) override {
        inside(0, [&](MDB_txn* work) {
            for (int row = 0; row < rows; ++row) {
                put(work, row, '0');
            }
        });
    }
    void lookUp(int row) override {
        inside(MDB_RDONLY, [&](MDB_txn* work) {
            std::string name = nameOf(row);
            MDB_val key = {name.size(), name.data()};
            MDB_val found = {};
            bare::require(mdb_get(work, dbi_, &key, &found) == 0 && found.mv_size != 0);
        });
    }
    void change(int row, char usage) override {
        inside(0, [&](MDB_txn* work) { put(work, row, usage); });
    }
    int list() override {
        int count = 0;
        inside(MDB_RDONLY, [&](MDB_txn* work) {
            MDB_cursor* cursor = nullptr;
            bare::require(mdb_cursor_open(work, dbi_, &cursor) == 0);
            MDB_val key = {};
            MDB_val value = {};
            while (mdb_cursor_get(cursor, &key, &value, MDB_NEXT) == 0) {
                ++count;
            }
            mdb_cursor_close(cursor);
        });
        return count;
    }

private:
    template <typename Step>
    void inside(unsigned int flags, Step step) {
        MDB_txn* work = nullptr;
        bare::require(mdb_txn_begin(env_, nullptr, flags, &work) == 0);
        step(work);
        bare::require(mdb_txn_commit(work) == 0);
    }
    void put(MDB_txn* work, int row, char usage) const {
        std::string name = nameOf(row);
        std::string text = textOf(row, usage);
        MDB_val key = {name.size(), name.data()};
        MDB_val value = {text.size(), text.data()};
        bare::require(mdb_put(work, dbi_, &key, &value, 0) == 0);
    }

    MDB_env* env_ = nullptr;
    MDB_dbi dbi_ = 0;
};
#endif

struct Kind {
    std::string name;
    std::string path;
    std::function<std::unique_ptr<Store>(const std::string& path)> open;
    std::shared_ptr<Store> kept;  // open on a copy
};

template <typename Made>
Kind kind(const std::string& name, const std::string& path) {
    return {name, path + "." + name,
            [](const std::string& file) -> std::unique_ptr<Store> { return std::make_unique<Made>(file); }, nullptr};
}

// All that are compiled in, filled with so many rows, in files of names that begin with the path.
inline std::vector<Kind> filled([[maybe_unused]] const std::string& path, [[maybe_unused]] int rows) {
    std::vector<Kind> kinds;
#ifdef RVN_HAVE_SQLITE
    kinds.push_back(kind<Sqlite>("SQLite", path));
#endif
#ifdef RVN_HAVE_TDB
    kinds.push_back(kind<Tdb>("TDB", path));
#endif
#ifdef RVN_HAVE_LMDB
    kinds.push_back(kind<Lmdb>("LMDB", path));
#endif
    if (!measure::Traced::wanted().empty()) {
        return {};
    }
    for (Kind& each : kinds) {
        each.open(each.path)->fill(rows);
        // No process may have a file of these open twice.
        const std::string copy = each.path + ".kept";
        std::filesystem::copy_file(each.path, copy);
        each.kept = each.open(copy);
    }
    return kinds;
}

// Adds each of them, kept open. What is kept lives as long as the rivals.
inline void besideKept(std::vector<measure::Rival>& all, const std::vector<Kind>& kinds,
                       const std::function<void(Store&)>& operation) {
    for (const Kind& each : kinds) {
        all.push_back({each.name + " kept", [each, operation] { operation(*each.kept); }});
    }
}

// Adds each of them, opened for every operation and kept open.
inline void beside(std::vector<measure::Rival>& all, const std::vector<Kind>& kinds,
                   const std::function<void(Store&)>& operation) {
    for (const Kind& each : kinds) {
        all.push_back({each.name + " opened", [each, operation] { operation(*each.open(each.path)); }});
    }
    besideKept(all, kinds, operation);
}

}  // namespace rivals
