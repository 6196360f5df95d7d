// Failing allocations: each piece of memory that an update or a look-up asks for is refused in turn, once and from then
// on for good.
//
// After each: the same as after a failing call (the new contents or the old, nothing left open, the same object works
// again), the failure is told as one of memory, and the object leaves no memory behind. The rig stands in for the
// allocator: the library, a shared one, asks the executable's. Twice over: in a process that has never used the
// library, and in one that has, where what the library keeps for good is there already.
#include <genreg/Codes.h>
#include <genreg/GenRegBinVarVal.h>
#include <genreg/GenRegVarVal.h>
#include <osse/Errors.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "support/Aftermath.h"
#include "support/Careless.h"
#include "support/Folder.h"
#include "support/Place.h"
#include "support/Rig.h"

// --- the allocator ---------------------------------------------------------------------------------------------------

// The C library's own, under its other names.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);
}

namespace {

// What the allocator counts and refuses. The process has one thread.
struct Ledger {
    bool counting = false;
    long asked = 0;     // while counting
    long refused = -1;  // which of those is refused; -1: none
    bool forGood = false;
    long blocks = 0;  // in use, all told
};
Ledger ledger;

bool granted() {
    if (!ledger.counting) {
        return true;
    }
    const long index = ledger.asked++;
    if (ledger.refused < 0 || (ledger.forGood ? index < ledger.refused : index != ledger.refused)) {
        return true;
    }
    errno = ENOMEM;
    return false;
}

void* entered(void* block) {
    ledger.blocks += block != nullptr ? 1 : 0;
    return block;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) noexcept {
    return granted() ? entered(__libc_malloc(size)) : nullptr;
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    return granted() ? entered(__libc_calloc(count, size)) : nullptr;
}

void* realloc(void* block, std::size_t size) noexcept {
    if (!granted()) {
        return nullptr;
    }
    void* const grown = __libc_realloc(block, size);
    return block == nullptr ? entered(grown) : grown;
}

void free(void* block) noexcept {
    ledger.blocks -= block != nullptr ? 1 : 0;
    __libc_free(block);
}
}

// --- the rig ---------------------------------------------------------------------------------------------------------

namespace {

using prove::Place;
using prove::Registry;
using prove::Remains;
using prove::Report;
using prove::Scenario;

struct Refusal {
    long index = -1;  // of the allocation within the operation; -1: none
    bool forGood = false;
    bool warm = false;  // the process has used the library before
};

// Whether the cause of a failure says that memory was short.
bool isAboutMemory(const GenRegCause& cause) {
    constexpr unsigned int CODES[] = {
        REG_NO_RECORD_BUFFER, REG_NO_OLD_RECORD_BUFFER, REG_NO_NEW_RECORD_BUFFER, REG_NO_CHECKSUM_BUFFER,
        REG_NO_WORK_BUFFER,   REG_NO_PACK_BUFFER,       REG_NO_UNPACK_BUFFER,     REG_NO_MEMORY};
    const auto listed = [&](unsigned int code) {
        return std::find(std::begin(CODES), std::end(CODES), code) != std::end(CODES);
    };
    return listed(cause.code) || listed(cause.platformCode);
}

class FailingAllocations {
public:
    explicit FailingAllocations(prove::Rig& rig) : rig_(rig) {}

    void run(const Scenario& scenario) {
        const Place place(rig_.scratch() + "/place", scenario);
        const unsigned long failedBefore = rig_.failed();
        std::string counts;
        for (const bool warm : {false, true}) {
            rig_.begin(scenario.name + (warm ? ", again" : ", first") + ", undisturbed");
            const long asked = play(scenario, place, {-1, false, warm});
            for (long index = 0; index < asked; ++index) {
                for (const bool forGood : {false, true}) {
                    rig_.begin(scenario.name + (warm ? ", again" : ", first") + ", allocation " +
                               std::to_string(index) + (forGood ? " for good" : " once"));
                    (void)play(scenario, place, {index, forGood, warm});
                }
            }
            counts +=
                std::to_string(asked) + (warm ? " allocations in a used one, " : " allocations in a fresh process, ");
        }
        rig_.tell(scenario.name + ": " + counts + std::to_string(rig_.failed() - failedBefore) + " failed");
    }

    void controls() {
        using prove::Vice;
        const auto play = [&](const Scenario& scenario, const Refusal& refusal) {
            rig_.begin("control");
            return this->play(scenario, Place(rig_.scratch() + "/place", scenario), refusal);
        };
        prove::controlAftermath(rig_, [&](const Scenario& scenario) { (void)play(scenario, {}); });
        rig_.control("pieces of memory left behind", [&] {
            (void)play(prove::carelessUpdate(Vice::Memory), {-1, false, true});
        });
        const std::pair<Vice, const char*> refused[] = {{Vice::Boasts, "a wrong success"},
                                                        {Vice::WrongCause, "not told as a lack of memory"}};
        for (const auto& [vice, words] : refused) {
            rig_.control(words, [&, vice = vice] {
                const Scenario scenario = prove::carelessUpdate(vice);
                const long asked = play(scenario, {});
                for (long index = 0; index < asked && !rig_.convinced(); ++index) {
                    (void)play(scenario, {index, false, false});
                }
            });
        }
    }

    void report() {
        rig_.remark("operations with a refused allocation: " + std::to_string(absorbed_) + " succeeded all the same, " +
                    std::to_string(refused_) + " failed");
    }

private:
    // Runs the scenario in a child, which stops after the operation to be looked at; how many allocations that made.
    long play(const Scenario& scenario, const Place& place, const Refusal& refusal) {
        place.layOut();
        *report_ = {};
        (void)std::fflush(nullptr);
        const pid_t child = ::fork();
        if (child == 0) {
            act(scenario, place, refusal);
            ::_exit(0);
        }
        int status = 0;
        (void)::waitpid(child, &status, WUNTRACED);
        if (!rig_.check(WIFSTOPPED(status), "the process did not survive the operation")) {
            return 0;
        }
        const Remains remains = prove::remainsOf(place, scenario);
        (void)::kill(child, SIGCONT);
        (void)::waitpid(child, &status, 0);
        if (!rig_.check(WIFEXITED(status), "the process did not survive")) {
            return 0;
        }
        prove::judge(rig_, scenario, place, *report_, remains, {});
        // Closing a scan that failed is an operation of its own, which has no cause to tell.
        const bool forgotten = scenario.reads() && report_->cause.code == 0;
        rig_.check(report_->code == 0 || forgotten || isAboutMemory(report_->cause),
                   "not told as a lack of memory: " + prove::codeText(report_->code) + " because of " +
                       prove::codeText(report_->cause.code) + ", " + prove::codeText(report_->cause.platformCode));
        rig_.check(!refusal.warm || report_->blocksLeft == 0,
                   std::to_string(report_->blocksLeft) + " pieces of memory left behind");
        if (refusal.index < 0) {
            rig_.check(report_->code == 0, "fails: " + prove::codeText(report_->code));
        } else {
            ++(report_->code == 0 ? absorbed_ : refused_);
        }
        return report_->allocations;
    }

    void act(const Scenario& scenario, const Place& place, const Refusal& refusal) {
        if (refusal.warm) {
            useTheLibrary(scenario);
        }
        // What naming the file to the library costs is not the object's.
        scenario.schema->open(place.named(), scenario.features).reset();
        const long before = ledger.blocks;
        auto registry = scenario.schema->open(place.named(), scenario.features);
        prove::playOperation(scenario, place, *registry, report_,
                             [&](const Scenario& played, Registry& target, Report* report) {
                                 ledger = {true, 0, refusal.index, refusal.forGood, ledger.blocks};
                                 report->code = played.operation.perform(target);
                                 ledger.counting = false;
                                 report->allocations = ledger.asked;
                                 (void)std::raise(SIGSTOP);
                             });
        registry.reset();
        report_->blocksLeft = ledger.blocks - before;
        report_->openAtTheEnd = prove::countDescriptors();
    }

    // A success and a failure, elsewhere: what the library keeps for good is there from now on.
    void useTheLibrary(const Scenario& scenario) {
        const Place elsewhere(rig_.scratch() + "/elsewhere", scenario);
        elsewhere.layOut();
        const auto registry = scenario.schema->open(elsewhere.named(), scenario.features);
        (void)scenario.operation.perform(*registry);
        (void)registry->remove("nobody");
    }

    prove::Rig& rig_;
    Report* const report_ = prove::sharedReport();
    unsigned long absorbed_ = 0;
    unsigned long refused_ = 0;
};

// An object that is to keep the contents, and look-ups until it answers from them. What is refused there costs a look
// at the file, never the answer; nothing but the wish to keep at all is refused with a code.
void keepContents(prove::Rig& rig) {
    constexpr unsigned long PLENTY = 1UL << 20;
    constexpr int UNTIL_KEPT = 3;
    const std::string path = rig.scratch() + "/kept";
    (void)prove::putBytes(path, "a = 1\nb = 2\n");
    {
        rig.begin("kept contents, a refused key");
        // A failure that is logged: what the library keeps for good, the open log among it, is no piece left behind.
        unsigned int rc = 0;
        GenRegVarVal registry(path.c_str(), &rc);
        GenRegVarValRecord none = {};
        rig.check(registry.Get(VARVAL_MATCH_VARIABLE, &none, &none) == REG_RECORD_REFUSED, "a refused key");
    }
    ::usleep(200'000);  // a younger file is not kept
    for (const bool forGood : {false, true}) {
        ledger.asked = 0;
        for (long index = -1; index < ledger.asked; ++index) {  // nothing is refused at first
            rig.begin("kept contents, allocation " + std::to_string(index) + (forGood ? " for good" : " once"));
            const long blocks = ledger.blocks;
            {
                unsigned int rc = 0;
                GenRegVarVal registry(path.c_str(), &rc);
                char variable[] = "b";
                GenRegVarValRecord key = {};
                key.contains = VARVAL_HAS_PAIR;
                key.variable = variable;
                GenRegVarValRecord found;
                ledger = {true, 0, index, forGood, ledger.blocks};
                rc = registry.KeepContents(PLENTY);
                bool good = rc == 0 || (rc == REG_NO_MEMORY && index == 0);
                for (int i = 0; i < UNTIL_KEPT; ++i) {
                    rc = registry.Get(VARVAL_MATCH_VARIABLE, &key, &found);
                    GenRegCause cause = {};
                    genregLastCause(&cause);
                    good = good && (rc == 0 ? std::strcmp(found.value, "2") == 0 : isAboutMemory(cause));
                }
                ledger.counting = false;
                rig.check(good, "a wrong answer: " + prove::codeText(rc));
            }
            const bool nothingLeft = index < 0 || ledger.blocks == blocks;  // before the words take memory themselves
            rig.check(nothingLeft, "pieces of memory left behind");
        }
    }
}

class Logged : public GenRegBinVarVal {
public:
    Logged(const char* path, unsigned int* rc) noexcept : GenRegBinVarVal(path, rc) {
        features |= REG_FEATURE_CHANGE_LOG;
        logChange = [](GenRegBase* object, unsigned long /*operation*/, void* /*first*/, void* /*second*/) {
            ++static_cast<Logged*>(object)->heard;
            return 0U;
        };
    }
    int heard = 0;
};

// A batch whose changes are logged, with a look-up behind them that no index serves. Memory for the log that is not had
// costs a line of it, never the change.
unsigned int changeLogged(Logged& registry) {
    GenRegBinVarValRecord key = {"b", 2, ""};
    GenRegBinVarValRecord changed = {"b", 3, ""};
    GenRegBinVarValRecord found = {};
    unsigned int rc = registry.BeginBatch();
    if (rc == 0) {
        rc = registry.Change(BINVARVAL_MATCH_VARIABLE, &key, &changed);
        rc = rc == 0 ? registry.Get(BINVARVAL_MATCH_VALUE, &changed, &found) : rc;
        if (rc == 0) {
            return registry.CommitBatch();
        }
        (void)registry.AbandonBatch();
    }
    return rc;
}

void logBatches(prove::Rig& rig) {
    const std::string path = rig.scratch() + "/logged";
    int unheard = 0;
    for (const bool forGood : {false, true}) {
        long asked = 0;
        for (long index = -1; index < asked; ++index) {  // nothing is refused at first
            rig.begin("a logged batch, allocation " + std::to_string(index) + (forGood ? " for good" : " once"));
            (void)::unlink(path.c_str());
            unsigned int rc = 0;
            Logged registry(path.c_str(), &rc);
            for (GenRegBinVarValRecord record :
                 {GenRegBinVarValRecord{"a", 1, ""}, GenRegBinVarValRecord{"b", 2, ""}}) {
                rc = rc == 0 ? registry.Add(BINVARVAL_MATCH_VARIABLE, &record) : rc;
            }
            registry.heard = 0;
            ledger = {true, 0, index, forGood, ledger.blocks};
            rc = rc == 0 ? changeLogged(registry) : rc;
            ledger.counting = false;
            asked = index < 0 ? ledger.asked : asked;
            GenRegCause cause = {};
            genregLastCause(&cause);
            rig.check(index >= 0 ? rc == 0 || isAboutMemory(cause) : rc == 0, "answers " + prove::codeText(rc));
            GenRegBinVarValRecord key = {"b", 0, ""};
            GenRegBinVarValRecord found = {};
            const unsigned int got = registry.Get(BINVARVAL_MATCH_VARIABLE, &key, &found);
            rig.check(got == 0 && found.value == (rc == 0 ? 3 : 2), "the registry is neither old nor new");
            rig.check(registry.heard <= (rc == 0 ? 1 : 0), "a change that was not made is logged");
            unheard += rc == 0 && registry.heard == 0 ? 1 : 0;
        }
    }
    rig.check(unheard > 0, "no memory of the log was refused");
}

}  // namespace

int main(int argc, char** argv) {
    prove::Rig rig{"failing_allocations", argc, argv};
    rig.expectAtLeast(900, 7'000);
    FailingAllocations(rig).controls();
    FailingAllocations allocations(rig);
    for (const auto& list : {prove::updates(), prove::readings()}) {
        for (const Scenario& scenario : list) {
            // A scan asks for memory at each record: a large one tries nothing that a small one does not.
            const bool repeats = scenario.large && scenario.reads();
            if ((!rig.quick() || scenario.quick) && rig.wants(scenario.name) && !repeats) {
                allocations.run(scenario);
            }
        }
    }
    keepContents(rig);
    logBatches(rig);
    allocations.report();
    return rig.finish();
}
