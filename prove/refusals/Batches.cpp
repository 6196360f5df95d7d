// What only a batch that is committed leads to: a log that refuses one of its changes, and a copy that another has
// written into before it is read again.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "prove/refusals/Refusals.h"

namespace prove {

void Refusals::batches() {
    constexpr unsigned int UNLOGGED = 0x900001ab;
    const auto changeTwo = [this] {
        Binary registry(file_);
        registry.features |= REG_FEATURE_CHANGE_LOG;
        registry.logChange = [](GenRegBase* /*object*/, unsigned long /*operation*/, void* /*first*/,
                                void* /*second*/) { return UNLOGGED; };
        GenRegBinVarValRecord record = {"a", 1, ""};
        unsigned int rc = registry.BeginBatch();
        rc = rc == 0 ? registry.Add(BINVARVAL_MATCH_VARIABLE, &record) : rc;
        record.variable[0] = 'b';
        rc = rc == 0 ? registry.Add(BINVARVAL_MATCH_VARIABLE, &record) : rc;
        return rc == 0 ? registry.CommitBatch() : rc;
    };
    lay("");
    expect({"CommitBatch", 250, UNLOGGED}, 0, changeTwo);
    if (!canFailCalls()) {
        rig_.skip("a copy that another writes into", "only on x86-64, and where a process may trace its child");
        return;
    }
    // At the sync that makes the copy durable, which succeeds.
    bool written = false;
    const auto isSync = isOn(SYS_fdatasync, path(".tmp"));
    const auto isOtherSync = isOn(SYS_fsync, path(".tmp"));
    const auto writes = [&](pid_t child, const SystemCall& call) {
        if (!written && (isSync(child, call) || isOtherSync(child, call))) {
            const int copy = ::open(path(".tmp").c_str(), O_WRONLY | O_CLOEXEC);
            written = ::pwrite(copy, "!", 1, 8) == 1;
            (void)::close(copy);
        }
        return false;
    };
    lay("");
    expectWatched({"VerifyBatch", 110, REG_VERIFY_WRONG_RECORD}, REG_VERIFY_FAILED, writes, changeTwo);
    rig_.check(written, "the copy was not made durable");
}

}  // namespace prove
