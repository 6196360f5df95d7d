#include "genreg/core/Batch.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace genreg {
namespace {

// Goes on to the next record of a copy. False at its end.
bool nextRecord(UpdateSteps& steps, Input& input, Contents::Record* record) noexcept {
    const char* const bytes = input.data();
    const unsigned long before = input.offset();
    const Place place = steps.nextPlace(input, &record->identity);
    record->bytes = bytes;
    record->length = input.offset() - before;
    record->known = place == Place::Known;
    return place != Place::End;
}

}  // namespace

Batch::~Batch() noexcept {
    std::free(old_);
    std::free(candidates_);
    while (changes_ != nullptr) {
        Change* const change = changes_;
        changes_ = change->next;
        std::free(change);
    }
}

bool Batch::begin(char* bytes, unsigned long size) noexcept {
    old_ = bytes;
    oldSize_ = size;
    char* const copy = contents_.make(size);
    if (copy != nullptr && size != 0) {
        std::memcpy(copy, bytes, size);
    }
    return copy != nullptr;
}

bool Batch::changesNothing() const noexcept {
    return wasMissing_
               ? missing_
               : contents_.size() == oldSize_ && (oldSize_ == 0 || std::memcmp(contents_.bytes(), old_, oldSize_) == 0);
}

// --- an update ---------------------------------------------------------------------------------------------------

bool Batch::pushCandidate(const Candidate& candidate) noexcept {
    if (candidateCount_ == candidateRoom_) {
        const unsigned int room = 2 * candidateRoom_ + 8;
        auto* const grown = static_cast<Candidate*>(std::realloc(candidates_, room * sizeof(Candidate)));
        if (grown == nullptr) {
            return false;
        }
        candidates_ = grown;
        candidateRoom_ = room;
    }
    candidates_[candidateCount_++] = candidate;
    return true;
}

bool Batch::gather(Contents::Candidates candidates) noexcept {
    for (Contents::Part part = {}; candidates.next(&part);) {
        if (!pushCandidate({part.place, gathered_.size(), part.length}) || !gathered_.write(part.bytes, part.length)) {
            return false;
        }
    }
    return true;
}

// What an update shows of the registry to its steps: all of it where they cannot tell records apart, and where what
// comes behind the last record changes it. A record that any update writes otherwise than it stands is doubtful to the
// index, and among what is shown.
unsigned int Batch::open(UpdateSteps& steps, const UpdateCall& call, unsigned long features, bool blindly,
                         UpdateFiles& files) noexcept {
    steps_ = &steps;
    operation_ = call.operation;
    unsigned int identity = 0;
    const void* const key = call.operation == REG_OP_ADD ? call.record : call.key;
    const bool forced = again_;
    again_ = false;
    const bool indexed =
        !forced && steps.identityOf(call.mask, key, &identity) && contents_.index(steps, features, Contents::MOST);
    const bool openEnded = steps.isOpenEnded(contents_.last());
    blind_ = blindly && !openEnded;
    whole_ = !blind_ && (!indexed || openEnded);
    if (!indexed && !contents_.pack()) {
        return REG_NO_MEMORY;
    }
    candidateCount_ = 0;
    gathered_.openInMemory();
    if (!blind_ && !whole_ && !gather(Contents::Candidates(contents_, identity))) {
        return REG_NO_MEMORY;
    }
    if (whole_) {
        files.input.restart(contents_.bytes(), contents_.size());
    } else {
        files.input.restart(gathered_.data(), gathered_.size());
    }
    files.output.openInMemory();
    return 0;
}

void Batch::compare(Input& before, Input& after, const UpdateFiles& files) const noexcept {
    if (whole_) {
        before.restart(contents_.bytes(), contents_.size());
    } else {
        before.restart(gathered_.data(), gathered_.size());
    }
    after.restart(files.output.data(), files.output.size());
}

bool Batch::equals(const Candidate& candidate, const Contents::Record& record) const noexcept {
    return candidate.length == record.length &&
           std::memcmp(gathered_.data() + candidate.offset, record.bytes, record.length) == 0;
}

// Whether the records of the copy are those that were shown: each, changed or not; but those that were deleted; and one
// that was added.
bool Batch::fits(const Output& copy) const noexcept {
    Input input{copy.data(), copy.size()};
    unsigned int count = 0;
    unsigned int passed = 0;
    for (Contents::Record record = {}; nextRecord(*steps_, input, &record); ++count) {
        while (operation_ == REG_OP_DELETE && passed < candidateCount_ && !equals(candidates_[passed], record)) {
            ++passed;
        }
        if (operation_ == REG_OP_DELETE && passed++ >= candidateCount_) {
            return false;
        }
    }
    return operation_ == REG_OP_DELETE || count == candidateCount_ + (operation_ == REG_OP_ADD ? 1 : 0);
}

void Batch::apply(const Output& copy) noexcept {
    Input input{copy.data(), copy.size()};
    Contents::Record record = {};
    bool more = nextRecord(*steps_, input, &record);
    for (unsigned int i = 0; i < candidateCount_; ++i) {
        const bool same = more && equals(candidates_[i], record);
        if (operation_ == REG_OP_DELETE && !same) {
            contents_.leaveOut(candidates_[i].place);
            continue;
        }
        if (!same) {
            contents_.put(candidates_[i].place, record);
        }
        more = nextRecord(*steps_, input, &record);
    }
    if (more) {
        contents_.append(record);
    }
    contents_.tidy();
}

unsigned int Batch::take(UpdateFiles& files) noexcept {
    Output& copy = files.output;
    missing_ = missing_ && operation_ != REG_OP_ADD;
    if (whole_) {
        const unsigned long size = copy.size();
        std::size_t room = 0;
        contents_.adopt(copy.closeAndKeepRoom(&room), size);
        return 0;
    }
    again_ = !blind_ && !fits(copy);
    if (again_) {
        return 0;
    }
    if (!contents_.makeRoom(copy.size())) {
        return REG_NO_MEMORY;
    }
    if (contents_.isIndexed()) {
        apply(copy);
    } else {
        contents_.extend(copy.data(), copy.size());
    }
    return 0;
}

bool Batch::again() const noexcept {
    return again_;
}

// --- the change log ----------------------------------------------------------------------------------------------

bool Batch::remember(const UpdateCall& call, unsigned int caller, unsigned long recordSize) noexcept {
    auto* const change = static_cast<Change*>(std::malloc(sizeof(Change) + 2 * recordSize));
    if (change == nullptr) {
        return false;
    }
    const bool add = call.operation == REG_OP_ADD;
    const void* const records[2] = {add ? call.record : call.key, add ? nullptr : call.record};
    *change = {nullptr, caller, call.operation, recordSize, {}};
    for (int n = 0; n < 2; ++n) {
        change->has[n] = records[n] != nullptr;
        if (change->has[n]) {
            std::memcpy(change->record(n), records[n], recordSize);
        }
    }
    *nextChange_ = change;
    nextChange_ = &change->next;
    return true;
}

}  // namespace genreg
