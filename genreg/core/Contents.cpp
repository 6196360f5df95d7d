#include "genreg/core/Contents.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

namespace genreg {
namespace {

// More records than this of which nothing is known make an index useless.
constexpr unsigned int MOST_DOUBTFUL = 256;

// Grows a block of malloc's to the room; false without memory, and the block stays.
template <typename Item, typename Count>
bool grow(Item** block, Count* room, unsigned long wanted) noexcept {
    auto* const grown = static_cast<Item*>(std::realloc(*block, wanted * sizeof(Item)));
    if (grown == nullptr) {
        return false;
    }
    *block = grown;
    *room = static_cast<Count>(wanted);
    return true;
}

}  // namespace

char* Contents::make(unsigned long size) noexcept {
    drop();
    if (size > LARGEST) {
        return nullptr;
    }
    if (!grow(&bytes_, &capacity_, size + 1)) {
        return nullptr;
    }
    size_ = used_ = size;
    return bytes_;
}

void Contents::adopt(char* bytes, unsigned long size) noexcept {
    drop();
    bytes_ = bytes;
    size_ = used_ = capacity_ = size;
}

void Contents::dropIndex() noexcept {
    std::free(entries_);
    std::free(heads_);
    entries_ = nullptr;
    heads_ = nullptr;
    count_ = entryRoom_ = 0;
    doubtful_ = NONE;
    indexTried_ = false;
}

void Contents::drop() noexcept {
    dropIndex();
    std::free(bytes_);
    bytes_ = nullptr;
    size_ = used_ = capacity_ = 0;
    packed_ = true;
}

// Each list goes through the file from its front to its end.
bool Contents::fillIndex(PlaceSteps& steps, unsigned int records) noexcept {
    Input input{bytes_, size_};
    unsigned int doubtful = 0;
    for (count_ = 0; count_ < records; ++count_) {
        Entry& entry = entries_[count_];
        entry.offset = static_cast<unsigned int>(input.offset());
        entry.known = steps.nextPlace(input, &entry.identity) == Place::Known ? 1 : 0;
        entry.length = static_cast<unsigned int>(input.offset() - entry.offset) & 0x7fffffffU;
        doubtful += entry.known != 0 ? 0 : 1;
    }
    std::fill_n(heads_, headsMask_ + 1UL, NONE);
    for (unsigned int place = records; place-- > 0;) {
        unsigned int& head = headOf(entries_[place]);
        entries_[place].next = head;
        head = place;
    }
    return doubtful <= MOST_DOUBTFUL;
}

bool Contents::index(PlaceSteps& steps, unsigned long features, unsigned long mostBytes) noexcept {
    if (indexTried_ && indexFeatures_ == features) {
        return entries_ != nullptr;
    }
    if (!pack()) {
        return false;
    }
    dropIndex();
    indexTried_ = true;
    indexFeatures_ = features;
    unsigned int records = 0;
    unsigned int identity = 0;
    Input input{bytes_, size_};
    while (steps.nextPlace(input, &identity) != Place::End) {
        ++records;
    }
    const unsigned long heads = std::bit_ceil(records + 1UL);
    if (size_ + records * sizeof(Entry) + heads * sizeof(unsigned int) > mostBytes) {
        return false;
    }
    unsigned long headRoom = 0;
    headsMask_ = static_cast<unsigned int>(heads - 1);
    if (!grow(&entries_, &entryRoom_, records + 1UL) || !grow(&heads_, &headRoom, heads) ||
        !fillIndex(steps, records)) {
        dropIndex();
        indexTried_ = true;
    }
    return entries_ != nullptr;
}

bool Contents::pack() noexcept {
    if (packed_) {
        return true;
    }
    auto* const all = static_cast<char*>(std::malloc(size_ + 1));
    if (all == nullptr) {
        return false;
    }
    unsigned long at = 0;
    for (unsigned int place = 0; place < count_; ++place) {
        const Entry& entry = entries_[place];
        std::memcpy(all + at, bytes_ + entry.offset, entry.length);
        at += entry.length;
    }
    adopt(all, at);
    return true;
}

// --- changes -----------------------------------------------------------------------------------------------------

void Contents::link(unsigned int place) noexcept {
    unsigned int* from = &headOf(entries_[place]);
    while (*from < place) {
        from = &entries_[*from].next;
    }
    entries_[place].next = *from;
    *from = place;
}

void Contents::unlink(unsigned int place) noexcept {
    unsigned int* from = &headOf(entries_[place]);
    while (*from != place) {
        from = &entries_[*from].next;
    }
    *from = entries_[place].next;
}

bool Contents::makeRoom(unsigned long bytes) noexcept {
    const unsigned long wanted = used_ + bytes;
    const bool enough =
        wanted <= capacity_ || (wanted <= LARGEST && grow(&bytes_, &capacity_, std::min(2 * wanted, LARGEST)));
    return enough && (!isIndexed() || count_ < entryRoom_ || grow(&entries_, &entryRoom_, 2UL * entryRoom_));
}

void Contents::fill(Entry& entry, const Record& record) noexcept {
    if (record.length != entry.length) {
        entry.offset = static_cast<unsigned int>(used_);
        used_ += record.length;
    }
    std::memcpy(bytes_ + entry.offset, record.bytes, record.length);
    size_ = size_ - entry.length + record.length;
    packed_ = false;
    entry.length = static_cast<unsigned int>(record.length) & 0x7fffffffU;
    entry.known = record.known ? 1 : 0;
    entry.identity = record.identity;
}

void Contents::put(unsigned int place, const Record& record) noexcept {
    unlink(place);
    fill(entries_[place], record);
    link(place);
}

void Contents::append(const Record& record) noexcept {
    entries_[count_].length = 0;
    fill(entries_[count_], record);
    link(count_++);
}

void Contents::extend(const char* bytes, unsigned long length) noexcept {
    std::memcpy(bytes_ + size_, bytes, length);
    size_ = used_ = size_ + length;
    indexTried_ = false;
}

void Contents::leaveOut(unsigned int place) noexcept {
    Entry& entry = entries_[place];
    unlink(place);
    size_ -= entry.length;
    entry.length = 0;
    packed_ = false;
}

void Contents::tidy() noexcept {
    constexpr unsigned long MUCH = 1024UL * 1024;
    if (count_ > 2 * (headsMask_ + 1UL) || used_ > 2 * size_ + MUCH) {
        (void)pack();
    }
}

Contents::Part Contents::partOf(unsigned int place) const noexcept {
    const Entry& entry = entries_[place];
    return {bytes_ + entry.offset, entry.length, entry.known != 0, place};
}

Contents::Part Contents::last() const noexcept {
    if (!isIndexed()) {
        return {bytes_, size_, false, 0};
    }
    unsigned int place = count_;
    while (place > 0 && entries_[place - 1].length == 0) {
        --place;
    }
    return place == 0 ? Part{} : partOf(place - 1);
}

// --- candidates --------------------------------------------------------------------------------------------------

// The first entry of the list from this one on that has the identity.
unsigned int Contents::after(unsigned int at, unsigned int identity) const noexcept {
    while (at != NONE && entries_[at].identity != identity) {
        at = entries_[at].next;
    }
    return at;
}

Contents::Candidates::Candidates(const Contents& contents, unsigned int identity) noexcept
    : contents_(contents),
      all_(false),
      identity_(identity),
      known_(contents.after(contents.heads_[identity & contents.headsMask_], identity)),
      doubtful_(contents.doubtful_) {}

bool Contents::Candidates::next(Part* part) noexcept {
    if (all_) {
        *part = {contents_.bytes_, contents_.size_, false, 0};
        all_ = false;
        return true;
    }
    const unsigned int at = known_ < doubtful_ ? known_ : doubtful_;  // entries stand as their records do
    if (at == NONE) {
        return false;
    }
    *part = contents_.partOf(at);
    const unsigned int next = contents_.entries_[at].next;
    (at == known_ ? known_ : doubtful_) = at == known_ ? contents_.after(next, identity_) : next;
    return true;
}

}  // namespace genreg
