#include "genreg/core/KeptContents.h"

#include <bit>
#include <cstdlib>
#include <new>

#include "genreg/core/FileInternals.h"

using genreg::FileInternals;
using genreg::Function;
using genreg::KeptContents;

namespace genreg {
namespace {

// More records than this of which nothing is known make an index useless.
constexpr unsigned int MOST_DOUBTFUL = 256;
constexpr unsigned long LARGEST_FILE = 0xffff0000;

}  // namespace

void KeptContents::dropIndex() noexcept {
    std::free(entries_);
    std::free(heads_);
    entries_ = nullptr;
    heads_ = nullptr;
    doubtful_ = NONE;
    indexTried_ = false;
}

void KeptContents::drop() noexcept {
    dropIndex();
    std::free(bytes_);
    bytes_ = nullptr;
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
    const bool fits = seenAgain_ && seen_.size <= mostBytes_ && seen_.size <= LARGEST_FILE;
    if (!fits || !posix::isSettled(seen_) || !posix::versionOf(descriptor, &version) || version != seen_ ||
        !posix::isLocalFile(descriptor)) {
        return;
    }
    pin_ = posix::pinFile(path);
    bytes_ = static_cast<char*>(std::malloc(version.size + 1));
    std::size_t got = 0;
    kept_ = pin_ >= 0 && posix::versionOf(pin_, &version) && version == seen_ && bytes_ != nullptr &&
            posix::readAt(descriptor, bytes_, version.size, 0, &got) == 0 && got == version.size &&
            posix::versionOf(descriptor, &version) && version == seen_;
    if (!kept_) {
        drop();
    }
}

// Each list goes through the file from its front to its end.
bool KeptContents::fillIndex(LookupSteps& steps, unsigned int records) noexcept {
    Input input{bytes_, seen_.size};
    unsigned int doubtful = 0;
    for (unsigned int i = 0; i < records; ++i) {
        Entry& entry = entries_[i];
        entry.offset = static_cast<unsigned int>(input.offset());
        const Place place = steps.nextPlace(input, &entry.identity);
        entry.length = static_cast<unsigned int>(input.offset()) - entry.offset;
        entry.next = place == Place::Known ? NONE : i;  // for now: that it is doubtful
        doubtful += place == Place::Known ? 0 : 1;
    }
    for (unsigned int i = 0; i <= headsMask_; ++i) {
        heads_[i] = NONE;
    }
    for (unsigned int i = records; i-- > 0;) {
        Entry& entry = entries_[i];
        unsigned int& head = entry.next == NONE ? heads_[entry.identity & headsMask_] : doubtful_;
        entry.next = head;
        head = i;
    }
    return doubtful <= MOST_DOUBTFUL;
}

// Whether there is an index that was made for these features.
bool KeptContents::index(LookupSteps& steps, unsigned long features) noexcept {
    if (indexTried_ && indexFeatures_ == features) {
        return entries_ != nullptr;
    }
    dropIndex();
    indexTried_ = true;
    indexFeatures_ = features;
    unsigned long records = 0;
    unsigned int identity = 0;
    Input input{bytes_, seen_.size};
    while (steps.nextPlace(input, &identity) != Place::End) {
        ++records;
    }
    const unsigned long heads = std::bit_ceil(records + 1);
    if (seen_.size + records * sizeof(Entry) + heads * sizeof(unsigned int) > mostBytes_) {
        return false;
    }
    entries_ = static_cast<Entry*>(std::malloc((records + 1) * sizeof(Entry)));
    heads_ = static_cast<unsigned int*>(std::malloc(heads * sizeof(unsigned int)));
    headsMask_ = static_cast<unsigned int>(heads - 1);
    if (entries_ == nullptr || heads_ == nullptr || !fillIndex(steps, static_cast<unsigned int>(records))) {
        dropIndex();
        indexTried_ = true;
    }
    return entries_ != nullptr;
}

// The first entry of the list from this one on that has the identity.
unsigned int KeptContents::after(unsigned int at, unsigned int identity) const noexcept {
    while (at != NONE && entries_[at].identity != identity) {
        at = entries_[at].next;
    }
    return at;
}

KeptContents::Candidates::Candidates(KeptContents& kept, LookupSteps& steps, const Search& search,
                                     unsigned long features) noexcept
    : kept_(kept), all_(!steps.identityOf(search, &identity_) || !kept.index(steps, features)) {
    if (!all_) {
        known_ = kept.after(kept.heads_[identity_ & kept.headsMask_], identity_);
        doubtful_ = kept.doubtful_;
    }
}

bool KeptContents::Candidates::next(Part* part) noexcept {
    if (all_) {
        *part = {kept_.bytes_, kept_.seen_.size, false};
        all_ = false;
        return true;
    }
    const unsigned int at = known_ < doubtful_ ? known_ : doubtful_;  // entries stand as their records do
    if (at == NONE) {
        return false;
    }
    const Entry& entry = kept_.entries_[at];
    *part = {kept_.bytes_ + entry.offset, entry.length, at == known_};
    (at == known_ ? known_ : doubtful_) = at == known_ ? kept_.after(entry.next, identity_) : entry.next;
    return true;
}

}  // namespace genreg

KeptContents* FileInternals::keptContents() const noexcept {
    const bool reads = genreg::isTraced() || file_.regFp != nullptr || file_.tmpFp != nullptr || usesChecksumHeader();
    return reads ? nullptr : kept_;
}

unsigned int GenRegFile::KeepContents(unsigned long mostBytes) noexcept {
    genreg::FunctionTrace trace{Function::KeepContents};
    FileInternals& inside = FileInternals::of(*this);
    delete inside.kept_;
    inside.kept_ = mostBytes == 0 ? nullptr : new (std::nothrow) KeptContents(mostBytes);
    return mostBytes == 0 || inside.kept_ != nullptr ? 0 : trace.fail(10, REG_NO_MEMORY);
}
