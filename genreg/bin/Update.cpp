// Adding, changing and deleting records.
#include <osse/Errors.h>

#include <cerrno>
#include <cstring>

#include "genreg/bin/Frames.h"
#include "genreg/core/UpdateWalk.h"
#include "platform/posix/Posix.h"

using genreg::BIN_TAG;
using genreg::BinFrames;
using genreg::FileInternals;
using genreg::Frame;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::Input;
using genreg::OperationTrace;
using genreg::Place;
using genreg::RecordBuffer;
using genreg::UpdateCall;
using genreg::UpdatePlan;

namespace {

// What the three updates share: the walk over the frames and the writing of records.
class BinUpdate : public genreg::UpdateSteps {
public:
    BinUpdate(GenRegBin& engine, FunctionTrace& trace, const UpdateCall& call, RecordBuffer& work) noexcept
        : engine_(engine), trace_(trace), frames_(engine, trace), call_(call), work_(work) {}

    unsigned int verify() noexcept override {
        return engine_.Verify(call_.operation, call_.mask, call_.record, call_.key);
    }
    unsigned int release() noexcept override { return packed_.release(); }

    bool identityOf(unsigned long mask, const void* key, unsigned int* identity) noexcept override {
        return frames_.identify(mask, key, identity);
    }
    Place nextPlace(Input& input, unsigned int* identity) noexcept override {
        return frames_.nextPlace(input, identity, true);
    }
    bool isOpenEnded(const genreg::Contents::Part& /*last*/) const noexcept override { return false; }

protected:
    ~BinUpdate() = default;

    // The frame's record matches; work_ holds it.
    [[nodiscard]] virtual unsigned int takeMatch(const Frame& frame) noexcept = 0;

    [[nodiscard]] unsigned int match(unsigned long mask, void* record, void* key) const noexcept {
        return frames_.match(mask, record, key);
    }
    [[nodiscard]] bool duplicatesAllowed() const noexcept { return frames_.has(REG_FEATURE_ALLOW_DUPLICATES); }

    // Carries every frame to the copy but those that match the key. matching: whether any may.
    [[nodiscard]] unsigned int walk(void* key, bool matching) noexcept {
        Input& input = FileInternals::of(engine_).input();
        for (;;) {
            Frame frame = {};
            const std::size_t run = matching ? frames_.carriedAtHand(input, call_.mask, key) : 0;
            if (const unsigned int rc = run == 0 ? 0 : frames_.carryRun(input.data(), run)) {
                return rc;
            }
            input.consume(run);
            if (const unsigned int rc = frames_.next(input, &frame)) {
                return rc == REG_NO_MORE_RECORDS ? 0 : trace_.fail(110, REG_READ_FAILED, rc);
            }
            if (const unsigned int rc = frames_.check(frame)) {
                return rc;
            }
            const bool looked = matching && frames_.mayMatch(call_.mask, frame, key);
            if (looked) {
                if (const unsigned int rc = frames_.unpack(frame, work_)) {
                    return rc;
                }
            }
            if (matching) {
                if (const unsigned int rc = frames_.checkMatch()) {
                    return rc;
                }
            }
            const bool matches = looked && match(call_.mask, work_.get(), key) == 1;
            if (const unsigned int rc = matches ? takeMatch(frame) : frames_.carry(frame, work_, looked)) {
                return rc;
            }
        }
    }

    // Writes the caller's record, which is never used as work space.
    [[nodiscard]] unsigned int writeRecord(const Frame* previous, unsigned int writeFailed, bool inPlace) noexcept {
        if (!frames_.has(REG_FEATURE_PACKED)) {
            return frames_.write(call_.record, genreg::ANY_SIZE, writeFailed, inPlace);
        }
        const unsigned long size = frames_.maxRecordSize();
        if (!packed_.ensure(size)) {
            return trace_.fail(130, REG_NO_RECORD_BUFFER);
        }
        std::memcpy(packed_.get(), call_.record, size);
        return frames_.packAndWrite(packed_, previous, writeFailed, inPlace);
    }

    GenRegBin& engine_;
    FunctionTrace& trace_;
    BinFrames frames_;
    UpdateCall call_;
    RecordBuffer& work_;
    RecordBuffer packed_{BIN_TAG};  // the caller's record, as it was written last
};

class BinAdd final : public BinUpdate {
public:
    using BinUpdate::BinUpdate;

    unsigned int copy() noexcept override {
        unsigned long size = 0;
        if (const unsigned int rc = FileInternals::of(engine_).sizeOfRegistry(&size)) {
            return trace_.fail(90, REG_FILE_SIZE_FAILED, rc);
        }
        if (frames_.has(REG_FEATURE_DEFERRED_COMMIT)) {
            // The verification compares records, of which the copy itself may need none.
            if (const unsigned int rc = frames_.checkMatch()) {
                return rc;
            }
        }
        const bool inPlace = FileInternals::of(engine_).addsInPlace();
        if (size > 0 && !inPlace) {
            if (const unsigned int rc = walk(call_.record, !duplicatesAllowed())) {
                return rc;
            }
        }
        if (!inPlace && !frames_.copy().flush()) {  // what is written there is the old contents, and not the new record
            return trace_.fail(138, REG_COPY_WRITE_FAILED, ossErrorMapSystem(errno));
        }
        if (inPlace && std::fseek(frames_.registry(), 0, SEEK_END) != 0) {
            return trace_.fail(140, REG_SEEK_END_FAILED, ossErrorMapSystem(errno));
        }
        return writeRecord(nullptr, REG_RECORD_WRITE_FAILED, inPlace);
    }

private:
    unsigned int takeMatch(const Frame& /*frame*/) noexcept override { return trace_.fail(120, REG_DUPLICATE); }
};

class BinChange final : public genreg::ChangeWalk<BinUpdate, Frame> {
public:
    using ChangeWalk::ChangeWalk;

private:
    unsigned int replace(const Frame& frame) noexcept override {
        return writeRecord(&frame, REG_COPY_WRITE_FAILED, false);
    }

    // Kept: the new record is written in place of an equal one too; bytes outside the comparison reach the file where
    // the commit is not deferred.
    unsigned int keep(const Frame& frame) noexcept override { return replace(frame); }

    // What reached the file is what the file is held against: packing leaves out what the record does not promise.
    unsigned int prepareVerify() noexcept override {
        if (!frames_.has(REG_FEATURE_PACKED)) {
            return 0;
        }
        unsigned long size = 0;
        if (const unsigned int rc = frames_.payloadSize(packed_.get(), &size)) {
            return rc;
        }
        return frames_.unpack({static_cast<const char*>(packed_.get()), size}, work_);
    }
    unsigned int verify() noexcept override {
        void* const written = frames_.has(REG_FEATURE_PACKED) ? work_.get() : call_.record;
        return engine_.Verify(call_.operation, call_.mask, written, call_.key);
    }
};

class BinDelete final : public genreg::DeleteWalk<BinUpdate, Frame> {
public:
    using DeleteWalk::DeleteWalk;
};

constexpr UpdatePlan PLAN = {.discards = true, .logs = true};

}  // namespace

unsigned int GenRegBin::Add(unsigned long matchType, void* record) noexcept {
    OperationTrace trace{Function::BinAdd};
    if (const unsigned int rc = CheckFuncPtrs()) {
        return trace.fail(5, REG_CALLBACK_MISSING, rc);
    }
    return runUpdate<BinAdd>(*this, trace, BIN_TAG, {REG_OP_ADD, matchType, record, nullptr}, PLAN);
}

unsigned int GenRegBin::Change(unsigned long matchType, void* key, void* newRecord) noexcept {
    OperationTrace trace{Function::BinChange};
    return runUpdate<BinChange>(*this, trace, BIN_TAG, {REG_OP_CHANGE, matchType, newRecord, key}, PLAN);
}

unsigned int GenRegBin::Delete(unsigned long matchType, void* key) noexcept {
    OperationTrace trace{Function::BinDelete};
    return runUpdate<BinDelete>(*this, trace, BIN_TAG, {REG_OP_DELETE, matchType, nullptr, key}, PLAN);
}
