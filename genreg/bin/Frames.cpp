#include "genreg/bin/Frames.h"

#include <osse/Errors.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "genreg/core/Append.h"
#include "genreg/core/SameBytes.h"
#include "platform/posix/Posix.h"

namespace genreg {

unsigned int BinFrames::next(Input& input, Frame* frame) noexcept {
    const std::size_t head = input.fill(FRAME_LENGTH_SIZE);
    if (input.error() != 0) {
        return trace_.fail(400, REG_FRAME_LENGTH_READ_FAILED, input.error());
    }
    if (head == 0) {
        return REG_NO_MORE_RECORDS;
    }
    if (head < FRAME_LENGTH_SIZE) {
        return trace_.fail(410, REG_FRAME_TRUNCATED);
    }
    const std::size_t length = decodeLength(has(REG_FEATURE_BIG_ENDIAN), input.data());
    if (length > input.size() - input.offset() - FRAME_LENGTH_SIZE) {
        return trace_.fail(420, REG_FRAME_TRUNCATED);
    }
    if (input.fill(FRAME_LENGTH_SIZE + length) < FRAME_LENGTH_SIZE + length) {
        return input.error() != 0 ? trace_.fail(430, REG_FRAME_PAYLOAD_READ_FAILED, input.error())
                                  : trace_.fail(440, REG_FRAME_TRUNCATED);
    }
    *frame = {input.data() + FRAME_LENGTH_SIZE, length};
    input.consume(FRAME_LENGTH_SIZE + length);
    return 0;
}

unsigned long BinFrames::maxRecordSize() const noexcept {
    unsigned long size = 0;
    (void)engine_.getMaxRecordSize(&size);
    return size;
}

bool BinFrames::checksImages() const noexcept {
    return has(REG_FEATURE_PACKED) && engine_.checkPacked != nullptr &&
           engine_.getPackedRecordSize == engine_.judgedPackedSize_;
}

bool BinFrames::unpacksChecked() const noexcept {
    return checksImages() && engine_.unpackRecord == engine_.judgedUnpack_;
}

bool BinFrames::matchesChecked() const noexcept {
    return unpacksChecked() && engine_.matchRecord == engine_.judgedMatch_ && !isTraced();
}

bool BinFrames::packsChecked() const noexcept {
    return checksImages() && engine_.packRecord == engine_.judgedPack_;
}

bool BinFrames::usesWays() const noexcept {
    return engine_.ways_ != nullptr && engine_.ways_->packed == has(REG_FEATURE_PACKED) &&
           engine_.matchRecord == engine_.judgedMatch_ && !isTraced() && (!engine_.ways_->packed || matchesChecked());
}

void BinFrames::passOver(Input& input, unsigned long mask, const void* key) const noexcept {
    if (key == nullptr || !usesWays()) {
        return;
    }
    const bool bigEndian = has(REG_FEATURE_BIG_ENDIAN);
    while (input.error() == 0 && input.fill(1) != 0) {
        input.consume(engine_.ways_->passOver(mask, input.data(), input.ready(), bigEndian, key));
        if (input.ready() != 0) {
            return;
        }
    }
}

std::size_t BinFrames::carriedAtHand(const Input& input, unsigned long mask, const void* key) const noexcept {
    if (key == nullptr || !usesWays() || engine_.ways_->carryOver == nullptr || !packsChecked() ||
        engine_.packsAlike == nullptr) {
        return 0;
    }
    return engine_.ways_->carryOver(mask, input.data(), input.ready(), has(REG_FEATURE_BIG_ENDIAN), key);
}

std::size_t BinFrames::equalAtHand(const Input& a, const Input& b) const noexcept {
    if (!matchesChecked()) {
        return 0;
    }
    // In an update the copy has checked them: bytes that are the same on both sides now are those.
    const bool checked = usesWays() && FileInternals::of(engine_).isUpdating();
    const bool bigEndian = has(REG_FEATURE_BIG_ENDIAN);
    const std::size_t same = sameInFront(a.data(), b.data(), std::min(a.ready(), b.ready()));
    std::size_t end = 0;
    for (Frame frame = {}; frameAt(bigEndian, a.data(), same, end, &frame) &&
                           (checked || engine_.checkPacked(frame.payload, frame.length) == 0);) {
        end += FRAME_LENGTH_SIZE + frame.length;
    }
    return end;
}

unsigned int BinFrames::carryRun(const char* frames, std::size_t length) noexcept {
    return copy().write(frames, length) ? 0 : carryFailed();
}

unsigned int BinFrames::carryFailed() noexcept {
    return trace_.fail(590, REG_COPY_WRITE_FAILED, ossErrorMapSystem(errno));
}

// Without a word where next() would have one.
bool BinFrames::peek(Input& input, Frame* frame) const noexcept {
    if (input.fill(FRAME_LENGTH_SIZE) < FRAME_LENGTH_SIZE || input.error() != 0) {
        return false;
    }
    const std::size_t length = decodeLength(has(REG_FEATURE_BIG_ENDIAN), input.data());
    if (length > input.size() - input.offset() - FRAME_LENGTH_SIZE ||
        input.fill(FRAME_LENGTH_SIZE + length) < FRAME_LENGTH_SIZE + length) {
        return false;
    }
    *frame = {input.data() + FRAME_LENGTH_SIZE, length};
    return true;
}

bool BinFrames::take(Input& input, unsigned long mask, const void* key, void* record, bool lists) const noexcept {
    if (!usesWays() || engine_.ways_->take == nullptr || engine_.getMaxRecordSize != engine_.judgedMaxSize_) {
        return false;
    }
    for (;;) {
        Frame frame = {};
        if (!lists) {
            passOver(input, mask, key);
        }
        if (!peek(input, &frame)) {
            return false;
        }
        const Taken taken = engine_.ways_->take(mask, frame.payload, frame.length, key, record);
        if (taken == Taken::Doubt) {
            return false;
        }
        input.consume(FRAME_LENGTH_SIZE + frame.length);
        if (taken == Taken::Yes) {
            return true;
        }
    }
}

bool BinFrames::identify(unsigned long mask, const void* key, unsigned int* identity) const noexcept {
    return key != nullptr && usesWays() && engine_.ways_->identifyKey != nullptr &&
           engine_.ways_->identifyKey(mask, key, identity);
}

Place BinFrames::nextPlace(Input& input, unsigned int* identity, bool carried) const noexcept {
    Frame frame = {};
    if (!peek(input, &frame)) {
        const std::size_t rest = input.size() - input.offset();
        input.consume(input.fill(rest));
        return rest == 0 ? Place::End : Place::Doubtful;
    }
    input.consume(FRAME_LENGTH_SIZE + frame.length);
    const bool known =
        engine_.ways_->identifyFrame(frame.payload, frame.length, identity) && (!carried || isCarriedAlike(frame));
    return known ? Place::Known : Place::Doubtful;
}

unsigned int BinFrames::checkImage(const Frame& frame) noexcept {
    const unsigned int rc = engine_.checkPacked(frame.payload, frame.length);
    return rc == 0 ? 0 : trace_.fail(450, REG_UNPACK_FAILED, rc);
}

unsigned int BinFrames::check(const Frame& frame) noexcept {
    return unpacksChecked() ? checkImage(frame) : 0;
}

bool BinFrames::mayMatch(unsigned long mask, const Frame& frame, const void* key) const noexcept {
    return !matchesChecked() || engine_.packedMayMatch == nullptr || engine_.unpackRecord == nullptr ||
           engine_.packedMayMatch(mask, frame.payload, frame.length, key);
}

bool BinFrames::surelyEqual(const Frame& a, const Frame& b) const noexcept {
    // A schema that looks into images promises that equal ones are equal records.
    return matchesChecked() && a.length == b.length && std::memcmp(a.payload, b.payload, a.length) == 0;
}

unsigned int BinFrames::unpack(const Frame& frame, RecordBuffer& record) noexcept {
    const bool packed = has(REG_FEATURE_PACKED);
    if (packed && engine_.unpackRecord == nullptr) {
        return trace_.fail(460, REG_NO_UNPACK_RECORD);
    }
    const unsigned long room = std::max<unsigned long>(maxRecordSize(), frame.length);
    if (!record.ensure(room)) {
        return trace_.fail(465, REG_READ_FAILED, REG_NO_WORK_BUFFER);
    }
    auto* const bytes = static_cast<char*>(record.get());
    std::memcpy(bytes, frame.payload, frame.length);
    if (!unpacksChecked() || engine_.getMaxRecordSize != engine_.judgedMaxSize_) {
        // A frame shorter than the record must not leave the tail of the one before, nor must an image that nobody
        // has checked, or whose record is larger than what unpacking fills.
        std::memset(bytes + frame.length, 0, record.size() - frame.length);
    }
    if (!packed) {
        return 0;
    }
    const unsigned int rc = record.handTo(engine_.unpackRecord, maxRecordSize());
    return rc == 0 ? 0 : trace_.fail(470, REG_UNPACK_FAILED, rc);
}

unsigned int BinFrames::checkMatch() noexcept {
    return engine_.matchRecord != nullptr ? 0 : trace_.fail(480, REG_NO_MATCH_RECORD);
}

unsigned int BinFrames::payloadSize(void* record, unsigned long* size) noexcept {
    if (has(REG_FEATURE_PACKED)) {
        if (engine_.getPackedRecordSize == nullptr) {
            return trace_.fail(490, REG_NO_GET_PACKED_RECORD_SIZE);
        }
        (void)engine_.getPackedRecordSize(record, size);
    } else {
        if (engine_.getRecordSize == nullptr) {
            return trace_.fail(500, REG_NO_GET_RECORD_SIZE);
        }
        (void)engine_.getRecordSize(record, size);
    }
    *size = static_cast<unsigned int>(*size);  // a frame's length has 32 bits
    if (*size < REG_MIN_RECORD_SIZE) {
        return trace_.fail(510, REG_RECORD_TOO_SMALL);
    }
    if (*size > REG_MAX_RECORD_SIZE) {
        return trace_.fail(520, REG_RECORD_SIZE_REFUSED);
    }
    return 0;
}

bool BinFrames::writeBytes(const void* payload, unsigned long size, bool inPlace) noexcept {
    char head[FRAME_LENGTH_SIZE];
    encodeLength(has(REG_FEATURE_BIG_ENDIAN), static_cast<unsigned int>(size), head);
    if (!inPlace) {
        return copy().write(head, sizeof head) && copy().write(payload, size);
    }
    RecordBuffer whole{"GenRegBin"};
    if (!whole.allocate(sizeof head + size)) {
        return false;
    }
    auto* const bytes = static_cast<char*>(whole.get());
    std::memcpy(bytes, head, sizeof head);
    std::memcpy(bytes + sizeof head, payload, size);
    return appendWhole(registry(), bytes, sizeof head + size);
}

// A schema that looks into images takes the previous one where it lies, checked. Any other function may look at it as a
// structure and knows no length: it gets an aligned copy of its own, as large as the largest record.
unsigned int BinFrames::previousImage(const Frame* previous, void** image) noexcept {
    *image = nullptr;
    if (previous == nullptr) {
        return 0;
    }
    if (packsChecked()) {
        *image = const_cast<char*>(previous->payload);
        return unpacksChecked() ? 0 : checkImage(*previous);
    }
    if (!previous_.ensure(std::max<unsigned long>(maxRecordSize(), previous->length))) {
        return trace_.fail(525, REG_NO_RECORD_BUFFER);
    }
    auto* const bytes = static_cast<char*>(previous_.get());
    std::memcpy(bytes, previous->payload, previous->length);
    std::memset(bytes + previous->length, 0, previous_.size() - previous->length);
    *image = bytes;
    return 0;
}

unsigned int BinFrames::packAndWrite(RecordBuffer& record, const Frame* previous, unsigned int writeFailed,
                                     bool inPlace) noexcept {
    if (engine_.packRecord == nullptr) {
        return trace_.fail(530, REG_NO_PACK_RECORD);
    }
    void* image = nullptr;
    if (const unsigned int rc = previousImage(previous, &image)) {
        return rc;
    }
    const auto pack = [&](void** block) { return engine_.packRecord(block, image); };
    // A block that the schema puts in place need hold no more than the image.
    if (const unsigned int rc = record.handTo(pack, 0)) {
        return trace_.fail(540, REG_PACK_FAILED, rc);
    }
    return write(record.get(), ANY_SIZE, writeFailed, inPlace);
}

unsigned int BinFrames::write(void* record, unsigned long room, unsigned int writeFailed, bool inPlace) noexcept {
    unsigned long size = 0;
    if (const unsigned int rc = payloadSize(record, &size)) {
        return trace_.fail(550, writeFailed, rc);
    }
    if (size > room) {
        return trace_.fail(555, writeFailed, REG_RECORD_SIZE_REFUSED);
    }
    return writeBytes(record, size, inPlace) ? 0 : trace_.fail(560, writeFailed, ossErrorMapSystem(errno));
}

bool BinFrames::isCarriedAlike(const Frame& frame) const noexcept {
    if (!has(REG_FEATURE_PACKED)) {
        return usesWays() && frame.length == maxRecordSize() && engine_.getRecordSize == engine_.ways_->recordSize;
    }
    const bool lengthFits = frame.length >= REG_MIN_RECORD_SIZE && frame.length <= REG_MAX_RECORD_SIZE;
    const bool slots =
        engine_.packRecord != nullptr && engine_.unpackRecord != nullptr && engine_.getPackedRecordSize != nullptr;
    return lengthFits && slots && unpacksChecked() && packsChecked() && !isTraced() && engine_.packsAlike != nullptr &&
           engine_.packsAlike(frame.payload, frame.length);
}

unsigned int BinFrames::carry(const Frame& frame, RecordBuffer& record, bool unpacked) noexcept {
    const bool packed = has(REG_FEATURE_PACKED);
    if (!packed || !isCarriedAlike(frame)) {
        if (!unpacked) {
            if (const unsigned int rc = unpack(frame, record)) {
                return rc;
            }
        }
        return packed ? packAndWrite(record, &frame, REG_COPY_WRITE_FAILED, false)
                      : write(record.get(), record.size(), REG_COPY_WRITE_FAILED, false);
    }
    return writeBytes(frame.payload, frame.length, false) ? 0 : carryFailed();
}

}  // namespace genreg
