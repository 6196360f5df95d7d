// What a failing call of the system leads to, where only one of them does.
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "prove/refusals/Refusals.h"
#include "prove/support/Place.h"

namespace prove {
namespace {

constexpr char LOG[] = "/tmp/globalreg.debug";

// From here on this process has a /tmp of its own, empty.
bool enterOwnWorld() {
    return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("none", "/tmp", "tmpfs", 0, nullptr) == 0;
}

bool grantsOwnWorld() {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(enterOwnWorld() ? 0 : 1);
    }
    int status = 1;
    return child != -1 && ::waitpid(child, &status, 0) == child && status == 0;
}

unsigned int addService(unsigned long version) {
    OSSServiceInfo_t info = {};
    info.versionCode = version;
    std::memcpy(info.service, "RVN", sizeof "RVN");
    return ossSetServiceInfo(&info);
}

}  // namespace

void Refusals::calls() {
    if (!canFailCalls()) {
        rig_.skip("what a failing call leads to", "only on x86-64, and where a process may trace its child");
        return;
    }
    const auto isOn = [](long number, const std::string& target) {
        return [number, target](pid_t child, const SystemCall& call) {
            return call.number == number && descriptorPath(child, call.arguments[0]) == target;
        };
    };
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
    int asked = 0;
    const auto isUnlocking = [&](pid_t child, const SystemCall& call) {
        return isOn(SYS_fcntl, lock)(child, call) && ++asked == 2;  // behind the one that locks
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
    lay("");
    (void)addService(1);
    const std::size_t length = bytesOf(file_).value_or("").size();
    (void)addService(2);
    // Carried once, an image says of each field whether it is there, and is carried as it stands from then on.
    std::string images = bytesOf(file_).value_or("").substr(0, length);
    while (images.size() < 256UL * 1024) {
        images += images;
    }
    lay(images);
    expectFailing({"GenRegBin::Add", 590, REG_COPY_WRITE_FAILED}, REG_ADD_SERVICE_FAILED, ENOSPC,
                  isOn(SYS_write, path(".tmp")), [&] { return addService(3); });
    const auto synchronise = [] {
        GlobalReg global;
        return genregSyncGlobalRegFixpackNumber(&global, nullptr);
    };
    lay("");
    expectFailing({"genregSyncGlobalRegFixpackNumber", 50, REG_OPEN_FAILED}, REG_OPEN_FAILED, EIO,
                  isOn(SYS_close, file_), synchronise);
    const auto appendFirst = [&] {
        std::filesystem::remove(file_);
        Text text(file_, REG_FEATURE_ALLOW_DUPLICATES);
        GenRegVarValRecord record = pair("a", "1");
        return text.Add(VARVAL_MATCH_VARIABLE, &record);
    };
    expectFailing({"CloseReg", 20, OSS_SYSTEM_ERROR_BASE + EIO}, 0, EIO, isOn(SYS_fsync, rig_.scratch()), appendFirst);
}

// The change log has a fixed place, so this goes on in a world of its own.
void Refusals::changeLog() {
    if (!grantsOwnWorld() || !canFailCalls()) {
        rig_.skip("a change log that cannot be written", "only as root, who is granted mounts and traces");
        return;
    }
    const auto apart = [&](const std::function<bool(pid_t, const SystemCall&)>& picks, const Point& point) {
        lay("");
        expectFailing(point, 0, EIO, picks,
                      [&] { return enterOwnWorld() && ::mknod(LOG, S_IFREG | 0666, 0) == 0 ? addService(1) : 1U; });
    };
    for (const auto& [number, probe] : {std::pair{SYS_write, 20U}, std::pair{SYS_close, 30U}}) {
        apart(
            [number = number](pid_t child, const SystemCall& call) {
                return call.number == number && descriptorPath(child, call.arguments[0]) == LOG;
            },
            {"GlobalReg::Log", probe, OSS_SYSTEM_ERROR_BASE + EIO});
    }
}

}  // namespace prove
