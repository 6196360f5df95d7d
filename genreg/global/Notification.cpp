// Wakes the monitor: SIGHUP to the process that holds the lock on its lock file.
//
// That lock is a classic record lock, the kind that names its holder. Closing any descriptor of the file would drop
// such a lock of this process, should it be the monitor itself. So the process keeps one descriptor for it, never
// closes it, and opens another only when the file at the path is a different one.

#include <genreg/GlobalReg.h>
#include <osse/Files.h>

#include <atomic>

#include "genreg/core/FunctionTrace.h"
#include "platform/posix/Posix.h"

using genreg::Function;
using genreg::FunctionTrace;
using genreg::OperationTrace;

namespace {

constexpr char MONITOR_LOCK_PATH[] = "/var/rvn/.fmcd.lock";

constexpr int NOT_OPEN = -1;
constexpr int BEING_OPENED = -2;

// A thread that opens the file is done long before this; one that never ends was left behind by a fork.
constexpr int PATIENCE_MILLISECONDS = 1000;

std::atomic<int> monitorDescriptor{NOT_OPEN};

// What is published, once nobody is about to replace it.
int publishedDescriptor() noexcept {
    int descriptor = monitorDescriptor.load(std::memory_order_acquire);
    for (int waited = 0; descriptor == BEING_OPENED && waited < PATIENCE_MILLISECONDS; ++waited) {
        posix::sleepMilliseconds(1);
        descriptor = monitorDescriptor.load(std::memory_order_acquire);
    }
    return descriptor;
}

unsigned int monitorLock(int* descriptor) noexcept {
    while (true) {
        int current = publishedDescriptor();
        if (current >= 0 && posix::isSameFile(current, MONITOR_LOCK_PATH)) {
            *descriptor = current;
            return 0;
        }
        if (!monitorDescriptor.compare_exchange_strong(current, BEING_OPENED, std::memory_order_acq_rel)) {
            continue;
        }
        int opened = NOT_OPEN;
        const unsigned int rc = posix::openMonitorLock(MONITOR_LOCK_PATH, &opened);
        monitorDescriptor.store(rc == 0 ? opened : NOT_OPEN, std::memory_order_release);
        *descriptor = opened;
        return rc;
    }
}

unsigned int queryHolder(long* holder) noexcept {
    int descriptor = NOT_OPEN;
    if (const unsigned int rc = monitorLock(&descriptor)) {
        return rc;
    }
    return posix::recordLockHolder(descriptor, holder);
}

// 0, the platform's code of a failed query, REG_SIGNAL_FAILED.
unsigned int wakeMonitor(FunctionTrace& trace) noexcept {
    if (!ossIsFile(MONITOR_LOCK_PATH)) {
        return trace.exit(0);  // no monitor is installed
    }
    long holder = 0;
    if (const unsigned int rc = queryHolder(&holder)) {
        return trace.fail(10, rc, rc);
    }
    if (holder < 1) {
        return trace.exit(0);
    }
    if (const unsigned int rc = posix::sendHangup(holder)) {
        return trace.fail(20, REG_SIGNAL_FAILED, rc);
    }
    return trace.exit(0);
}

}  // namespace

unsigned int GlobalReg::Notify() noexcept {
    FunctionTrace trace{Function::GlobalNotify};
    if (wakeMonitor(trace) != 0) {
        return trace.exit(REG_NOTIFY_FAILED);
    }
    return trace.exit(0);
}

unsigned int fmcNotify() {
    OperationTrace trace{Function::FmcNotify};
    return wakeMonitor(trace);
}
