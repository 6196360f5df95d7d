// The tool's repair of a damaged registry: killed at each of its system calls it leaves the damaged file or the
// repaired one, whole, and the damaged one somewhere in any case; and in the places where a registry is hard to update
// it does as every update does there, and the tool's check has foreseen it.
//
// What takes root, or mounts of its own, is skipped where there is none, with the reason.
#include <genreg/Codes.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "prove/support/AwkwardPlaces.h"
#include "prove/support/Cases.h"
#include "prove/support/DiskImage.h"
#include "prove/support/Folder.h"
#include "prove/support/Place.h"
#include "prove/support/Stepper.h"
#include "prove/support/ToolRun.h"
#include "tests/support/BuiltTool.h"
#include "tests/support/Ways.h"

namespace {

using prove::AwkwardPlace;
using prove::bytesOf;
using prove::Cases;
using prove::Folder;
using prove::ToolRun;

constexpr int UNREADABLE = 3;
constexpr int WRITE_FAILED = 8;

const std::string KEPT = "settings.damaged-";
const std::string JUNK = "JUNK!!!";

std::string little(unsigned long value, unsigned int size) {
    std::string bytes;
    for (; size > 0; --size, value >>= 8U) {
        bytes += static_cast<char>(value & 0xffU);
    }
    return bytes;
}

std::string text(const std::string& characters) {
    return little(characters.size() + 1, 2) + characters + '\0';
}

// A setting of the global registry, in its frame.
std::string setting(const std::string& name) {
    const std::string image =
        little(4, 4) + little(0x7, 8) + little(0, 8) + text("svc") + text(name) + text("1") + little(0, 4);
    return little(image.size(), 4) + image;
}

const std::string SOUND = setting("alpha") + setting("beta");
const std::string DAMAGED = setting("alpha") + JUNK + setting("beta");

class Repairs {
public:
    explicit Repairs(Cases& cases) : cases_(cases), folder_(false), path_(folder_.file("settings")) {}

    void controls() {
        const auto show = [&](const char* words, const std::function<void()>& harm) {
            cases_.control(words, [&] {
                layOut();
                harm();
                judge("control");
            });
        };
        show("neither the damaged nor the repaired", [&] { (void)prove::putBytes(path_, SOUND + "x"); });
        show("neither the damaged nor the repaired", [&] { (void)::remove(path_.c_str()); });
        show("the damaged file is gone", [&] { (void)prove::putBytes(path_, SOUND); });
        show("is not what was damaged", [&] { (void)prove::putBytes(folder_.file(KEPT + "x"), SOUND); });
        show("left strange", [&] { (void)prove::putBytes(folder_.file("strange"), ""); });
        AwkwardPlace easy = {"an easy place"};
        easy.causes = {1};
        cases_.control("exit 0", [&] { (void)tryPlace(easy); });
        cases_.control("was not foreseen", [&] { (void)tryPlace(easy); });
        AwkwardPlace hard = prove::lockedPlace();
        hard.causes.clear();
        cases_.control("was not repaired", [&] { (void)tryPlace(hard); });
        cases_.control("sees what is not there", [&] { (void)tryPlace(hard); });
    }

    void killEverywhere() {
        std::size_t calls = 1;
        std::size_t repaired = 0;
        for (std::size_t n = 0; n < calls; ++n) {
            layOut();
            std::string name;
            const prove::StepResult result = stepped([&](const prove::SystemCall& call) {
                name = call.index == n ? prove::callName(call.number) : name;
                return call.index == n;
            });
            const std::string what = "killed at call " + std::to_string(n) + " (" + name + ")";
            if (result.killed) {
                calls = n + 2;
                judge(what);
                repaired += bytesOf(path_) == SOUND ? 1 : 0;
                (void)cases_.check(prove::isFree(prove::Companions(path_).lock, prove::Claim::Exclusive),
                                   what + ": the lock is not free");
            } else {
                (void)cases_.check(result.exitCode == 0, "not killed: exit " + std::to_string(result.exitCode));
            }
            const ToolRun again = genreg({"-q", "repair", "-y", path_});
            (void)cases_.check(again.status == 0 && bytesOf(path_) == SOUND, what + ", then again: " + again.err);
            judge(what + ", then again");
        }
        cases_.note(std::to_string(calls) + " calls; repaired already at " + std::to_string(repaired) +
                    " of the deaths");
        (void)cases_.check(repaired > 0 && repaired + 1 < calls, "not both outcomes were met");
    }

    // False when the place cannot be made here.
    bool tryPlace(const AwkwardPlace& place) {
        layOut();
        if (const std::string lacking = place.prepare(path_); !lacking.empty()) {
            place.mend(path_);
            prove::leaveAwkwardPlace(folder_.path());
            cases_.skip(place.name, lacking);
            return false;
        }
        const auto inside = [&] { place.inside(path_); };
        const std::string access = prove::accessOf(path_);
        foresee(place, genreg({"--json", "check", "--deep", path_}, inside));
        const ToolRun run = genreg({"--json", "repair", "-y", path_}, inside);
        if (place.causes.empty()) {
            (void)cases_.check(run.status == (place.silent ? WRITE_FAILED : 0) && bytesOf(path_) == SOUND,
                               place.name + ": was not repaired, exit " + std::to_string(run.status) + ": " + run.err);
        } else {
            const int status = run.status == UNREADABLE ? UNREADABLE : WRITE_FAILED;
            const std::string wrong = prove::wrongWithJson(run, path_, {status, "", ""});
            (void)cases_.check(wrong.empty(), place.name + ": " + wrong);
            (void)cases_.check(bytesOf(path_) == DAMAGED && keptFiles() == 0 && !bytesOf(path_ + ".tmp"),
                               place.name + ": something was done");
        }
        (void)cases_.check(prove::accessOf(path_) == access, place.name + ": mode or owner are not what they were");
        judge(place.name);
        place.mend(path_);
        const ToolRun again = genreg({"-q", "repair", "-y", path_});
        (void)cases_.check(again.status == 0 && bytesOf(path_) == SOUND, place.name + ", once mended: " + again.err);
        judge(place.name + ", once mended");
        prove::leaveAwkwardPlace(folder_.path());
        return true;
    }

private:
    static ToolRun genreg(
        const prove::Words& words, const std::function<void()>& inside = [] {}) {
        return prove::runTool(BUILT_TOOL, words, inside);
    }

    // The tool, stopped at each of its calls; at which of them it is killed.
    prove::StepResult stepped(const std::function<bool(const prove::SystemCall&)>& killed) {
        prove::StepHooks hooks;
        hooks.entry = [&](pid_t, const prove::SystemCall& call) {
            return prove::Verdict{killed(call) ? prove::Verdict::Kind::Kill : prove::Verdict::Kind::Pass};
        };
        return prove::step(
            [&] {
                prove::beginPart();
                return ::execl(BUILT_TOOL.c_str(), "genreg", "-q", "repair", "-y", path_.c_str(), nullptr);
            },
            hooks);
    }

    void layOut() {
        folder_.empty();
        (void)::chmod(folder_.path().c_str(), 0755);
        (void)prove::putBytes(path_, SOUND);
        (void)genreg({"--registry", path_, "variable", "set", "svc", "gamma", "value=1"});  // which makes the lock file
        (void)prove::putBytes(path_, DAMAGED);
    }

    [[nodiscard]] unsigned long keptFiles() const {
        const auto names = prove::namesIn(folder_.path());
        return static_cast<unsigned long>(
            std::count_if(names.begin(), names.end(), [](const auto& name) { return name.starts_with(KEPT); }));
    }

    // What holds at any moment, of what stands in the folder.
    void judge(const std::string& what) {
        static const std::set<std::string> KNOWN = {"settings",     ".settings.lock", ".settings.bkp", "settings.tmp",
                                                    "settings.cor", "victim",         "filler"};
        const auto bytes = bytesOf(path_);
        (void)cases_.check(bytes == DAMAGED || bytes == SOUND, what + ": neither the damaged nor the repaired file");
        (void)cases_.check(bytes == DAMAGED || keptFiles() > 0, what + ": the damaged file is gone");
        for (const std::string& name : prove::namesIn(folder_.path())) {
            if (name.starts_with(KEPT)) {
                (void)cases_.check(bytesOf(folder_.file(name)) == DAMAGED,
                                   what + ": " + name + " is not what was damaged");
            } else {
                (void)cases_.check(KNOWN.count(name) != 0, what + ": left strange " + name);
            }
        }
    }

    // What the check tells of the place, besides the damage that it sees.
    void foresee(const AwkwardPlace& place, const ToolRun& run) {
        if (place.silent) {
            return;
        }
        (void)cases_.check(run.status == 7,
                           place.name + ", check: exit " + std::to_string(run.status) + ": " + run.err);
        std::size_t errors = 0;
        const std::string error = "\"severity\":\"error\",\"kind\":\"";
        for (std::size_t at = 0; (at = run.out.find(error, at)) != std::string::npos; at += error.size()) {
            errors += run.out.compare(at + error.size(), 7, "damage\"") != 0 ? 1 : 0;
        }
        const bool foreseeable = !place.causes.empty() && (!place.hidden || WAYS != "portable");
        (void)cases_.check(!foreseeable || errors > 0, place.name + ": was not foreseen, " + run.out);
        (void)cases_.check(!place.causes.empty() || errors == 0,
                           place.name + ": check sees what is not there, " + run.out);
        judge(place.name + ", check");
        (void)cases_.check(bytesOf(path_) == DAMAGED && keptFiles() == 0, place.name + ": the check did something");
    }

    Cases& cases_;
    const Folder folder_;
    const std::string path_;
};

AwkwardPlace readOnlyMount(bool ownMounts) {
    AwkwardPlace place = {"a read-only mount"};
    place.prepare = [ownMounts](const std::string& path) -> std::string {
        const std::string folder = prove::folderOf(path);
        if (!ownMounts || ::mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
            ::mount(nullptr, folder.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
            return "the rig gets no mounts of its own";
        }
        return "";
    };
    place.mend = [](const std::string& path) { (void)::umount(prove::folderOf(path).c_str()); };
    place.causes = {REG_OPEN_LOCK_FAILED};
    return place;
}

}  // namespace

int main(int argc, char** argv) {
    Cases cases("repair_tool", argc, argv);
    const bool ownMounts = prove::DiskImage::mountPrivately();
    cases.expectAtLeast(1'500);
    Repairs rig(cases);
    rig.controls();
    const bool nobodyRuns = ::geteuid() != 0 || prove::runTool(BUILT_TOOL, {"--help"}, prove::becomeNobody).status == 0;
    std::vector<AwkwardPlace> places = prove::awkwardPlaces(ownMounts);
    places.push_back(readOnlyMount(ownMounts));
    for (const AwkwardPlace& place : places) {
        if (place.asNobody && !nobodyRuns) {
            cases.skip(place.name, "another user cannot run the tool where it was built");
        } else {
            (void)rig.tryPlace(place);
        }
    }
    if (prove::canStep()) {
        rig.killEverywhere();
    } else {
        cases.skip("sudden death", "this system lets no process trace its child");
    }
    return cases.finish();
}
