// Power cuts at every step of every update, in two ways.
//
// By rule, anywhere: the update runs from system call to system call, what each changed is noted with what each sync
// made lasting, and every tree of files that a cut may leave at that step is laid out and looked at. By trial, as root
// on Linux with loop devices: the update runs on a small file system in an image, at each system call the image is
// copied as it is at that moment, and the copy is mounted and looked at; with the file system as it comes and with its
// own protection of renames switched off, with nothing but the update's syncs and while others write to the medium.
//
// Whatever is found: the registry is byte for byte old or new, and just new once the operation has returned; the next
// update succeeds. An empty registry where none was before is as described. An append in place may be there in part;
// what stood before it is not touched.
//
// The same is done to a disk that forgets its syncs, and to a careless writer: a rig that does not catch them proves
// nothing.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <set>
#include <utility>

#include "prove/support/Cases.h"
#include "prove/support/DiskImage.h"
#include "prove/support/DiskModel.h"
#include "prove/support/Folder.h"
#include "prove/support/Place.h"
#include "prove/support/Stepper.h"

namespace {

using prove::Cases;
using prove::Contents;
using prove::DiskImage;
using prove::DiskModel;
using prove::Folder;
using prove::Place;
using prove::Scenario;
using prove::State;
using prove::Tree;

constexpr std::size_t HEADER = 32;

int update(const Scenario& scenario, const Place& place) {
    const auto registry = scenario.schema->open(place.named(), scenario.features);
    prove::beginPart();
    const unsigned int rc = scenario.operation.perform(*registry);
    prove::endPart();
    return rc == 0 ? 0 : 1;
}

// Whether what stood there before an append in place still does.
bool keepsOld(const Scenario& scenario, const std::string& bytes) {
    const std::string old = scenario.before.present ? scenario.bytes(scenario.before) : "";
    const std::size_t header = scenario.before.stamped ? HEADER : 0;
    return bytes.size() >= old.size() &&
           bytes.compare(header, old.size() - header, old, header, std::string::npos) == 0;
}

struct Found {
    unsigned long old = 0;
    unsigned long fresh = 0;
    unsigned long empty = 0;
    unsigned long parts = 0;
};

// Looks at what a cut left in a place. Empty when all is well, else what is wrong.
std::string judge(const Scenario& scenario, const Place& place, bool returned, Found* found) {
    const State state = prove::stateOf(place, scenario);
    if (returned && state != State::New) {
        return std::string("after the operation returned the registry is ") + prove::stateText(state);
    }
    Contents contents = scenario.before;
    switch (state) {
        case State::New:
            ++found->fresh;
            contents = scenario.after(contents, scenario.operation);
            break;
        case State::Old:
            ++found->old;
            break;
        case State::Empty:
            ++found->empty;
            break;
        default:
            if (scenario.appendsInPlace() && keepsOld(scenario, prove::bytesOf(place.registry()).value_or(""))) {
                ++found->parts;
                return "";
            }
            return std::string("the registry is ") + prove::stateText(state);
    }
    const unsigned int rc = scenario.again.perform(*scenario.schema->open(place.named(), scenario.features));
    if (rc != 0) {
        return "the next update gave " + prove::hex(rc);
    }
    const std::string expected = scenario.bytes(scenario.after(contents, scenario.again));
    return prove::bytesOf(place.registry()) == expected ? "" : "the next update left something else than it should";
}

// What a careless writer syncs.
enum class Synced { Nothing, OnlyContents, OnlyNames };
constexpr std::pair<Synced, const char*> CARELESS[] = {
    {Synced::Nothing, "a writer that syncs nothing"},
    {Synced::OnlyContents, "a writer that does not sync the names"},
    {Synced::OnlyNames, "a writer that syncs the old file for the new"},
};

void sync(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    (void)::fsync(descriptor);
    (void)::close(descriptor);
}

// Writes the new contents beside the old and renames, as one should, but does not sync both.
int careless(const Scenario& scenario, const Place& place, Synced synced) {
    const std::string bytes = scenario.bytes(scenario.after(scenario.before, scenario.operation));
    prove::beginPart();
    bool good = prove::putBytes(place.temporary(), bytes);
    if (synced != Synced::Nothing) {
        sync(synced == Synced::OnlyContents ? place.temporary() : place.registry());
    }
    good = good && std::rename(place.temporary().c_str(), place.registry().c_str()) == 0;
    if (synced == Synced::OnlyNames) {
        sync(std::filesystem::path(place.registry()).parent_path());
    }
    prove::endPart();
    return good ? 0 : 1;
}

// An update that finds itself made by another writer, whose sync of the folder is still to come: it is refused, and
// that is as good as a success. The other one is gone as far as its commit, or it keeps the lock that tells.
int refused(const Scenario& scenario, const Place& place, bool told) {
    const std::string bytes = scenario.bytes(scenario.after(scenario.before, scenario.operation));
    const auto registry = scenario.schema->open(place.named(), scenario.features);
    prove::beginPart();
    bool good = prove::putBytes(place.temporary(), bytes);
    sync(place.temporary());
    good = good && std::rename(place.temporary().c_str(), place.registry().c_str()) == 0;
    const int other = ::open(place.registry().c_str(), O_RDONLY | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    good = good && (!told || (::fcntl(other, F_OFD_SETLK, &lock) == 0 && ::flock(other, LOCK_SH) == 0));
    const unsigned int rc = scenario.operation.perform(*registry);
    prove::endPart();
    return good && rc != 0 ? 0 : 1;
}

// Whether an append in place passes although what stood before it was hurt.
bool toleratesDamage(const Folder& folder) {
    for (const Scenario& scenario : prove::updates()) {
        if (!scenario.appendsInPlace() || !scenario.before.present) {
            continue;
        }
        const Place place(folder.file("damaged"), scenario);
        place.layOut();
        std::string bytes = scenario.bytes(scenario.after(scenario.before, scenario.operation));
        bytes[bytes.size() / 2] = '?';
        (void)prove::putBytes(place.registry(), bytes);
        Found found;
        if (judge(scenario, place, false, &found).empty()) {
            return true;
        }
    }
    return false;
}

// --- by rule -------------------------------------------------------------------------------------------------------

// The trees that were judged already, by fingerprint: they may be many and large.
using Judged = std::set<std::size_t>;

std::size_t fingerprint(const Tree& tree) {
    std::string text;
    for (const auto& [name, inode] : tree.names) {
        text += name + '/' + std::to_string(inode) + '\n';
    }
    for (const auto& [inode, content] : tree.contents) {
        text += std::to_string(inode) + '/' + std::to_string(std::hash<std::string>{}(content)) + '\n';
    }
    return std::hash<std::string>{}(text);
}

class ByRule {
public:
    ByRule(Cases& cases, const Folder& folder) : cases_(cases), live_(folder.file("live")), cut_(folder.file("cut")) {}

    // Yields how many trees were bad; they are failures unless it is a control.
    unsigned long run(const Scenario& scenario, const std::function<int(const Place&)>& body, bool forgetful,
                      bool control) {
        const Place place(live_, scenario);
        place.layOut();
        DiskModel model(live_, place.registry().substr(live_.size() + 1), forgetful);
        Judged judged;
        unsigned long bad = 0;
        unsigned long syncing = 0;
        const auto settle = [&] {
            model.look();
            if (syncing != 0) {
                model.synced(syncing);
                syncing = 0;
            }
        };
        prove::StepHooks hooks;
        hooks.entry = [&](pid_t child, const prove::SystemCall& call) {
            settle();
            bad += judgeAll(scenario, model, judged, "before call " + std::to_string(call.index), false, control);
            if (call.number == SYS_fsync || call.number == SYS_fdatasync) {
                struct stat status = {};
                const std::string path = "/proc/" + std::to_string(child) + "/fd/" + std::to_string(call.arguments[0]);
                syncing = ::stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
            }
            return prove::Verdict{};
        };
        hooks.end = [&](pid_t) {
            settle();
            judged.clear();  // what was right before the operation returned may not be any more
            bad += judgeAll(scenario, model, judged, "after it returned", true, control);
        };
        const prove::StepResult result = prove::step([&] { return body(place); }, hooks);
        (void)cases_.check(result.ended && result.exitCode == 0, scenario.name + ": the update itself failed");
        return bad;
    }

    [[nodiscard]] const Found& found() const noexcept { return found_; }

private:
    unsigned long judgeAll(const Scenario& scenario, const DiskModel& model, Judged& judged, const std::string& when,
                           bool returned, bool control) {
        unsigned long bad = 0;
        for (const Tree& tree : model.possible()) {
            if (!judged.insert(fingerprint(tree)).second) {
                continue;
            }
            // The tree is laid out where it was recorded, since links in it may name that place; the live one waits.
            const Place place(live_, scenario);
            std::filesystem::rename(live_, cut_);
            prove::layOut(live_, tree);
            Found found;
            const std::string wrong = judge(scenario, place, returned, control ? &found : &found_);
            std::filesystem::remove_all(live_);
            std::filesystem::rename(cut_, live_);
            bad += wrong.empty() ? 0U : 1U;
            if (!control) {
                (void)cases_.check(wrong.empty(), scenario.name + ", cut " + when + ": " + wrong);
            }
        }
        return bad;
    }

    Cases& cases_;
    const std::string live_;
    const std::string cut_;
    Found found_;
};

// A large copy is committed at once as a small one is.
bool repeats(const Scenario& scenario) {
    return scenario.large && (scenario.features & REG_FEATURE_DEFERRED_COMMIT) == 0;
}

void cutsByRule(Cases& cases) {
    if (!prove::canStep()) {
        cases.skip("cuts by rule", "this system lets no process trace another");
        return;
    }
    const Folder folder(true);
    ByRule rule(cases, folder);
    unsigned long tried = 0;
    const Scenario* control = nullptr;
    const std::vector<Scenario> all = prove::updates();
    for (const Scenario& scenario : all) {
        if (repeats(scenario) || (cases.quick() && !scenario.quick)) {
            continue;
        }
        (void)rule.run(
            scenario, [&](const Place& place) { return update(scenario, place); }, false, false);
        ++tried;
        control = scenario.appendsInPlace() ? control : &scenario;
    }
    (void)cases.check(control != nullptr, "no update that replaces the registry was tried");
    unsigned long refusals = 0;
    for (const Scenario& scenario : all) {
        if (scenario.before.present && (scenario.features & REG_FEATURE_ALLOW_DUPLICATES) == 0 && !repeats(scenario) &&
            (scenario.quick || !cases.quick())) {
            (void)rule.run(
                scenario, [&](const Place& place) { return refused(scenario, place, true); }, false, false);
            ++refusals;
            control = &scenario;
        }
    }
    (void)cases.check(refusals > 0, "no update was refused because of another's");
    if (control != nullptr) {
        const auto caught = [&](const char* what, const std::function<int(const Place&)>& body, bool forgetful) {
            const unsigned long bad = rule.run(*control, body, forgetful, true);
            (void)cases.check(bad > 0, std::string(what) + " was not caught");
            cases.note(std::string("control: of ") + what + " " + std::to_string(bad) + " trees were bad");
        };
        caught(
            "a disk that forgets its syncs", [&](const Place& place) { return update(*control, place); }, true);
        caught(
            "a refusal that no lock told what it is based on",
            [&](const Place& place) { return refused(*control, place, false); }, false);
        for (const auto& [synced, what] : CARELESS) {
            caught(
                what, [&, synced = synced](const Place& place) { return careless(*control, place, synced); }, false);
        }
    }
    (void)cases.check(!toleratesDamage(folder), "an append in place that hurts what stood before it passes");
    const Found& found = rule.found();
    cases.note("by rule, " + std::to_string(tried) + " updates: " + std::to_string(found.old) + " trees old, " +
               std::to_string(found.fresh) + " new, " + std::to_string(found.empty) + " empty where none was, " +
               std::to_string(found.parts) + " with part of an append in place");
}

// --- by trial ------------------------------------------------------------------------------------------------------

// What else goes on between the update's calls: nothing; everything is written back; or somebody else's sync commits
// all names, while contents that nobody synced wait in memory.
enum class Beside { Nothing, WriteBack, Bystander };

constexpr const char* BESIDE_TEXT[] = {"alone", "with write-back", "with a bystander's syncs"};

// As it comes, and with its own protection of renames off; the timer that commits by itself is out of the way.
constexpr const char* OPTIONS[] = {"commit=300", "commit=300,noauto_da_alloc"};

class ByTrial {
public:
    ByTrial(Cases& cases, const Folder& folder, std::string options)
        : cases_(cases),
          options_(std::move(options)),
          image_(folder.file("image"), folder.file("mounted")),
          cut_(folder.file("cut"), folder.file("cut-mounted")) {}

    // Yields how many cuts were bad; they are failures unless it is a control.
    unsigned long run(const Scenario& scenario, Beside beside, const std::function<int(const Place&)>& body,
                      bool control) {
        const Place place(image_.mountPoint() + "/place", scenario);
        const std::string label = scenario.name + ", " + BESIDE_TEXT[static_cast<int>(beside)] + ", " + options_;
        if (!image_.format() || !image_.mount(options_)) {
            (void)cases_.check(false, label + ": the image could not be made");
            return 0;
        }
        place.layOut();
        image_.writeBack();
        unsigned long bad = 0;
        Tree last;
        bool syncing = true;
        const auto cut = [&](const std::string& when, bool returned) {
            // Calls that neither changed a file nor synced one leave the medium as it was.
            Tree now = prove::lookAt(image_.mountPoint() + "/place");
            if (now == last && !syncing && !returned) {
                return;
            }
            last = std::move(now);
            if (beside == Beside::WriteBack) {
                image_.writeBack();
            } else if (beside == Beside::Bystander) {
                image_.bystander();
            }
            const std::string wrong = lookAtCut(scenario, image_.bytes(), returned);
            bad += wrong.empty() ? 0U : 1U;
            if (!control) {
                (void)cases_.check(wrong.empty(), label + ", cut " + when + ": " + wrong);
            }
        };
        prove::StepHooks hooks;
        hooks.entry = [&](pid_t, const prove::SystemCall& call) {
            cut("before call " + std::to_string(call.index) + " (" + prove::callName(call.number) + ")", false);
            syncing = call.number == SYS_fsync || call.number == SYS_fdatasync;
            return prove::Verdict{};
        };
        hooks.end = [&](pid_t) { cut("after it returned", true); };
        const prove::StepResult result = prove::step([&] { return body(place); }, hooks);
        (void)cases_.check(result.ended && result.exitCode == 0, label + ": the update itself failed");
        (void)cases_.check(image_.unmount(), label + ": the image could not be unmounted");
        return bad;
    }

    [[nodiscard]] const Found& found() const noexcept { return found_; }

private:
    std::string lookAtCut(const Scenario& scenario, const std::string& bytes, bool returned) {
        if (!cut_.put(bytes) || !cut_.mount(options_)) {
            return "the image cannot be mounted any more";
        }
        const Place place(cut_.mountPoint() + "/place", scenario);
        const std::string wrong = judge(scenario, place, returned, &found_);
        return cut_.unmount() ? wrong : "the copy could not be unmounted";
    }

    Cases& cases_;
    const std::string options_;
    DiskImage image_;
    DiskImage cut_;
    Found found_;
};

// What another schema of binary registry differs in are its bytes, not its calls; and links lead to where the image is
// mounted, which a copy is not.
bool triedOnImage(const Scenario& scenario, bool quick) {
    const bool oneOfTwo = scenario.schema == &prove::TEXT_SCHEMA || scenario.schema == &prove::BINARY_SCHEMA;
    const bool wanted = !quick || (scenario.quick && !scenario.missingDirectory);
    return oneOfTwo && !scenario.linked && !repeats(scenario) && wanted;
}

// Names that are committed before contents are what may hurt, and what tells the two kinds of mount apart. The rest is
// tried once for each kind of update.
bool triedBeside(const Scenario& scenario, Beside beside, const char* options, bool quick) {
    return beside == Beside::Bystander || (!quick && scenario.quick && options == OPTIONS[0]);
}

void cutsByTrial(Cases& cases) {
    const std::string missing =
        prove::canStep() ? DiskImage::whatIsMissing() : "this system lets no process trace another";
    if (!missing.empty()) {
        cases.skip("cuts of a real file system", missing);
        return;
    }
    if (!DiskImage::mountPrivately()) {
        cases.skip("cuts of a real file system", "the rig gets no mounts of its own");
        return;
    }
    const Folder folder(true);
    unsigned long caught = 0;
    Found found;
    for (const char* options : OPTIONS) {
        ByTrial trial(cases, folder, options);
        const Scenario* control = nullptr;
        const std::vector<Scenario> all = prove::updates();
        for (const Scenario& scenario : all) {
            if (!triedOnImage(scenario, cases.quick())) {
                continue;
            }
            for (const Beside beside : {Beside::Nothing, Beside::WriteBack, Beside::Bystander}) {
                if (triedBeside(scenario, beside, options, cases.quick())) {
                    (void)trial.run(
                        scenario, beside, [&](const Place& place) { return update(scenario, place); }, false);
                }
            }
            control = !scenario.appendsInPlace() && scenario.before.present ? &scenario : control;
        }
        found.old += trial.found().old;
        found.fresh += trial.found().fresh;
        found.empty += trial.found().empty;
        found.parts += trial.found().parts;
        if (control != nullptr) {
            caught += trial.run(
                *control, Beside::Bystander,
                [&](const Place& place) { return careless(*control, place, Synced::Nothing); }, true);
        }
    }
    (void)cases.check(caught > 0, "a careless writer was not caught");
    cases.note("control: a careless writer was caught at " + std::to_string(caught) + " cuts");
    cases.note("by trial: " + std::to_string(found.old) + " images old, " + std::to_string(found.fresh) + " new, " +
               std::to_string(found.empty) + " empty where none was, " + std::to_string(found.parts) +
               " with part of an append in place");
}

}  // namespace

int main(int argc, char** argv) {
    Cases cases("power_cuts", argc, argv);
    cases.expectAtLeast(cases.quick() ? 900 : 10'000);
    cutsByRule(cases);
    cutsByTrial(cases);
    return cases.finish();
}
