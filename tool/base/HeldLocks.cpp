#include "base/HeldLocks.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "system/System.h"

namespace tool {
namespace {

constexpr std::string_view VARIABLE = "GENREG_HELD_LOCKS";

struct HeldLock {
    GenRegLockLoan loan;
    FileNumber file;
};

// "DESCRIPTOR:DEVICE:INODE:KIND:DEPTH"
std::optional<HeldLock> heldLock(const std::string& text) {
    HeldLock held{};
    int end = 0;
    const int got = std::sscanf(text.c_str(), "%d:%lu:%lu:%lu:%u%n", &held.loan.descriptor, &held.file.device,
                                &held.file.inode, &held.loan.kind, &held.loan.depth, &end);
    return got == 5 && static_cast<std::size_t>(end) == text.size() ? std::optional(held) : std::nullopt;
}

// The outermost first.
std::vector<HeldLock> heldLocks() {
    std::vector<HeldLock> all;
    const char* const value = std::getenv(std::string(VARIABLE).c_str());
    std::string_view rest = value != nullptr ? value : "";
    while (!rest.empty()) {
        const std::size_t length = std::min(rest.find(','), rest.size());
        if (const auto held = heldLock(std::string(rest.substr(0, length)))) {
            all.push_back(*held);
        }
        rest.remove_prefix(std::min(length + 1, rest.size()));
    }
    return all;
}

std::string lockFileOf(GenRegFile& object) {
    char path[REG_PATH_SIZE] = "";
    (void)object.GetAndSetRealRegistryPaths();
    (void)object.getRegistryLockPath(path, sizeof path);
    return path;
}

}  // namespace

std::optional<GenRegLockLoan> heldLockOf(GenRegFile& object) {
    const std::vector<HeldLock> all = heldLocks();
    const auto file = all.empty() ? std::nullopt : fileNumberOf(lockFileOf(object));
    const auto held = std::find_if(all.rbegin(), all.rend(), [&](const HeldLock& each) {
        return file && each.file == *file && fileNumberOf(each.loan.descriptor) == *file;
    });
    return held != all.rend() ? std::optional(held->loan) : std::nullopt;
}

void putHeldLock(std::vector<std::string>& environment, const GenRegLockLoan& loan) {
    const auto file = fileNumberOf(loan.descriptor);
    if (!file) {
        return;
    }
    std::string told = fmt::format("{}=", VARIABLE);
    const auto known =
        std::find_if(environment.begin(), environment.end(), [&](const auto& each) { return each.starts_with(told); });
    const bool further = known != environment.end() && known->size() > told.size();
    const std::string own =
        fmt::format("{}:{}:{}:{}:{}", loan.descriptor, file->device, file->inode, loan.kind, loan.depth);
    told = (further ? *known + "," : told) + own;
    if (known != environment.end()) {
        *known = told;
    } else {
        environment.push_back(told);
    }
}

}  // namespace tool
