// What a rig needs to know.
//
// A rig is a program, rig_<name>.cpp, that stands outside: it asks the library as a client does, through the shared
// library, or runs the built tool (then its name ends in _tool). It says what it tried in its last line, "RIG <name>
// <cases> <failed>", and exits with 0 only where nothing failed. CTest runs it with --quick, a part that takes seconds;
// run.sh runs all of it, on the release build.
//
//   int main(int argc, char** argv) {
//       prove::Rig rig{"kill_sweep", argc, argv};
//       rig.expectAtLeast(1'000, 10'000);
//       rig.control("the old contents are lost", [&] { ... });
//       ...
//       return rig.finish();
//   }
//
// - It is judged by itself: what stands in a file, what a file must hold, which locks are held. None of that is asked
//   of the library, and bytes are laid out here, apart from its code (SchemaFace, Place, Folder).
// - It shows its checkers what they must find fault with (control), and says how many cases there are at least.
// - What cannot be tried here is skipped with its reason: no root, no mounts, no tracing. Nothing is left out silently.
// - What it leaves behind is nothing: its files lie in scratch(), or in a Folder.
//
// Rig is for those that try every scenario (Scenarios): cases that have a name and may fail in several ways. Options:
// --quick, --verbose for a line per scenario, --only TEXT for the scenarios whose name holds the text. A rig with
// tables of its own counts with Cases, single checks. To put a fault into an operation: Stepper (a system call),
// standin/ (the platform's libraries); Aftermath looks at what is left then, Blame at what was told.
#pragma once

#include <functional>
#include <string>

#include "Cases.h"

namespace prove {

class Rig {
public:
    // Leaves the program with 2 when an option is not known.
    Rig(const std::string& name, int argc, char** argv);
    ~Rig();
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    [[nodiscard]] bool quick() const { return cases_.quick(); }
    [[nodiscard]] bool wants(const std::string& scenario) const { return scenario.find(only_) != std::string::npos; }

    // A scratch directory, empty at first, on a file system in memory where there is one: what these rigs try does not
    // depend on the medium. TMPDIR overrides it. Removed at the end.
    [[nodiscard]] const std::string& scratch() const { return scratch_; }

    // Begins a case; the failures that follow belong to it and count once.
    void begin(std::string name);
    // Notes what is wrong with the case that was begun last.
    void fail(const std::string& what);
    // fail() unless it holds.
    bool check(bool holds, const std::string& what);

    // A line about a scenario, printed with --verbose.
    void tell(const std::string& line);
    // Something that is counted but is no case: how often an exception was met, say.
    void remark(const std::string& line) { cases_.note(line); }

    // What could not be tried here, and why.
    void skip(const std::string& what, const std::string& reason) { cases_.skip(what, reason); }

    // See Cases. With --only there is no least number.
    void control(const std::string& words, const std::function<void()>& show) { cases_.control(words, show); }
    [[nodiscard]] bool convinced() const { return cases_.convinced(); }
    void expectAtLeast(unsigned long quick, unsigned long whole);

    [[nodiscard]] unsigned long failed() const { return cases_.failed(); }

    [[nodiscard]] int finish() { return cases_.finish(); }

private:
    Cases cases_;
    std::string scratch_;
    std::string only_;
    std::string case_;
    bool verbose_ = false;
    bool caseFailed_ = false;
};

// "0x900001bf REG_OPEN_FILE_FAILED".
std::string codeText(unsigned int code);

}  // namespace prove
