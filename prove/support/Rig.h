// What every proof rig shares: its options, its count of cases, a directory of its own.
//
//   int main(int argc, char** argv) {
//       prove::Rig rig{"kill_sweep", argc, argv};
//       ...
//       return rig.finish();
//   }
//
// The library prints a line on the standard output at some updates; while a rig lives that goes nowhere, and what the
// rig itself has to say still gets out.
//
// Options: --quick for the part that takes seconds, --verbose for a line per scenario, --only TEXT for the scenarios
// whose name holds the text. Output ends with the line "RIG <name> <cases> <failed>".
#pragma once

#include <cstdio>
#include <string>

namespace prove {

class Rig {
public:
    // Leaves the program with 2 when an option is not known.
    Rig(std::string name, int argc, char** argv);
    ~Rig();
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    [[nodiscard]] bool quick() const { return quick_; }
    [[nodiscard]] bool wants(const std::string& scenario) const { return scenario.find(only_) != std::string::npos; }

    // A scratch directory, empty at first, on a file system in memory where there is one: what these rigs try does not
    // depend on the medium. TMPDIR overrides it. Removed at the end.
    [[nodiscard]] const std::string& scratch() const { return scratch_; }

    // Begins a case; the failures that follow belong to it and count once.
    void begin(std::string name);
    // Notes what is wrong with the case that was begun last; the first few are printed, with --verbose all.
    void fail(const std::string& what);
    // fail() unless it holds.
    bool check(bool holds, const std::string& what);

    // A line about a scenario, printed with --verbose.
    void tell(const std::string& line) const;
    // Something that is counted but is no case: how often an exception was met, say. Printed at the end.
    void remark(const std::string& line);

    [[nodiscard]] unsigned long cases() const { return cases_; }
    [[nodiscard]] unsigned long failed() const { return failed_; }

    // Prints the totals; 0 when every case passed and there was one.
    [[nodiscard]] int finish();

private:
    std::string name_;
    std::string scratch_;
    std::string only_;
    std::string case_;
    std::string remarks_;
    std::FILE* output_;
    bool quick_ = false;
    bool verbose_ = false;
    bool caseFailed_ = false;
    unsigned long cases_ = 0;
    unsigned long failed_ = 0;
};

// "0x900001bf REG_OPEN_FILE_FAILED".
std::string codeText(unsigned int code);

}  // namespace prove
