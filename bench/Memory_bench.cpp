// Memory: what an operation needs at most above the loaded library, by the size of the file. Each is measured in a
// process of its own, whose pages of the programs and libraries are all in memory before.
#include <genreg/genreg.h>
#include <link.h>
#include <sys/wait.h>

#include <cstring>
#include <fstream>
#include <iterator>

#include "Bare.h"
#include "Instances.h"
#include "Measure.h"

namespace {

// A line of the process's status, in KiB.
long kibibytes(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name)) {
            return std::strtol(line.c_str() + name.size(), nullptr, 10);
        }
    }
    return -1;
}

int touchPages(dl_phdr_info* object, std::size_t, void*) {
    constexpr std::size_t PAGE = 4096;
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const auto& segment = object->dlpi_phdr[i];
        const auto* const bytes = reinterpret_cast<const volatile char*>(object->dlpi_addr + segment.p_vaddr);
        for (std::size_t at = 0; segment.p_type == PT_LOAD && at < segment.p_filesz; at += PAGE) {
            (void)bytes[at];
        }
    }
    return 0;
}

// What the operation needs at most, in KiB.
template <typename Operation>
long peak(Operation operation) {
    int ends[2];
    bare::require(::pipe(ends) == 0);
    const pid_t child = ::fork();
    if (child == 0) {
        (void)::dl_iterate_phdr(touchPages, nullptr);
        std::ofstream("/proc/self/clear_refs") << "5";  // the highest so far is forgotten
        const long before = kibibytes("VmRSS:");
        operation();
        const long needed = kibibytes("VmHWM:") - before;
        bare::require(::write(ends[1], &needed, sizeof needed) == sizeof needed);
        std::_Exit(0);
    }
    long needed = -1;
    (void)::close(ends[1]);
    bare::require(::read(ends[0], &needed, sizeof needed) == sizeof needed && ::waitpid(child, nullptr, 0) == child);
    (void)::close(ends[0]);
    return needed;
}

void tell(const char* of, int size, long get, long list, long change) {
    std::printf("memory, KiB: %-13s %7d  look-up %ld; list %ld; change %ld\n", of, size, get, list, change);
}

void measureLines(const std::string& folder, int lines) {
    const std::string path = folder + "/registry" + std::to_string(lines);
    {
        std::ofstream out(path);
        for (int i = 0; i < lines; ++i) {
            out << "variable" << i << " = value" << i << "\n";
        }
    }
    std::string name = "variable" + std::to_string(lines - 1);
    std::string value = "new";
    const auto with = [&](const auto& step) {
        return peak([&] {
            unsigned int rc = 0;
            GenRegVarVal registry(path.c_str(), &rc);
            GenRegVarValRecord key;
            key.contains = VARVAL_HAS_PAIR;
            key.comment = nullptr;
            key.variable = name.data();
            key.value = value.data();
            GenRegVarValRecord found;
            step(registry, key, found);
        });
    };
    const long get = with([](auto& registry, auto& key, auto& found) {
        bare::require(registry.Get(VARVAL_MATCH_VARIABLE, &key, &found) == 0);
    });
    const long list = with([](auto& registry, auto&, auto& found) {
        bare::require(registry.OpenScan() == 0);
        while (registry.GetNext(0, nullptr, &found) == 0) {
        }
        bare::require(registry.CloseScan() == 0);
    });
    const long change = with([](auto& registry, auto& key, auto&) {
        bare::require(registry.Change(VARVAL_MATCH_VARIABLE, &key, &key) == 0);
    });
    tell("lines", lines, get, list, change);
}

void measureRecords(const std::string& folder, int records) {
    const std::string path = folder + "/global" + std::to_string(records) + ".reg";
    instances::fillRegistry(path, records);
    bare::require(::setenv("RVN_GLOBAL_REG_PATHNAME", path.c_str(), 1) == 0);
    OSSInstanceInfo_t last = instances::instance(records - 1, '0');
    char service[] = "RVN";
    const long get = peak([&] {
        OSSInstanceInfo_t info;
        bare::require(ossGetInstanceInfo(service, instances::VERSION, last.instanceName, &info) == 0);
    });
    const long list = peak([&] {
        void* handle = nullptr;
        OSSInstanceInfo_t info;
        bare::require(ossOpenInstanceList(service, &handle) == 0);
        while (ossGetNextInstance(handle, &info) == 0) {
        }
        bare::require(ossCloseInstanceList(handle) == 0);
    });
    const long change = peak([&] {
        GlobalRegRecord record = instances::toRecord(instances::instance(records - 1, '1'));
        instances::QuietGlobalReg registry;
        bare::require(registry.Change(instances::KEY, &record, &record) == 0);
    });
    tell("records", records, get, list, change);
}

}  // namespace

int main(int count, char** arguments) {
    measure::begin(count, arguments);
    const measure::Scratch scratch;
    for (const int lines : {10, 100, 1000, 10000, 100000}) {
        measureLines(scratch.path(), lines);
    }
    for (const int records : {10, 100, 1000, 10000, 100000}) {
        measureRecords(scratch.path(), records);
    }
    std::printf("memory, KiB: %-13s %7d  %ld\n", "nothing", 0, peak([] {}));
    return 0;
}
