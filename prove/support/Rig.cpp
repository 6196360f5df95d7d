#include "Rig.h"

#include <genreg/Codes.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <utility>

namespace prove {
namespace {

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

}  // namespace

Rig::Rig(const std::string& name, int argc, char** argv) : cases_(name, argc, argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--verbose") {
            verbose_ = true;
        } else if (option == "--only" && i + 1 < argc) {
            only_ = argv[++i];
        } else if (option != "--quick") {
            (void)std::fprintf(stderr, "usage: rig_%s [--quick] [--verbose] [--only TEXT]\n", name.c_str());
            std::exit(2);
        }
    }
    scratch_ = makeScratch(name);
}

Rig::~Rig() {
    std::error_code ignored;
    std::filesystem::remove_all(scratch_, ignored);
}

void Rig::begin(std::string name) {
    case_ = std::move(name);
    caseFailed_ = false;
    cases_.add(1, 0);
}

void Rig::fail(const std::string& what) {
    if (!std::exchange(caseFailed_, true) || cases_.controlling()) {
        cases_.fail(case_ + ": " + what);
    } else {
        tell(case_ + ": " + what);
    }
}

bool Rig::check(bool holds, const std::string& what) {
    if (!holds) {
        fail(what);
    }
    return holds;
}

void Rig::expectAtLeast(unsigned long quick, unsigned long whole) {
    if (only_.empty()) {
        cases_.expectAtLeast(this->quick() ? quick : whole);
    }
}

void Rig::tell(const std::string& line) {
    if (verbose_ && !cases_.controlling()) {
        cases_.note(line);
    }
}

std::string codeText(unsigned int code) {
    std::array<char, 16> number{};
    (void)std::snprintf(number.data(), number.size(), "0x%08x ", code);
    return number.data() + std::string(genregCodeName(code));
}

}  // namespace prove
