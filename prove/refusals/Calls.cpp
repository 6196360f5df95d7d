// What a failing call of the system leads to, where only one of them does: the core and the engines.
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "prove/refusals/Refusals.h"
#include "prove/support/Place.h"

namespace prove {

void Refusals::calls() {
    if (!canFailCalls()) {
        rig_.skip("what a failing call leads to", "only on x86-64, and where a process may trace its child");
        return;
    }
    const auto isSecondRead = [reads = 0, isRead = isOn(SYS_pread64, file_)](pid_t child,
                                                                             const SystemCall& call) mutable {
        return isRead(child, call) && ++reads == 2;
    };
    lay("a = 1\nb = 2\n");
    (void)::chmod(file_.c_str(), 0640);
    const auto finish = [&] {
        std::ofstream(path(".tmp")) << "a = 2\n";
        (void)::chmod(path(".tmp").c_str(), 0600);
        Text text(file_);
        const unsigned int rc = text.OpenReg(REG_OP_FINISH);
        (void)text.CloseReg(REG_OP_READ);
        return rc;
    };
    const std::string lock = rig_.scratch() + "/." + std::filesystem::path(file_).filename().string() + ".lock";
    const auto lockAndUnlock = [&] {
        unsigned int ignored = 0;
        GenRegVarVal file(file_.c_str(), &ignored);
        const unsigned int rc = file.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT, 0);
        return rc != 0 ? rc : file.UnLock();
    };
    const auto isUnlocking = [&](pid_t child, const SystemCall& call) {
        return prove::isUnlocking(child, call) && isOn(call.number, lock)(child, call);
    };
    expectFailing({"UnLock", 10, REG_RELEASE_LOCK_FAILED}, REG_RELEASE_LOCK_FAILED, EIO, isUnlocking, lockAndUnlock);
    expectFailing({"UnLock", 20, REG_CLOSE_LOCK_FAILED}, REG_CLOSE_LOCK_FAILED, EIO, isOn(SYS_close, lock),
                  lockAndUnlock);
    expectFailing({"OpenReg", 160, REG_SET_PERMISSIONS_FAILED}, REG_SET_PERMISSIONS_FAILED, EPERM,
                  isOn(SYS_fchmod, path(".tmp")), finish);
    // Marks by a call of its own where the look-up begins, and where it has found the line.
    const auto lookInside = [&] {
        Text text(file_, REG_FEATURE_GET_IN_SCAN);
        text.matchRecord = [](unsigned long mask, void* record, void* wanted) {
            (void)::getppid();
            return GenRegVarVal::MatchRecord(mask, record, wanted);
        };
        GenRegVarValRecord found = {};
        GenRegVarValRecord key = pair("a", nullptr);
        (void)text.OpenScan();
        (void)text.GetNext(0, &key, &found);
        (void)::getppid();
        return text.Get(VARVAL_MATCH_VARIABLE, &key, &found);
    };
    const auto isSeekBehind = [&](int mark) {
        return [mark, marks = 0, isSeek = isOn(SYS_lseek, file_)](pid_t child, const SystemCall& call) mutable {
            marks += call.number == SYS_getppid ? 1 : 0;
            return marks == mark && isSeek(child, call);
        };
    };
    expectFailing({"GenRegText::Get", 75, REG_OPEN_FAILED}, REG_OPEN_FAILED, EIO, isSeekBehind(1), lookInside);
    expectFailing({"GenRegText::Get", 205, REG_CLOSE_FAILED}, REG_CLOSE_FAILED, EIO, isSeekBehind(2), lookInside);
    const auto verifyDelete = [&] {
        Text text(file_, REG_FEATURE_DEFERRED_COMMIT | REG_FEATURE_ALLOW_DUPLICATES);
        GenRegVarValRecord key = pair("a", nullptr);
        return text.Verify(REG_OP_DELETE, VARVAL_MATCH_VARIABLE, nullptr, &key);
    };
    std::string lines;
    while (lines.size() < 128UL * 1024) {
        lines += "a = 1\n";
    }
    lay(lines + "b = 2\n");
    std::ofstream(path(".tmp")) << "b = 2\n";
    expectFailing({"GenRegText::Verify", 125, REG_READ_FAILED}, REG_READ_FAILED, EIO, isSecondRead, verifyDelete);
    std::filesystem::remove(path(".tmp"));
    const std::string frame = std::string("\x40\x1f\0\0", 4) + std::string(8000, 'x');
    std::string frames;
    while (frames.size() < 128UL * 1024) {
        frames += frame;
    }
    lay(frames);
    expectFailing({"GenRegBin::Get", 430, REG_FRAME_PAYLOAD_READ_FAILED}, REG_READ_FAILED, EIO, isSecondRead, [&] {
        GenRegBinVarValRecord key = {};
        GenRegBinVarValRecord found = {};
        return Binary(file_).Get(BINVARVAL_MATCH_VARIABLE, &key, &found);
    });
    const auto appendFirst = [&] {
        std::filesystem::remove(file_);
        Text text(file_, REG_FEATURE_ALLOW_DUPLICATES);
        GenRegVarValRecord record = pair("a", "1");
        return text.Add(VARVAL_MATCH_VARIABLE, &record);
    };
    expectFailing({"CloseReg", 20, OSS_SYSTEM_ERROR_BASE + EIO}, 0, EIO, isOn(SYS_fsync, rig_.scratch()), appendFirst);
}

}  // namespace prove
