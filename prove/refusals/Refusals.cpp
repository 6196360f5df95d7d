#include "prove/refusals/Refusals.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "prove/support/Place.h"

namespace prove {

Refusals::Refusals(Rig& rig) : rig_(rig), file_(rig.scratch() + "/reg") {
    const char* const given = std::getenv("RVN_DIAG_LOG");
    log_ = given != nullptr ? given : rig.scratch() + "/log";
    (void)::setenv("RVN_DIAG_LOG", log_.c_str(), 1);
    (void)::setenv("RVN_GLOBAL_REG_PATHNAME", file_.c_str(), 1);
}

void Refusals::lay(const std::string& bytes) const {
    std::ofstream(file_, std::ios::binary) << bytes;
}

std::string Refusals::logged() const {
    return bytesOf(log_).value_or("");
}

bool Refusals::tells(const Point& point, std::size_t since) const {
    char code[32];
    char probe[32];
    (void)std::snprintf(code, sizeof code, " code=0x%08x", point.code);
    (void)std::snprintf(probe, sizeof probe, " probe=%u", point.probe);
    const std::string text = logged();
    for (std::size_t at = since; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::string line = text.substr(at, end - at);
        const bool ends = line.ends_with(probe) || line.find(std::string(probe) + " ") != std::string::npos;
        if (ends && line.find(code) != std::string::npos &&
            line.find(" " + std::string(point.function) + "(0x") != std::string::npos) {
            return true;
        }
        at = end + 1;
    }
    return false;
}

void Refusals::expect(const Point& point, unsigned int answer, const std::function<unsigned int()>& provoke) {
    rig_.begin(std::string(point.function) + " " + std::to_string(point.probe) + " " + genregCodeName(point.code));
    const std::size_t since = logged().size();
    const unsigned int rc = provoke();
    rig_.check(rc == answer, "answers " + codeText(rc));
    rig_.check(tells(point, since), "the log does not tell of it");
}

void Refusals::expectOnce(const Point& point, PlatformCall call, const std::function<unsigned int()>& provoke) {
    rig_.begin(std::string(point.function) + " " + std::to_string(point.probe) + " " + genregCodeName(point.code));
    const std::size_t since = logged().size();
    for (long n = 0;; ++n) {
        const Refusal refusal(call, n);
        (void)provoke();
        if (refusal.calls() <= n) {
            break;
        }
    }
    rig_.check(tells(point, since), "the log does not tell of it");
}

unsigned int Refusals::inChild(const std::function<Verdict(pid_t, const SystemCall&)>& entry,
                               const std::function<unsigned int()>& provoke, int* exitCode) {
    StepHooks hooks;
    hooks.entry = entry;
    unsigned int* const rc = shared_;
    const StepResult result = step(
        [&] {
            beginPart();
            *rc = provoke();
            endPart();
            return 0;
        },
        hooks);
    *exitCode = result.exitCode;
    return *rc;
}

void Refusals::expectFailing(const Point& point, unsigned int answer, int error, const Picks& picks,
                             const std::function<unsigned int()>& provoke) {
    expect(point, answer, [&] {
        bool failed = false;
        int exitCode = 0;
        const unsigned int rc = inChild(
            [&](pid_t child, const SystemCall& call) {
                const bool fails = !failed && picks(child, call);
                failed = failed || fails;
                return fails ? Verdict{Verdict::Kind::Fail, error} : Verdict{};
            },
            provoke, &exitCode);
        rig_.check(failed && exitCode == 0, "the call was not made, or the child died");
        return rc;
    });
}

void Refusals::expectWatched(const Point& point, unsigned int answer, const Picks& sees,
                             const std::function<unsigned int()>& provoke) {
    expect(point, answer, [&] {
        int exitCode = 0;
        const unsigned int rc = inChild(
            [&](pid_t child, const SystemCall& call) {
                (void)sees(child, call);
                return Verdict{};
            },
            provoke, &exitCode);
        rig_.check(exitCode == 0, "the child died");
        return rc;
    });
}

void blind(std::FILE* stream) {
    const int unreadable = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    (void)::dup2(unreadable, ::fileno(stream));
    (void)::close(unreadable);
}

Refusals::Picks Refusals::isOn(long number, const std::string& target) {
    return [number, target](pid_t child, const SystemCall& call) {
        return call.number == number && descriptorPath(child, call.arguments[0]) == target;
    };
}

// A point of failure as it is, with one part of what is expected of it wrong.
void Refusals::controls() {
    const auto provoke = [] { return ExtractNextField(nullptr, nullptr); };
    const Point wrong[] = {{"StripWhiteSpace", 10, REG_INVALID_ARGUMENT},
                           {"ExtractNextField", 1, REG_INVALID_ARGUMENT},
                           {"ExtractNextField", 10, REG_EMPTY_ARGUMENT}};
    for (const Point& point : wrong) {
        rig_.control("the log does not tell of it", [&] { expect(point, REG_INVALID_ARGUMENT, provoke); });
    }
    rig_.control("answers 0x", [&] { expect({"ExtractNextField", 10, REG_INVALID_ARGUMENT}, 0, provoke); });
    rig_.control("the log does not tell of it", [&] {
        expectOnce({"GenRegWriteLine", 20, REG_NO_WORK_BUFFER}, PlatformCall::Free, [] { return 0U; });
    });
}

}  // namespace prove
