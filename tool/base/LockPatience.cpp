#include "base/LockPatience.h"

#include <fmt/core.h>
#include <genreg/LockStatus.h>

#include <ctime>
#include <set>

#include "base/HeldLocks.h"
#include "base/Progress.h"
#include "base/Text.h"
#include "base/Update.h"
#include "system/System.h"

namespace tool {
namespace {

constexpr double MILLISECONDS = 1000;

Context* waiting = nullptr;
bool told = false;

double seconds() {
    return waiting != nullptr ? waiting->options.waitSeconds : Options().waitSeconds;
}

std::string holderOf(const std::string& file) {
    GenRegLockNote note{};
    (void)genregLockStatus(file.c_str(), &note);
    if (note.pid == 0) {
        return "another process, which left no note";
    }
    const std::string process = fmt::format("pid {} ({})", note.pid, printable(note.program));
    return note.since == 0
               ? process
               : fmt::format("{} for {}", process, duration(static_cast<long long>(std::time(nullptr)) - note.since));
}

// Somebody who ends the tool instead of waiting is told that the file is as it was, if it is.
void prepareForInterrupt(const std::string& path) {
    if (waiting == nullptr || waiting->output.style.quiet || (!told && (waiting->uses & USES_DRY_RUN) == 0)) {
        return;
    }
    tellOnInterrupt(path,
                    fmt::format("{}{}", progressEraser(),
                                waiting->output.noteText("interrupted", path, "interrupted; the file is as it was")));
}

void tell(void* path, const char* file, unsigned long waitedMilliseconds) {
    if (told) {
        prepareForInterrupt(*static_cast<const std::string*>(path));  // as its holder may have left it
    }
    if (told || waiting == nullptr || static_cast<double>(waitedMilliseconds) < MILLISECONDS) {
        return;
    }
    told = true;
    waiting->output.note("waiting", *static_cast<const std::string*>(path),
                         fmt::format("locked by {}; waiting up to {:g} s", holderOf(file), seconds()));
    prepareForInterrupt(*static_cast<const std::string*>(path));
}

}  // namespace

void setPatience(Context& context) {
    waiting = &context;
}

void waitPatiently(GenRegFile& object, const std::string& path) {
    static std::set<std::string> paths;  // as long as any object may wait
    auto* const named = const_cast<std::string*>(&*paths.insert(path).first);
    object.SetLockWait(static_cast<long>(seconds() * MILLISECONDS), tell, named);
    if (const auto held = heldLockOf(object)) {
        (void)object.BorrowLock(&*held);
    }
    prepareForInterrupt(path);
}

void tellHolder(Failure& failure, bool ofRegistryItself) {
    RegistryFile file(failure.path);
    if (const auto held = ofRegistryItself ? std::nullopt : heldLockOf(file); held && held->kind == REG_LOCK_SHARED) {
        failure.message = fmt::format(
            "{}: this command runs under a shared lock (genreg lock run --shared), and may read the file, not write it",
            printable(failure.path));
        failure.hint = "genreg lock run, without --shared";
        return;
    }
    const std::string holder = holderOf(ofRegistryItself ? file.registryPath() : file.lockFilePath());
    const double waited = seconds();
    failure.message =
        fmt::format("{} is {}locked by {}; {}", printable(failure.path), ofRegistryItself ? "itself " : "", holder,
                    waited > 0 ? fmt::format("gave up after {:g} s", waited) : "did not wait");
    const std::string look = ofRegistryItself ? "fuser -v" : "genreg lock status";
    failure.hint = fmt::format("{} {}, or --wait 60", look, shellWord(failure.path));
}

}  // namespace tool
