// What a rig counts, and how it tells: each failure in a sentence (the first twenty), each part that could not be tried
// with its reason, figures worth knowing, and as its last line "RIG <name> <cases> <failed>".
//
// A rig that finds nothing may have looked at nothing. So each shows its checkers, as controls, what they must find
// fault with, and says how many cases it counts at least.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

namespace prove {

class Cases {
public:
    // Takes --quick, --seed N and --NAME for each further switch that the rig asks for with `has`. The standard output
    // of the process goes nowhere from here on (the library prints into it); the rig's own words go where it went
    // before.
    Cases(std::string name, int argc, char** argv);
    ~Cases();
    Cases(const Cases&) = delete;
    Cases& operator=(const Cases&) = delete;

    [[nodiscard]] bool quick() const { return has("--quick"); }
    [[nodiscard]] bool has(const std::string& option) const;
    // As given, else by the clock; printed by the first call.
    [[nodiscard]] unsigned long seed();

    // Counts a case; a bad one is told. Yields `good`.
    bool check(bool good, const std::string& what);
    // Counts a failure of a case that is counted already, and tells it.
    void fail(const std::string& what);
    // Counts cases that were judged elsewhere.
    void add(unsigned long cases, unsigned long failed) noexcept;
    // What could not be tried here, and why.
    void skip(const std::string& what, const std::string& reason);
    // A figure or a fact for the reader.
    void note(const std::string& text);
    [[nodiscard]] unsigned long counted() const noexcept { return cases_; }
    [[nodiscard]] unsigned long failed() const noexcept { return failed_; }

    // Shows the checkers something bad. They must find fault with it, in these words; that they do is neither counted
    // nor told. Where they do not, the rig is blind and has failed, whatever else it found.
    void control(const std::string& words, const std::function<void()>& show);
    // Within a control.
    [[nodiscard]] bool controlling() const noexcept { return words_ != nullptr; }
    [[nodiscard]] bool convinced() const noexcept { return convinced_; }

    // How many cases there are at least; not where parts were skipped.
    void expectAtLeast(unsigned long cases) noexcept { least_ = cases; }

    // Prints the last line; yields the exit code.
    [[nodiscard]] int finish();

private:
    std::string name_;
    int argc_;
    char** argv_;
    std::FILE* out_;
    bool seedTold_ = false;
    unsigned long seed_ = 0;
    unsigned long cases_ = 0;
    unsigned long failed_ = 0;
    unsigned long least_ = 1;
    unsigned long controls_ = 0;
    bool skipped_ = false;
    bool blind_ = false;
    const std::string* words_ = nullptr;  // that the control in hand waits for
    bool convinced_ = false;
};

// A code as people write it.
[[nodiscard]] std::string hex(unsigned int code);

}  // namespace prove
