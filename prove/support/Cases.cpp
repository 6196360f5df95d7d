#include "prove/support/Cases.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace prove {
namespace {

constexpr unsigned long MOST_TOLD = 20;

}  // namespace

Cases::Cases(std::string name, int argc, char** argv)
    : name_(std::move(name)),
      argc_(argc),
      argv_(argv),
      out_(::fdopen(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), "w")) {
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (out_ == nullptr || nowhere == -1 || ::dup2(nowhere, STDOUT_FILENO) == -1) {
        std::perror("standard output");
        std::abort();
    }
    (void)::close(nowhere);
    // A first print makes system calls that later ones do not; this is it, and not one in the middle of an operation.
    (void)std::printf("\n");
    (void)std::fflush(stdout);
    (void)std::setvbuf(out_, nullptr, _IOLBF, BUFSIZ);
}

Cases::~Cases() {
    (void)std::fclose(out_);
}

bool Cases::has(const std::string& option) const {
    for (int i = 1; i < argc_; ++i) {
        if (option == argv_[i]) {
            return true;
        }
    }
    return false;
}

unsigned long Cases::seed() {
    if (!seedTold_) {
        seedTold_ = true;
        seed_ = static_cast<unsigned long>(std::chrono::system_clock::now().time_since_epoch().count()) % 1'000'000'000;
        for (int i = 1; i + 1 < argc_; ++i) {
            if (std::strcmp(argv_[i], "--seed") == 0) {
                seed_ = std::strtoul(argv_[i + 1], nullptr, 10);
            }
        }
        note("seed " + std::to_string(seed_) + " (--seed " + std::to_string(seed_) + " draws the same again)");
    }
    return seed_;
}

bool Cases::check(bool good, const std::string& what) {
    ++cases_;
    if (!good) {
        fail(what);
    }
    return good;
}

void Cases::fail(const std::string& what) {
    ++failed_;
    if (controlling()) {
        convinced_ = convinced_ || what.find(*words_) != std::string::npos;
    } else if (failed_ <= MOST_TOLD) {
        (void)std::fprintf(out_, "%s: FAILED: %s\n", name_.c_str(), what.c_str());
    }
}

void Cases::add(unsigned long cases, unsigned long failed) noexcept {
    cases_ += cases;
    failed_ += failed;
}

void Cases::skip(const std::string& what, const std::string& reason) {
    skipped_ = true;
    (void)std::fprintf(out_, "%s: skipped: %s: %s\n", name_.c_str(), what.c_str(), reason.c_str());
}

void Cases::note(const std::string& text) {
    (void)std::fprintf(out_, "%s: %s\n", name_.c_str(), text.c_str());
}

void Cases::control(const std::string& words, const std::function<void()>& show) {
    const unsigned long cases = cases_;
    const unsigned long failed = failed_;
    words_ = &words;
    convinced_ = false;
    show();
    words_ = nullptr;
    ++controls_;
    if (!convinced_ || failed_ == failed) {
        blind_ = true;
        note("FAILED: control: nobody finds: " + words);
    }
    cases_ = cases;
    failed_ = failed;
}

int Cases::finish() {
    const bool enough = cases_ >= least_ || (skipped_ && cases_ > 0);
    if (!enough) {
        note("FAILED: fewer cases than the " + std::to_string(least_) + " that there are at least");
    }
    if (controls_ > 0) {
        note(std::to_string(controls_) + " controls");
    }
    (void)std::fprintf(out_, "RIG %s %lu %lu\n", name_.c_str(), cases_, failed_);
    (void)std::fflush(out_);
    return failed_ == 0 && enough && !blind_ ? 0 : 1;
}

std::string hex(unsigned int code) {
    char text[16];
    (void)std::snprintf(text, sizeof text, "0x%08x", code);
    return text;
}

}  // namespace prove
