// The signal to the monitor.
#include <fcntl.h>

#include <csignal>
#include <thread>

#include "global/Records.h"

namespace {

constexpr char LOCK[] = "/var/rvn/.fmcd.lock";

int descriptorsOfLock() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        const std::string target = std::filesystem::read_symlink(entry.path(), ignored).string();
        count += target.starts_with(LOCK) ? 1 : 0;
    }
    return count;
}

// Locks the file as a monitor does; its descriptor, or -1.
int holdLock() {
    const int file = ::open(LOCK, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    return ::fcntl(file, F_SETLK, &lock) == 0 ? file : -1;
}

// A process that holds the monitor's lock and ends with the signal's number.
class Monitor {
public:
    Monitor() {
        int ready[2];
        EXPECT_EQ(::pipe(ready), 0);
        child_ = ::fork();
        if (child_ == 0) {
            waitForSignal(ready[1]);
        }
        char byte = 0;
        EXPECT_EQ(::read(ready[0], &byte, 1), 1);
        ::close(ready[0]);
        ::close(ready[1]);
    }
    ~Monitor() {
        if (child_ > 0) {
            (void)signalReceived();
        }
    }
    // The hangup, or 0 when it got none so far.
    int signalReceived() {
        ::kill(child_, SIGTERM);
        return waitFor(std::exchange(child_, -1));
    }

private:
    [[noreturn]] static void waitForSignal(int ready) {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGHUP);
        sigaddset(&signals, SIGTERM);
        sigprocmask(SIG_BLOCK, &signals, nullptr);
        if (holdLock() == -1 || ::write(ready, "", 1) != 1) {
            ::_exit(99);
        }
        int signal = 0;
        sigwait(&signals, &signal);
        ::_exit(signal == SIGHUP ? SIGHUP : 0);
    }
    pid_t child_ = -1;
};

using Notification = InPrivateWorld<GlobalRegistry>;

TEST_F(Notification, WithoutAMonitorThereIsNothingToDo) {
    EXPECT_EQ(GlobalReg::Notify(), 0U);
    EXPECT_EQ(fmcNotify(), 0U);
    EXPECT_FALSE(exists(LOCK)) << "never created";
    ASSERT_EQ(::mkdir(LOCK, 0755), 0);
    EXPECT_EQ(fmcNotify(), 0U);
    remove(LOCK);
    write(LOCK, "a note");
    EXPECT_EQ(GlobalReg::Notify(), 0U) << "there, but nobody holds it";
    EXPECT_EQ(read(LOCK), "a note");
}

TEST_F(Notification, OneDescriptorServesAllChanges) {
    write(LOCK, "");
    {
        Monitor monitor;
        for (int round = 0; round < 50; ++round) {
            EXPECT_EQ(GlobalReg::Notify(), 0U);
        }
        EXPECT_EQ(descriptorsOfLock(), 1);
        EXPECT_EQ(monitor.signalReceived(), SIGHUP);
    }
    // A monitor that was installed anew has a new file, which the old descriptor says nothing of.
    remove(LOCK);
    Monitor monitor;
    OSSServiceInfo_t info = {};
    info.versionCode = VERSION_9_7_0_2;
    put(info.service, "RVN");
    EXPECT_EQ(ossSetServiceInfo(&info), 0U);
    EXPECT_EQ(monitor.signalReceived(), SIGHUP) << "every change is announced";
    EXPECT_EQ(descriptorsOfLock(), 2) << "the replaced one is never closed";
}

TEST_F(Notification, ThreadsShareTheDescriptor) {
    write(LOCK, "");
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([] {
            for (int round = 0; round < 200; ++round) {
                EXPECT_EQ(fmcNotify(), 0U);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(descriptorsOfLock(), 1);
}

// The process that is the monitor itself may change the registry: its own lock survives, with closed standard streams
// too, whose numbers an open would take.
TEST_F(Notification, TheMonitorKeepsItsOwnLock) {
    for (const bool closed : {false, true}) {
        EXPECT_EQ(inChild([closed] {
                      const int file = holdLock();
                      if (closed) {
                          (void)::close(STDIN_FILENO);
                      }
                      const bool told = file != -1 && fmcNotify() == 0 && GlobalReg::Notify() == 0;
                      return told && inChild([] { return holdLock() == -1 ? 0 : 1; }) == 0 ? 0 : 1;
                  }),
                  0)
            << closed;
    }
}

// An unprivileged process can neither open root's lock file nor signal root's monitor.
TEST_F(Notification, FailuresHaveTheirCodes) {
    Monitor monitor;
    const auto asNobody = [](unsigned int (*notify)(), unsigned int expected) {
        return inChild([&] { return ::setuid(65534) == 0 && notify() == expected ? 0 : 1; });
    };
    EXPECT_EQ(asNobody(GlobalReg::Notify, 0x900003f3), 0);
    EXPECT_EQ(asNobody(fmcNotify, 0x9000010d), 0) << "the platform's code of the open that was refused";
    ASSERT_EQ(::chmod(LOCK, 0666), 0);
    EXPECT_EQ(asNobody(GlobalReg::Notify, 0x900003f3), 0);
    EXPECT_EQ(asNobody(fmcNotify, 0x900003f4), 0);
    EXPECT_EQ(monitor.signalReceived(), 0);
}

}  // namespace
