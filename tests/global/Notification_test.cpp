// The signal to the monitor.
#include <fcntl.h>

#include <csignal>
#include <thread>

#include "global/GlobalRecords.h"

namespace {

constexpr char LOCK[] = "/var/rvn/.fmcd.lock";

int openDescriptors() {
    int count = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        count += ::fcntl(descriptor, F_GETFD) != -1 ? 1 : 0;
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

// A process that holds the monitor's lock, which a signal ends.
class Monitor {
public:
    Monitor() {
        int ready[2];
        EXPECT_EQ(::pipe(ready), 0);
        child_ = ::fork();
        if (child_ == 0) {
            ::signal(SIGHUP, SIG_DFL);
            (void)!::write(ready[1], holdLock() != -1 ? "+" : "-", 1);
            ::pause();
        }
        char sign = 0;
        EXPECT_EQ(::read(ready[0], &sign, 1), 1);
        EXPECT_EQ(sign, '+');
        ::close(ready[0]);
        ::close(ready[1]);
    }
    ~Monitor() { (void)end(); }
    // Ends it, if it still runs; the signal that did end it.
    int end() {
        if (child_ > 0) {
            ::kill(child_, SIGTERM);
            signal_ = -waitFor(std::exchange(child_, -1));
        }
        return signal_;
    }

private:
    pid_t child_ = -1;
    int signal_ = 0;
};

using Notification = InPrivateWorld<GlobalScratch>;

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
    const int before = openDescriptors();
    {
        Monitor monitor;
        for (int round = 0; round < 50; ++round) {
            EXPECT_EQ(GlobalReg::Notify(), 0U);
        }
        EXPECT_EQ(openDescriptors() - before, 1);
        EXPECT_EQ(monitor.end(), SIGHUP);
    }
    // A monitor that was installed anew has a new file, which the old descriptor says nothing of.
    remove(LOCK);
    Monitor monitor;
    OSSServiceInfo_t info = {};
    info.versionCode = VERSION_9_7_0_2;
    put(info.service, "RVN");
    EXPECT_EQ(ossSetServiceInfo(&info), 0U);
    EXPECT_EQ(monitor.end(), SIGHUP) << "every change is announced";
    EXPECT_EQ(openDescriptors() - before, 2) << "the replaced one is never closed";
}

TEST_F(Notification, ThreadsShareTheDescriptor) {
    write(LOCK, "");
    const int before = openDescriptors();
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
    EXPECT_EQ(openDescriptors() - before, 1);
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
    ASSERT_EQ(::chmod(std::filesystem::path(registry()).parent_path().c_str(), 0777), 0);
    EXPECT_EQ(asNobody(
                  [] {
                      OSSServiceInfo_t info = {};
                      info.versionCode = VERSION_9_7_0_2;
                      put(info.service, "RVN");
                      const unsigned int code = ossSetServiceInfo(&info);
                      GenRegCause cause = {};
                      genregLastCause(&cause);
                      return code != 0 ? code : cause.code;
                  },
                  0),
              0)
        << "a change that nobody is told of is made, and tells of no failure";
    ASSERT_EQ(::chmod(LOCK, 0666), 0);
    EXPECT_EQ(asNobody(GlobalReg::Notify, 0x900003f3), 0);
    EXPECT_EQ(asNobody(fmcNotify, 0x900003f4), 0);
    EXPECT_EQ(monitor.end(), SIGTERM);
}

}  // namespace
