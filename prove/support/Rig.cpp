#include "Rig.h"

#include <fcntl.h>
#include <genreg/Codes.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace prove {
namespace {

constexpr unsigned long MOST_FAILURES_PRINTED = 40;

std::string makeScratch(const std::string& name) {
    const char* const given = std::getenv("TMPDIR");
    const char* const memory = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    std::string pattern = std::string(given != nullptr ? given : memory) + "/prove-" + name + "-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::perror(pattern.c_str());
        std::exit(2);
    }
    return pattern;
}

// The standard output, for whoever holds the stream; all others now write to nowhere.
std::FILE* takeStandardOutput() {
    (void)std::fflush(stdout);
    std::FILE* const output = ::fdopen(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), "w");
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    (void)::dup2(nowhere, STDOUT_FILENO);
    (void)::close(nowhere);
    // A first print makes system calls that later ones do not; this is it, and not one in the middle of an operation.
    (void)std::printf("\n");
    (void)std::fflush(stdout);
    return output;
}

}  // namespace

Rig::Rig(std::string name, int argc, char** argv) : name_(std::move(name)) {
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--quick") {
            quick_ = true;
        } else if (option == "--verbose") {
            verbose_ = true;
        } else if (option == "--only" && i + 1 < argc) {
            only_ = argv[++i];
        } else {
            (void)std::fprintf(stderr, "usage: rig_%s [--quick] [--verbose] [--only TEXT]\n", name_.c_str());
            std::exit(2);
        }
    }
    scratch_ = makeScratch(name_);
    output_ = takeStandardOutput();
}

Rig::~Rig() {
    std::error_code ignored;
    std::filesystem::remove_all(scratch_, ignored);
    (void)std::fclose(output_);
}

void Rig::begin(std::string name) {
    case_ = std::move(name);
    caseFailed_ = false;
    ++cases_;
}

void Rig::fail(const std::string& what) {
    if (!caseFailed_) {
        caseFailed_ = true;
        ++failed_;
    }
    if (verbose_ || failed_ <= MOST_FAILURES_PRINTED) {
        (void)std::fprintf(stderr, "%s: %s\n", case_.c_str(), what.c_str());
    }
}

bool Rig::check(bool holds, const std::string& what) {
    if (!holds) {
        fail(what);
    }
    return holds;
}

void Rig::tell(const std::string& line) const {
    if (verbose_) {
        (void)std::fprintf(output_, "%s\n", line.c_str());
    }
}

void Rig::remark(const std::string& line) {
    remarks_ += line + "\n";
}

int Rig::finish() {
    (void)std::fprintf(output_, "%s", remarks_.c_str());
    (void)std::fprintf(output_, "RIG %s %lu %lu\n", name_.c_str(), cases_, failed_);
    (void)std::fflush(output_);
    return failed_ == 0 && cases_ > 0 ? 0 : 1;
}

std::string codeText(unsigned int code) {
    std::array<char, 16> number{};
    (void)std::snprintf(number.data(), number.size(), "0x%08x ", code);
    return number.data() + std::string(genregCodeName(code));
}

}  // namespace prove
