#include "genreg/core/LockNote.h"

#include <genreg/Codes.h>
#include <genreg/LockStatus.h>
#include <osse/Text.h>
#include <osse/Time.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "genreg/core/FunctionTrace.h"
#include "platform/posix/Posix.h"

using genreg::Function;
using genreg::OperationTrace;

namespace {

// The note has one length, so that a shorter one never leaves the tail of a longer one behind.
constexpr std::size_t NOTE_SIZE = 128;

constexpr char NOTE_START[] = "pid=";

// Whether the file, which has no other name, is empty or holds a note.
bool takesNote(int descriptor) noexcept {
    constexpr std::size_t START_SIZE = sizeof NOTE_START - 1;
    char start[START_SIZE];
    std::size_t got = 0;
    posix::FileStatus status = {};
    if (posix::statusOf(descriptor, &status) != 0 || !status.regular || status.links != 1) {
        return false;
    }
    return status.size == 0 ||
           (status.size == NOTE_SIZE && posix::readAt(descriptor, start, START_SIZE, 0, &got) == 0 &&
            got == START_SIZE && std::memcmp(start, NOTE_START, START_SIZE) == 0);
}

struct Note {
    GenRegLockNote shown;
    unsigned long long start;  // of the process; 0: not told
};

Note readNote(const char* path) noexcept {
    Note note = {};
    int descriptor = -1;
    if (posix::openToRead(path, &descriptor) != 0) {
        return note;
    }
    char text[NOTE_SIZE + 1] = {};
    std::size_t got = 0;
    if (posix::readAt(descriptor, text, NOTE_SIZE, 0, &got) == 0 && got == NOTE_SIZE) {
        Note read = {};
        GenRegLockNote& shown = read.shown;
        if (std::sscanf(text, "pid=%ld since=%ld program=%63[^\n] start=%llu", &shown.pid, &shown.since, shown.program,
                        &read.start) >= 3) {
            for (std::size_t end = std::strlen(shown.program); end > 0 && shown.program[end - 1] == ' '; --end) {
                shown.program[end - 1] = '\0';
            }
            note = read;
        }
    }
    (void)posix::closeDescriptor(descriptor);
    return note;
}

// Whether the process that left the note still runs: a number is given to others in time.
bool stillRuns(const Note& note) noexcept {
    const unsigned long long start = posix::processStart(note.shown.pid);
    return posix::isAlive(note.shown.pid) && (start == 0 || note.start == 0 || start == note.start);
}

// The last to write a note need not be who holds the lock now: whoever may read the lock file can hold it without one.
GenRegLockNote holderOf(const char* path, const Note& note) noexcept {
    const long suspect = stillRuns(note) ? note.shown.pid : 0;
    const long holder = posix::findLockHolder(path, suspect);
    if (holder != 0 && holder == suspect) {
        return note.shown;
    }
    GenRegLockNote seen = {};
    seen.pid = holder;
    if (holder != 0) {
        posix::programOf(holder, seen.program, sizeof seen.program);
    }
    return seen;
}

}  // namespace

void genreg::writeLockNote(int descriptor, const char* program) noexcept {
    if (!takesNote(descriptor)) {
        return;
    }
    char note[NOTE_SIZE + 1];
    OSSTime now = {};
    (void)ossTimeGetUTC(&now);
    std::memset(note, ' ', NOTE_SIZE);
    const long process = posix::processId();
    const unsigned long length =
        ossSnprintf(note, NOTE_SIZE, "pid=%ld since=%ld program=%-63.63s start=%llu", process, now.seconds,
                    program != nullptr ? program : posix::programName(), posix::processStart(process));
    note[length] = ' ';
    std::replace(note, note + NOTE_SIZE, '\n', ' ');
    note[NOTE_SIZE - 1] = '\n';
    (void)posix::writeAt(descriptor, note, NOTE_SIZE, 0);
}

extern "C" unsigned int genregLockStatus(const char* lockPath, GenRegLockNote* note) {
    OperationTrace trace{Function::GenregLockStatus};
    if (lockPath == nullptr) {
        return trace.fail(10, REG_NULL_POINTER);
    }
    bool locked = false;
    if (const unsigned int rc = posix::isLocked(lockPath, &locked)) {
        return trace.fail(20, rc, rc);
    }
    if (note != nullptr) {
        const Note left = readNote(lockPath);
        *note = locked ? holderOf(lockPath, left) : left.shown;
    }
    return trace.exit(locked ? static_cast<unsigned int>(REG_LOCK_HELD) : 0U);
}
