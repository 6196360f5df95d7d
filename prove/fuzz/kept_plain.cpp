// Any bytes as the file of each schema, asked of an object that keeps the contents and of one that does not beside each
// other: codes, causes, records and log lines are the same, with the schema's own functions in the slots and with
// others.
//
// The clock of this program is an hour ahead, so that every file is old enough to be kept.
#include <dlfcn.h>
#include <osse/Trace.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <memory>

#include "Asked.h"
#include "Fuzz.h"
#include "Told.h"
#include "genreg/core/KeptContents.h"

namespace {

template <class Schema>
unsigned int matchAgain(unsigned long mask, void* record, void* key) {
    return Schema::MatchRecord(mask, record, key);
}

template <class Schema>
class Opened : public Schema {
public:
    Opened(const Asked& asked, unsigned long kept, bool replaced) {
        claim(this->setRegistryPaths(asked.path.c_str()) == 0, "the path is taken");
        this->features ^= asked.toggled;
        if constexpr (requires { this->parseLine; }) {
            claim(!asked.keeps || this->KeepLines(true) == 0, "lines are kept");
        }
        if (replaced) {
            this->matchRecord = matchAgain<Schema>;
        }
        claim(this->KeepContents(kept) == 0, "contents are to be kept");
    }
};

constexpr unsigned long PLENTY = 1UL << 22;

// Whether the next answer comes from memory.
bool isKept(GenRegFile& registry) {
    char path[REG_PATH_SIZE];
    genreg::KeptContents* const kept = genreg::FileInternals::of(registry).keptContents();
    return registry.getRegistryPath(path, sizeof path) == 0 && kept != nullptr && kept->isCurrent(path);
}

bool canBeKept(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool can = descriptor != -1 && posix::isLocalFile(descriptor);
    (void)::close(descriptor);
    return can;
}

template <class Schema, class Record>
std::string ask(const Asked& asked, unsigned long kept, int times, bool replaced = false) {
    Opened<Schema> registry(asked, kept, replaced);
    std::string text = asked.key;
    Record key = {};
    fillKey(key, text.data());
    std::string all;
    bool searched = false;
    for (int i = 0; i < times; ++i) {
        all.clear();
        logged = &all;
        const auto result = std::make_unique<Record>();
        std::memset(static_cast<void*>(result.get()), 0xa5, sizeof(Record));
        const unsigned int rc = registry.Get(asked.mask, &key, result.get());
        logged = nullptr;
        searched = rc == 0 || rc == REG_NOT_FOUND;
        all += told(rc) + "\n" + (rc == 0 ? told(*result) : bytesOf(result.get(), sizeof(Record)));
    }
    claim(kept != PLENTY || !searched || isKept(registry) == (gtraceState == 0 && canBeKept(asked.path)),
          "contents are kept");
    return all;
}

template <class Schema, class Record>
void compare(const Asked& asked) {
    constexpr unsigned long LITTLE = 300;  // often without an index
    constexpr int UNTIL_KEPT = 3;
    const std::string plain = ask<Schema, Record>(asked, 0, 1);
    claim(ask<Schema, Record>(asked, PLENTY, UNTIL_KEPT) == plain, "what is kept tells what the file tells");
    claim(ask<Schema, Record>(asked, LITTLE, UNTIL_KEPT) == plain, "and so in little memory");
    claim(ask<Schema, Record>(asked, PLENTY, UNTIL_KEPT, true) == plain, "and so with another function in the slot");
    gtraceState = GTRACE_ATTACHED | GTRACE_ENABLED;
    const bool same = ask<Schema, Record>(asked, PLENTY, UNTIL_KEPT) == plain;
    gtraceState = 0;
    claim(same, "and so while it is traced");
}

}  // namespace

extern "C" {

// As the system's header has declared it, which some do as one that does not throw.
int clock_gettime(clockid_t clock, timespec* time) noexcept(noexcept(::clock_gettime(clock, time))) {
    static const auto systems = reinterpret_cast<int (*)(clockid_t, timespec*)>(::dlsym(RTLD_NEXT, "clock_gettime"));
    const int failed = systems(clock, time);
    time->tv_sec += clock == CLOCK_REALTIME ? 3600 : 0;
    return failed;
}
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const FuzzFolder folder;
    const FuzzQuiet quiet;
    Asked asked;
    if (!readAsked(bytes, size, folder, &asked)) {
        return 0;
    }
    switch (asked.schema) {
        case 0:
            compare<VarVal, GenRegVarValRecord>(asked);
            break;
        case 1:
            compare<Services, GenRegServicesRecord>(asked);
            break;
        case 2:
            compare<GenRegInitTab, GenRegInitTabRecord>(asked);
            break;
        case 3:
            compare<BinVarVal, GenRegBinVarValRecord>(asked);
            break;
        default:
            compare<GlobalReg, GlobalRegRecord>(asked);
            break;
    }
    return 0;
}
