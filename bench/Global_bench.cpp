// The global registry at several sizes: open - look up - close, list all, durable change, changes of eight writers at
// once.
#include <genreg/genreg.h>
#include <sys/wait.h>

#include <cstdlib>
#include <memory>

#include "Bare.h"
#include "Instances.h"
#include "Measure.h"
#include "Rivals.h"

namespace {

using instances::KEY;
using instances::VERSION;

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

void change(int number, char usage) {
    GlobalRegRecord record = instances::toRecord(instances::instance(number, usage));
    instances::QuietGlobalReg registry;
    bare::require(registry.Change(KEY, &record, &record) == 0);
}

void benchReading(const bare::Paths& paths, std::size_t size, const std::vector<rivals::Kind>& kinds, int records) {
    const int last = records - 1;
    const auto bareGet = [&] { bare::get(paths, size, bare::lookAtFrames); };
    std::vector<measure::Rival> lookers = {
        {"limit", bareGet}, {"library", [&] {
                                 char service[] = "RVN";
                                 std::string name = rivals::nameOf(last);
                                 OSSInstanceInfo_t info;
                                 bare::require(ossGetInstanceInfo(service, VERSION, name.data(), &info) == 0);
                             }}};
    rivals::beside(lookers, kinds, [last](rivals::Store& store) { store.lookUp(last); });
    measure::row({"global: look up", records}, lookers);

    instances::QuietGlobalReg keeps;
    std::vector<measure::Rival> keepers;
    rivals::besideKept(keepers, kinds, [last](rivals::Store& store) { store.lookUp(last); });
    measure::keptRow(
        {"global: look up, kept", records}, keeps, paths.registry,
        [&keeps, key = instances::toRecord(instances::instance(last, '0'))]() mutable {
            GlobalRegRecord found;
            bare::require(keeps.Get(KEY, &key, &found) == 0);
        },
        keepers);

    std::vector<measure::Rival> listers = {{"library", [&] { bare::require(listAll() == records); }}};
    rivals::beside(listers, kinds, [records](rivals::Store& store) { bare::require(store.list() == records); });
    measure::row({.operation = "global: list, each", .size = records, .each = static_cast<double>(records)}, listers);
}

void benchChanging(const bare::Paths& paths, std::size_t size, const std::vector<rivals::Kind>& kinds, int records) {
    const int last = records - 1;
    std::vector<measure::Rival> changers = {
        {"limit",
         [&paths, size, usage = '0']() mutable {
             usage = usage == '0' ? '1' : '0';
             bare::change(paths, size, [usage](std::vector<char>& content) {
                 content[content.size() - 12] = usage;  // the usage's last letter: before NUL, start at boot, checksum
             });
         }},
        {"library", [last, usage = '2']() mutable {
             usage = usage == '2' ? '3' : '2';
             change(last, usage);
         }}};
    // Each changes for itself: a row that holds the value already costs less.
    rivals::beside(changers, kinds, [last, usage = '2'](rivals::Store& store) mutable {
        usage = usage == '2' ? '3' : '2';
        store.change(last, usage);
    });
    measure::row({"global: change", records}, changers);
}

// Eight processes at once, each making so many changes of a row of its own.
constexpr int WRITERS = 8;
constexpr int CHANGES = 20;

void allAtOnce(const std::function<void(int row)>& changes) {
    for (int writer = 0; writer < WRITERS; ++writer) {
        if (::fork() == 0) {
            changes(writer);
            std::_Exit(0);
        }
    }
    for (int writer = 0; writer < WRITERS; ++writer) {
        int status = 0;
        bare::require(::wait(&status) > 0 && status == 0);
    }
}

void benchWriters(const std::vector<rivals::Kind>& kinds, int records) {
    const auto times = [](const auto& changeTo) {
        for (int i = 0; i < CHANGES; ++i) {
            changeTo(static_cast<char>('1' + i % 9));
        }
    };
    std::vector<measure::Rival> writers = {
        {"library", [&] { allAtOnce([&](int row) { times([&](char usage) { change(row, usage); }); }); }}};
    for (const rivals::Kind& each : kinds) {
        writers.push_back({each.name, [&] {
                               allAtOnce([&](int row) {
                                   const auto store = each.open(each.path);
                                   times([&](char usage) { store->change(row, usage); });
                               });
                           }});
    }
    measure::row({"global: change, 8 writers", records, 7, WRITERS * CHANGES}, writers);
}

void benchSize(const std::string& directory, int records) {
    constexpr int MOST_CHANGED = 10000;
    constexpr int CROWD_SIZE = 100;
    const bare::Paths paths(directory, "global" + std::to_string(records) + ".reg");
    instances::fillRegistry(paths.registry, records);
    bare::require(::setenv("RVN_GLOBAL_REG_PATHNAME", paths.registry.c_str(), 1) == 0);
    const auto size = static_cast<std::size_t>(std::filesystem::file_size(paths.registry));
    const std::vector<rivals::Kind> kinds = rivals::filled(directory + "/rows" + std::to_string(records), records);
    benchReading(paths, size, kinds, records);
    if (records <= MOST_CHANGED) {
        benchChanging(paths, size, kinds, records);
    }
    if (records == CROWD_SIZE) {
        benchWriters(kinds, records);
    }
}

}  // namespace

int main(int count, char** arguments) {
    measure::begin(count, arguments);
    const measure::Scratch scratch;
    for (const int records : {10, 100, 1000, 10000, 100000}) {
        benchSize(scratch.path(), records);
    }
    return 0;
}
