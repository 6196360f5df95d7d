// Any bytes as the file of each schema, looked through in the quick ways and in the plain one beside each other: codes,
// causes, records, places in the scan and log lines are the same.
//
// The plain object has functions of its own in the slots, which hand on to the schema's, so that whatever saves calls
// is off; and a limit for its locks, so that look-ups open the file as everybody else does. The quick object is the
// schema as it comes; while it is traced, or where its slots hold other functions too, it has to give the same again.
// The information interface, which has no slots, is asked traced and not. And the masks of lines that this machine
// makes are the ones that every machine can.
#include <osse/Trace.h>

#include <cstring>
#include <memory>

#include "Asked.h"
#include "Fuzz.h"
#include "Told.h"
#include "genreg/text/LineShapes.h"
#include "genreg/text/PassOver.h"

namespace {

// What was traced; the library's objects find these in the place of the platform's.
std::string* traced = nullptr;

void keepTrace(const char* what, unsigned int function) {
    if (traced != nullptr) {
        *traced += what + std::to_string(function) + "\n";
    }
}

// How often these functions in the slots were asked.
unsigned long timesAsked = 0;

template <class Schema>
unsigned int matchAgain(unsigned long mask, void* record, void* key) {
    ++timesAsked;
    return Schema::MatchRecord(mask, record, key);
}
template <class Schema>
unsigned int parseAgain(void* record, const char* line) {
    ++timesAsked;
    return Schema::ParseLine(record, line);
}

template <class Schema>
class Opened : public Schema {
public:
    Opened(const Asked& asked, bool replaced, bool plain) {
        claim(this->setRegistryPaths(asked.path.c_str()) == 0, "the path is taken");
        this->features ^= asked.toggled;
        if constexpr (requires { this->parseLine; }) {
            claim(!asked.keeps || this->KeepLines(true) == 0, "lines are kept");
            if (replaced && !asked.keeps) {
                this->parseLine = parseAgain<Schema>;
            }
        }
        if (replaced && !asked.keeps) {
            this->matchRecord = matchAgain<Schema>;
        }
        if (plain) {
            this->SetLockWait(3'600'000, nullptr, nullptr);
        }
    }
};

template <class Record>
class Transcript {
public:
    explicit Transcript(const Asked& asked) : text_(asked.key) { fillKey(key_, text_.data()); }

    template <class Registry>
    std::string of(Registry& registry, const Asked& asked) {
        std::string all;
        logged = traced = &all;
        const auto look = [&](auto call) {
            auto result = std::make_unique<Record>();
            std::memset(static_cast<void*>(result.get()), 0xa5, sizeof(Record));
            const unsigned int rc = call(result.get());
            all += told(rc) + (rc == 0 ? told(*result) : bytesOf(result.get(), sizeof(Record))) + "\n";
            return rc;
        };
        (void)look([&](Record* result) { return registry.Get(asked.mask, &key_, result); });
        (void)look([&](Record* result) { return registry.Get(asked.mask, &key_, result); });
        for (const unsigned long mask : {0UL, asked.mask}) {
            Record* const key = mask == 0 ? nullptr : &key_;
            all += std::to_string(registry.OpenScan()) + "\n";
            long long place = 0;
            do {
                all += std::to_string(registry.getRegFilePosition(&place)) + " " + std::to_string(place) + "\n";
            } while (look([&](Record* result) { return registry.GetNext(mask, key, result); }) == 0);
            all += std::to_string(registry.CloseScan()) + "\n";
        }
        char path[REG_PATH_SIZE];
        (void)registry.getRegistryPath(path, sizeof path);
        logged = traced = nullptr;
        return all + path;
    }

private:
    std::string text_;
    Record key_ = {};
};

template <class Schema, class Record>
void compare(const Asked& asked) {
    const auto ask = [&](bool replaced, bool plain) {
        Opened<Schema> registry(asked, replaced, plain);
        return Transcript<Record>(asked).of(registry, asked);
    };
    timesAsked = 0;
    const std::string plain = ask(true, true);
    const unsigned long timesPlain = timesAsked;
    claim(ask(false, false) == plain, "the quick ways tell what the plain one tells");
    claim(ask(true, false) == plain, "and so with other functions in the slots");
    claim(ask(false, true) == plain, "and so opened as everybody does");
    gtraceState = GTRACE_ATTACHED | GTRACE_ENABLED;
    timesAsked = 0;
    const bool same = ask(true, false) == ask(false, false);
    gtraceState = 0;
    claim(timesAsked == timesPlain, "functions in the slots are asked as often as while they are traced");
    claim(same, "and so, call for call, while it is traced");
}

// What the information interface answers, and leaves in the structure.
template <class Info, class Call>
unsigned int informed(std::string& all, Call call) {
    auto info = std::make_unique<Info>();
    constexpr std::size_t FLAGS = sizeof(unsigned long);  // in front, and only ever set
    std::memset(reinterpret_cast<char*>(info.get()) + FLAGS, 0xa5, sizeof(Info) - FLAGS);
    const unsigned int rc = call(info.get());
    all += std::to_string(rc) + bytesOf(info.get(), sizeof(Info)) + "\n";
    return rc;
}

template <class Info>
std::string listed(void* list, unsigned int (*next)(void*, Info*), unsigned int (*close)(void*)) {
    std::string all;
    while (informed<Info>(all, [&](Info* info) { return next(list, info); }) == 0) {
    }
    return all + std::to_string(close(list));
}

// Lists all of a service, and looks one up: by the service alone, and by a text.
std::string toldOf(char* service, char* text) {
    std::string all;
    logged = &all;
    for (char* further : {static_cast<char*>(nullptr), text}) {
        (void)informed<OSSInstanceInfo_t>(
            all, [&](OSSInstanceInfo_t* info) { return ossGetInstanceInfo(service, 0, further, info); });
        (void)informed<OSSServiceInfo_t>(
            all, [&](OSSServiceInfo_t* info) { return ossGetServiceInfo(service, 0, further, info); });
    }
    void* list = nullptr;
    all += std::to_string(ossOpenInstanceList(service, &list, false));
    if (list != nullptr) {
        all += listed<OSSInstanceInfo_t>(list, ossGetNextInstance, ossCloseInstanceList);
    }
    list = nullptr;
    all += std::to_string(ossOpenServiceList(&list));
    if (list != nullptr) {
        all += listed<OSSServiceInfo_t>(list, ossGetNextService, ossCloseServiceList);
    }
    logged = nullptr;
    return all;
}

void compareInformation(const Asked& asked) {
    claim(::setenv("RVN_GLOBAL_REG_PATHNAME", asked.path.c_str(), 1) == 0, "the registry is named");
    std::string text = asked.key;
    for (std::string service : {"RVN", "other"}) {
        const std::string quick = toldOf(service.data(), text.data());
        gtraceState = GTRACE_ATTACHED | GTRACE_ENABLED;
        const std::string plain = toldOf(service.data(), text.data());
        gtraceState = 0;
        claim(quick == plain, "the information interface tells what it tells while it is traced");
    }
}

// How far the masks lead in the lines, from whichever line, and together with those who look at single ones.
template <class Shape, class Block>
std::string passed(const std::string& lines, bool joined, const std::string& key) {
    std::string all;
    const genreg::Beginning beginning(key.c_str());
    for (const bool holds : {true, false}) {
        std::size_t at = 0;
        do {
            // A copy of its own, so that reading behind its end is seen.
            const std::unique_ptr<char[]> rest(new char[lines.size() - at]);
            std::memcpy(rest.get(), lines.data() + at, lines.size() - at);
            genreg::LinePasser<Shape, Block> passer(rest.get(), lines.size() - at, joined, beginning);
            all += std::to_string(passer.pass([&](const char*, std::size_t) { return holds; })) + " ";
            at = lines.find('\n', at) + 1;
        } while (at != 0 && at < lines.size() && all.size() < 1000);
    }
    return all;
}

template <class Shape>
void compareMasks(const Asked& asked) {
    const std::string& lines = asked.contents;
    const std::string key = asked.key.substr(0, asked.key.find_first_of(" \t\r\n"));
    if (!key.empty()) {
        const bool joined = asked.toggled != 0;
        claim(passed<Shape, genreg::Block>(lines, joined, key) == passed<Shape, genreg::PlainBlock>(lines, joined, key),
              "the masks are those of every machine");
    }
}

}  // namespace

extern "C" {

void _gtraceEntry(unsigned int functionId, unsigned long) {
    keepTrace("> ", functionId);
}
void _gtraceExit(unsigned int functionId, unsigned long, unsigned long) {
    keepTrace("< ", functionId);
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
            compareMasks<genreg::PairLines>(asked);
            break;
        case 1:
            compare<Services, GenRegServicesRecord>(asked);
            compareMasks<genreg::ServiceLines<240>>(asked);
            break;
        case 2:
            compare<GenRegInitTab, GenRegInitTabRecord>(asked);
            compareMasks<genreg::EntryLines>(asked);
            break;
        case 3:
            compare<BinVarVal, GenRegBinVarValRecord>(asked);
            break;
        default:
            compare<GlobalReg, GlobalRegRecord>(asked);
            compareInformation(asked);
    }
    return 0;
}
