#include "Stepper.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace prove {
namespace {

// A call that does nothing, with an argument that nobody else gives it, is how the child speaks to its tracer.
constexpr long MARK_CALL = SYS_getppid;
constexpr unsigned long BEGIN_MARK = 0x70726f766501UL;
constexpr unsigned long END_MARK = 0x70726f766502UL;

constexpr int CALL_STOP = SIGTRAP | 0x80;

// These touch nothing that outlives the process, and how often they are made depends on what the allocator has at hand.
bool isMemoryCall(long number) {
    constexpr long MEMORY_CALLS[] = {SYS_brk, SYS_mmap, SYS_munmap, SYS_mremap, SYS_mprotect, SYS_madvise, SYS_futex};
    return std::find(std::begin(MEMORY_CALLS), std::end(MEMORY_CALLS), number) != std::end(MEMORY_CALLS);
}

void require(bool holds, const char* what) {
    if (!holds) {
        std::perror(what);
        std::exit(2);
    }
}

#if defined(__x86_64__)

constexpr bool CAN_FAIL_CALLS = true;

void changeRegisters(pid_t child, const std::function<void(user_regs_struct&)>& change) {
    user_regs_struct registers = {};
    require(::ptrace(PTRACE_GETREGS, child, nullptr, &registers) == 0, "PTRACE_GETREGS");
    change(registers);
    require(::ptrace(PTRACE_SETREGS, child, nullptr, &registers) == 0, "PTRACE_SETREGS");
}

void suppress(pid_t child) {
    changeRegisters(child, [](user_regs_struct& registers) { registers.orig_rax = ~0ULL; });
}

void answer(pid_t child, int error) {
    changeRegisters(child, [error](user_regs_struct& registers) {
        registers.rax = static_cast<unsigned long long>(-static_cast<long long>(error));
    });
}

#else

constexpr bool CAN_FAIL_CALLS = false;

void suppress(pid_t) {}
void answer(pid_t, int) {}

#endif

// While it lives the tracer, and so the children that it starts, stay on the processor that it runs on: of the two only
// one runs at a time, and to wake the other one where it left off costs a third of what it costs elsewhere.
class OneProcessor {
public:
    OneProcessor() noexcept : known_(::sched_getaffinity(0, sizeof before_, &before_) == 0) {
        const int here = ::sched_getcpu();
        if (known_ && here >= 0 && here < CPU_SETSIZE) {
            cpu_set_t only;
            CPU_ZERO(&only);
            CPU_SET(static_cast<std::size_t>(here), &only);
            (void)::sched_setaffinity(0, sizeof only, &only);
        }
    }
    ~OneProcessor() {
        if (known_) {
            (void)::sched_setaffinity(0, sizeof before_, &before_);
        }
    }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

private:
    cpu_set_t before_{};
    bool known_;
};

// The child, from its first stop to its end.
class Tracee {
public:
    Tracee(pid_t child, const StepHooks& hooks) : child_(child), hooks_(hooks) {}

    StepResult run() {
        while (goOn()) {
            if (WIFEXITED(status_)) {
                result_.exitCode = WEXITSTATUS(status_);
                return result_;
            }
            if (WIFSIGNALED(status_)) {
                return result_;
            }
            const int stop = WSTOPSIG(status_);
            signal_ = 0;
            const bool exec = status_ >> 16 == PTRACE_EVENT_EXEC;
            if (stop != CALL_STOP) {
                signal_ = exec ? 0 : stop;  // not the stepper's: the child gets it
            } else if (!atCall()) {
                (void)::kill(child_, SIGKILL);
                require(::waitpid(child_, &status_, 0) == child_, "waitpid");
                result_.killed = true;
                return result_;
            }
        }
        return result_;
    }

private:
    bool goOn() {
        const auto request = result_.ended ? PTRACE_CONT : PTRACE_SYSCALL;
        require(::ptrace(request, child_, nullptr, signal_) == 0, "PTRACE_SYSCALL");
        return ::waitpid(child_, &status_, 0) == child_;
    }

    // False when the child is to end here.
    bool atCall() {
        __ptrace_syscall_info info = {};
        require(::ptrace(static_cast<__ptrace_request>(PTRACE_GET_SYSCALL_INFO), child_, sizeof info, &info) > 0,
                "PTRACE_GET_SYSCALL_INFO");
        if (info.op == PTRACE_SYSCALL_INFO_EXIT) {
            if (verdict_.kind == Verdict::Kind::Fail) {
                answer(child_, verdict_.error);
            }
            verdict_ = {};
            return true;
        }
        const auto number = static_cast<long>(info.entry.nr);
        if (number == MARK_CALL && info.entry.args[0] == BEGIN_MARK) {
            inPart_ = true;
        } else if (number == MARK_CALL && info.entry.args[0] == END_MARK) {
            inPart_ = false;
            result_.ended = true;
            hooks_.end(child_);
        } else if (inPart_ && !isMemoryCall(number)) {
            SystemCall call = {result_.calls++, number, {}};
            std::copy_n(info.entry.args, call.arguments.size(), call.arguments.begin());
            verdict_ = hooks_.entry(child_, call);
            if (verdict_.kind == Verdict::Kind::Fail && number != SYS_close) {
                suppress(child_);
            }
        }
        return verdict_.kind != Verdict::Kind::Kill;
    }

    pid_t child_;
    const StepHooks& hooks_;
    StepResult result_;
    Verdict verdict_;
    int status_ = 0;
    int signal_ = 0;
    bool inPart_ = false;
};

}  // namespace

bool canStep() {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : 1);
    }
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool canFailCalls() {
    return CAN_FAIL_CALLS && canStep();
}

void beginPart() {
    (void)::syscall(MARK_CALL, BEGIN_MARK);
}

void endPart() {
    (void)::syscall(MARK_CALL, END_MARK);
}

StepResult step(const std::function<int()>& body, const StepHooks& hooks) {
    (void)std::fflush(nullptr);
    const OneProcessor here;
    const pid_t child = ::fork();
    require(child != -1, "fork");
    if (child == 0) {
        (void)::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        (void)std::raise(SIGSTOP);
        ::_exit(body());
    }
    int status = 0;
    require(::waitpid(child, &status, 0) == child && WIFSTOPPED(status), "the child did not stop");
    constexpr std::uintptr_t OPTIONS = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL | PTRACE_O_TRACEEXEC;
    require(::ptrace(PTRACE_SETOPTIONS, child, nullptr, OPTIONS) == 0, "PTRACE_SETOPTIONS");
    return Tracee{child, hooks}.run();
}

std::string callName(long number) {
    struct Name {
        long number;
        const char* name;
    };
    static constexpr Name NAMES[] = {
        {SYS_openat, "openat"},
        {SYS_close, "close"},
        {SYS_read, "read"},
        {SYS_pread64, "pread"},
        {SYS_write, "write"},
        {SYS_pwrite64, "pwrite"},
        {SYS_fcntl, "fcntl"},
        {SYS_flock, "flock"},
        {SYS_rt_sigprocmask, "sigprocmask"},
        {SYS_fstat, "fstat"},
        {SYS_newfstatat, "fstatat"},
        {SYS_lseek, "lseek"},
        {SYS_fsync, "fsync"},
        {SYS_linkat, "linkat"},
        {SYS_ftruncate, "ftruncate"},
        {SYS_fchmod, "fchmod"},
        {SYS_fchown, "fchown"},
        {SYS_flistxattr, "flistxattr"},
        {SYS_fremovexattr, "fremovexattr"},
        {SYS_kill, "kill"},
#if defined(__x86_64__)
        {SYS_link, "link"},
        {SYS_rename, "rename"},
        {SYS_unlink, "unlink"},
        {SYS_mkdir, "mkdir"},
        {SYS_readlink, "readlink"},
        {SYS_stat, "stat"},
        {SYS_lstat, "lstat"},
        {SYS_access, "access"},
        {SYS_dup2, "dup2"},
#endif
    };
    const auto* const known =
        std::find_if(std::begin(NAMES), std::end(NAMES), [number](const Name& name) { return name.number == number; });
    return known != std::end(NAMES) ? known->name : "call " + std::to_string(number);
}

std::string descriptorPath(pid_t child, unsigned long descriptor) {
    const std::string link = "/proc/" + std::to_string(child) + "/fd/" + std::to_string(descriptor);
    std::array<char, PATH_MAX> target{};
    const ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
    return length > 0 ? std::string(target.data(), static_cast<std::size_t>(length)) : "";
}

bool isLocking(const SystemCall& call) {
    const auto command = static_cast<int>(call.arguments[1]);
    return call.number == SYS_flock ||
           (call.number == SYS_fcntl && (command == F_OFD_SETLK || command == F_OFD_SETLKW));
}

bool isUnlocking(pid_t child, const SystemCall& call) {
    return isLocking(call) &&
           (call.number == SYS_flock ? (call.arguments[1] & LOCK_UN) != 0
                                     : static_cast<short>(wordAt(child, call.arguments[2])) == F_UNLCK);
}

bool allSignalsWait(pid_t child) {
    std::ifstream status("/proc/" + std::to_string(child) + "/status");
    const std::string name = "SigBlk:";
    std::string line;
    while (std::getline(status, line) && !line.starts_with(name)) {
    }
    unsigned long blocked = 0;
    if (!line.starts_with(name) || std::sscanf(line.c_str() + name.size(), "%lx", &blocked) != 1) {
        return false;
    }
    constexpr auto bit = [](int signal) { return 1UL << (signal - 1); };
    constexpr unsigned long NEVER_WAIT = bit(SIGKILL) | bit(SIGSTOP);
    constexpr unsigned long LIBRARYS = bit(32) | bit(33);  // the C library keeps them to itself
    return (blocked | NEVER_WAIT | LIBRARYS) == ~0UL;
}

std::string textAt(pid_t child, unsigned long address) {
    std::string text;
    for (;; address += sizeof(unsigned long)) {
        const unsigned long word = wordAt(child, address);
        for (std::size_t i = 0; i < sizeof word; ++i) {
            const auto byte = static_cast<char>(word >> (8 * i));
            if (byte == '\0' || text.size() == PATH_MAX) {
                return text;
            }
            text += byte;
        }
    }
}

unsigned long wordAt(pid_t child, unsigned long address) {
    return static_cast<unsigned long>(::ptrace(PTRACE_PEEKDATA, child, address, nullptr));
}

}  // namespace prove
