// Runs a piece of code in a child process, stopped at each system call that it makes, so that a rig can look at the
// world between any two of them, end the child at one or make one fail. Linux; failing calls on x86-64 only.
//
// The child says which part counts: beginPart() and endPart() around it. Calls outside run undisturbed,
// and so do those that only move memory: they touch nothing that outlives the child.
#pragma once

#include <sys/types.h>

#include <array>
#include <functional>
#include <string>

namespace prove {

struct SystemCall {
    std::size_t index;  // from 0, in the order in which the part makes them
    long number;        // SYS_*
    std::array<unsigned long, 6> arguments;
};

// What is to become of a call at which the child stands.
struct Verdict {
    enum class Kind { Pass, Kill, Fail };

    Kind kind = Kind::Pass;
    int error = 0;  // Fail: the errno. The call is not carried out, except a close: that one is, as the system does it.
};

struct StepHooks {
    // At the entry of each call.
    std::function<Verdict(pid_t child, const SystemCall& call)> entry;
    // After endPart(), with the child stopped there.
    std::function<void(pid_t child)> end = [](pid_t) {};
};

struct StepResult {
    std::size_t calls = 0;  // seen in the part
    bool killed = false;    // by Verdict::Kind::Kill
    bool ended = false;     // the part came to its end
    int exitCode = -1;      // of the child; -1 when it did not exit by itself
};

// Whether this system can run steps at all; the errors of calls want canFailCalls() too.
bool canStep();
bool canFailCalls();

void beginPart();
void endPart();

// The body's result is the child's exit code.
StepResult step(const std::function<int()>& body, const StepHooks& hooks);

// "openat", "fcntl"; a number where the name is not known.
std::string callName(long number);
// What a descriptor of the child stands for: a path, or "".
std::string descriptorPath(pid_t child, unsigned long descriptor);
// Whether the call takes or gives back a lock that belongs to an open file, and whether it gives it back.
bool isLocking(const SystemCall& call);
bool isUnlocking(pid_t child, const SystemCall& call);
// Whether every signal that a process can make wait does so in the child now: none interrupts its call.
bool allSignalsWait(pid_t child);
// What stands in its memory: a text, and a word.
std::string textAt(pid_t child, unsigned long address);
unsigned long wordAt(pid_t child, unsigned long address);

}  // namespace prove
