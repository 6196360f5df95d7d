#include "genreg/core/KeptContents.h"

#include <new>

#include "genreg/core/FileInternals.h"

using genreg::FileInternals;
using genreg::Function;
using genreg::KeptContents;

namespace genreg {

void KeptContents::drop() noexcept {
    contents_.drop();
    kept_ = false;
    if (pin_ >= 0) {
        (void)posix::closeDescriptor(pin_);
        pin_ = -1;
    }
}

bool KeptContents::isCurrent(const char* path) noexcept {
    posix::FileVersion version = {};
    const bool there = posix::versionAt(path, &version);
    seenAgain_ = there && version == seen_;
    if (kept_ && seenAgain_) {
        return true;
    }
    drop();
    seen_ = version;
    return false;
}

void KeptContents::take(int descriptor, const char* path) noexcept {
    posix::FileVersion version = {};
    const bool fits = seenAgain_ && seen_.size <= mostBytes_;
    if (!fits || !posix::isSettled(seen_) || !posix::versionOf(descriptor, &version) || version != seen_ ||
        !posix::isLocalFile(descriptor)) {
        return;
    }
    pin_ = posix::pinFile(path);
    char* const bytes = contents_.make(version.size);
    std::size_t got = 0;
    kept_ = pin_ >= 0 && posix::versionOf(pin_, &version) && version == seen_ && bytes != nullptr &&
            posix::readAt(descriptor, bytes, version.size, 0, &got) == 0 && got == version.size &&
            posix::versionOf(descriptor, &version) && version == seen_;
    if (!kept_) {
        drop();
    }
}

}  // namespace genreg

KeptContents* FileInternals::keptContents() const noexcept {
    const bool reads = genreg::isTraced() || file_.regFp != nullptr || file_.tmpFp != nullptr || usesChecksumHeader() ||
                       batch_ != nullptr;
    return reads ? nullptr : kept_;
}

unsigned int GenRegFile::KeepContents(unsigned long mostBytes) noexcept {
    genreg::FunctionTrace trace{Function::KeepContents};
    FileInternals& inside = FileInternals::of(*this);
    delete inside.kept_;
    inside.kept_ = mostBytes == 0 ? nullptr : new (std::nothrow) KeptContents(mostBytes);
    return mostBytes == 0 || inside.kept_ != nullptr ? 0 : trace.fail(10, REG_NO_MEMORY);
}
