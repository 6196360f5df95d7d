// What stdio holds back is stdio's own affair, and so is what becomes of it when a signal interrupts its writing: some
// libraries drop it, some keep it, none says how much of it is written. So no signal interrupts it here: all of them
// wait while stdio may write, which it does when it is asked to, or when its buffer is full. It never gets full of what
// is written here, which is counted; what a client writes between is not.
#include <pthread.h>
#include <signal.h>

#include <cstdio>

#include "../../System.h"
#include "../Own.h"
#include "../Posix.h"

namespace posix {
namespace {

constexpr std::size_t SMALLEST_BUFFER = 4096;  // of those that files get by themselves, and that the library gives

class HeldSignals {
public:
    HeldSignals() noexcept {
        sigset_t all;
        sigfillset(&all);
        held_ = ::pthread_sigmask(SIG_SETMASK, &all, &before_) == 0;
    }
    ~HeldSignals() {
        if (held_) {
            (void)::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        }
    }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

private:
    sigset_t before_{};
    bool held_;
};

// The stream that this thread wrote to last, and how much of that may be held back.
thread_local constinit std::FILE* last = nullptr;
thread_local constinit std::size_t pending = 0;

// The stream that this thread sought in last: from then on stdio knows where it stands, without asking the system.
thread_local constinit std::FILE* sought = nullptr;

// Reads on to a place that is near ahead: a call for each buffer of bytes, where a seek is one for each record. False
// where the place lies elsewhere, or the reading failed. An earlier error stays, for the stream's owner.
bool readOnTo(std::FILE* stream, off_t place) noexcept {
    char passed[BUFSIZ];
    const off_t distance = stream == sought && std::ferror(stream) == 0 ? place - ::ftello(stream) : -1;
    if (distance < 0 || distance > static_cast<off_t>(sizeof passed)) {
        return false;
    }
    const auto wanted = static_cast<std::size_t>(distance);
    const bool there = std::fread(passed, 1, wanted, stream) == wanted;
    std::clearerr(stream);
    return there;
}

}  // namespace

bool drain(std::FILE* stream) noexcept {
    const HeldSignals held;
    pending = stream == last ? 0 : pending;
    return std::fflush(stream) == 0;
}

bool closeDrained(std::FILE* stream) noexcept {
    last = stream == last ? nullptr : last;  // another one may get its address
    sought = stream == sought ? nullptr : sought;
    return std::fclose(stream) == 0;
}

bool writeUnlocked(std::FILE* stream, const void* bytes, std::size_t size) noexcept {
    const bool fits = stream == last && size < SMALLEST_BUFFER - pending;
    if (!fits && !drain(stream)) {
        return false;
    }
    last = stream;
    if (size >= SMALLEST_BUFFER) {
        const HeldSignals held;
        pending = SMALLEST_BUFFER - 1;  // of which stdio may keep a part
        return std::fwrite(bytes, 1, size, stream) == size;
    }
    pending = (fits ? pending : 0) + size;
    return std::fwrite(bytes, 1, size, stream) == size;
}

long placeOf(std::FILE* stream) noexcept {
    return static_cast<long>(::ftello(stream));
}

bool placeStream(std::FILE* stream, unsigned long offset) noexcept {
    const auto place = static_cast<off_t>(offset);
    if (readOnTo(stream, place)) {
        return true;
    }
    sought = stream;
    return ::fseeko(stream, place, SEEK_SET) == 0;
}

}  // namespace posix
