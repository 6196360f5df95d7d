// What the registry needs of the operating system beyond the maker's support libraries. Linked into the library itself.
// Together with the two stand-ins this is the only place that knows one operating system from another.
//
// Every call is retried when a signal interrupts it. Results: 0, or a code of ossErrorMapSystem, unless a line says
// otherwise. Descriptors handed out are close-on-exec and never 0 to 2.
#pragma once

#include <cstddef>
#include <cstdio>

namespace posix {

// --- files by path -----------------------------------------------------------------------------------------------

// Whether anything stands at the path; a link counts as itself and is not followed. Where nobody can tell, yes.
[[nodiscard]] bool exists(const char* path) noexcept;

// Where the link at the path leads, terminated, into target: the length (cut to size - 1). -1 with errno when it cannot
// be read, EINVAL when it is no link.
[[nodiscard]] long readLink(const char* path, char* target, std::size_t size) noexcept;

// A file that did not exist before, open for reading and writing (appending: every write goes to its end), with no
// permissions for anyone but its owner. Never through a link. *descriptor is -1 on failure.
[[nodiscard]] unsigned int createFresh(const char* path, bool appending, int* descriptor) noexcept;

[[nodiscard]] unsigned int linkFile(const char* from, const char* to) noexcept;

// --- versions ----------------------------------------------------------------------------------------------------

// What tells one version of a file from another, as far as it is written in the ways that set its times.
struct FileVersion {
    unsigned long device;
    unsigned long inode;
    unsigned long size;
    long long modified;  // nanoseconds since 1970
    long long changed;

    [[nodiscard]] bool operator==(const FileVersion&) const noexcept = default;
};

// Of a regular file; a link is not followed. False for anything else, and where nobody can tell.
[[nodiscard]] bool versionAt(const char* path, FileVersion* version) noexcept;
[[nodiscard]] bool versionOf(int descriptor, FileVersion* version) noexcept;
// Whether the next write is certain to set other times.
[[nodiscard]] bool isSettled(const FileVersion& version) noexcept;
// A descriptor that keeps the number of the file at the path from being given to another, though not the right to read
// it where the system has a way; -1 when there is none.
[[nodiscard]] int pinFile(const char* path) noexcept;
// Whether the file's times are this machine's to set, and seen by it at once.
[[nodiscard]] bool isLocalFile(int descriptor) noexcept;

// --- open files --------------------------------------------------------------------------------------------------

struct FileStatus {
    unsigned long size;
    unsigned long permissions;
    unsigned long device;
    unsigned long inode;
    unsigned int owner;
    unsigned int group;
    unsigned long links;  // names of the file
    bool regular;
};

[[nodiscard]] unsigned int statusOf(int descriptor, FileStatus* status) noexcept;
// Of what stands at the path; a link counts as itself.
[[nodiscard]] unsigned int statusAt(const char* path, FileStatus* status) noexcept;

// Opens an existing file for reading; never through a link at its last part.
[[nodiscard]] unsigned int openToRead(const char* path, int* descriptor) noexcept;

// Opens an existing file for appending (reading: for reading and writing at any place); never through a link at its
// last part and never creating.
[[nodiscard]] unsigned int openToAppend(const char* path, int* descriptor) noexcept;
[[nodiscard]] unsigned int openToPatch(const char* path, int* descriptor) noexcept;
[[nodiscard]] unsigned int closeDescriptor(int descriptor) noexcept;

// Reads up to size bytes at the offset; fewer only at the end of the file. *got is set on success only.
[[nodiscard]] unsigned int readAt(int descriptor, void* buffer, std::size_t size, unsigned long offset,
                                  std::size_t* got) noexcept;

// Writes all of it, or fails.
[[nodiscard]] unsigned int writeAt(int descriptor, const void* bytes, std::size_t size, unsigned long offset) noexcept;

// Writes all of it at the descriptor's own place, in one call to the system; a short write is a failure (ENOSPC, in
// errno too).
[[nodiscard]] unsigned int writeOnce(int descriptor, const void* bytes, std::size_t size) noexcept;

// Writes all of it at the descriptor's own place, in as many calls as it takes; false with errno.
[[nodiscard]] bool writeAll(int descriptor, const void* bytes, std::size_t size) noexcept;

[[nodiscard]] unsigned int truncateTo(int descriptor, unsigned long size) noexcept;

// --- durability and attributes -----------------------------------------------------------------------------------

// The file's contents and length are on the medium when this returns 0.
[[nodiscard]] unsigned int syncFile(int descriptor) noexcept;

// The names in the directory are.
[[nodiscard]] unsigned int syncDirectory(const char* directory) noexcept;

// Gives the file `to` the permission bits of the file `from` (a failure is the result) and, as far as this process may,
// its owner, group, ACL, security label and what users tied to it (their extended attributes; a refusal is not). The
// set-user-ID and set-group-ID bits survive only with owner and group; the group bits of a file whose ACL is refused do
// not survive, for they are the ACL's mask. An ACL that `to` has from its directory and `from` has not is taken away.
[[nodiscard]] unsigned int carryAttributes(int from, int to) noexcept;
// The same, where what they are is known already.
[[nodiscard]] unsigned int carryAttributes(int from, const FileStatus& old, int to, const FileStatus& fresh) noexcept;

// Its ACL and security label alone; false when the ACL is refused.
[[nodiscard]] bool carryAcl(int from, int to) noexcept;

// Permission bits; owner and group, where the group is tried alone when both are refused (the result is the first
// failure).
[[nodiscard]] unsigned int setPermissions(int descriptor, unsigned long permissions) noexcept;
[[nodiscard]] unsigned int setOwner(int descriptor, unsigned int owner, unsigned int group) noexcept;

// --- locks -------------------------------------------------------------------------------------------------------

// Creates an empty lock file when nothing stands at the path, not even a link; what stands there is left alone. As far
// as this process may, it gets the owner, the group and the ACL of the registry. Where everybody may read the registry
// it gets the permissions (less the umask), and is writable for whoever may write the registry; elsewhere it is no more
// readable than the registry is. Without a registry it gets the permissions.
[[nodiscard]] unsigned int createLockFile(const char* path, const char* registry, unsigned long permissions) noexcept;

// A shared lock on an open file, without waiting; it is given back with the descriptor. Whether another open file holds
// any lock on it, for one that has a shared lock itself, which may be lost by asking: it is to be closed next.
[[nodiscard]] unsigned int lockShared(int descriptor) noexcept;
[[nodiscard]] unsigned int isLockedElsewhere(int descriptor, bool* locked) noexcept;

// Parts of a lock on an open file: the bytes from the first one on. Where locks have none, the code of ENOTSUP for any
// part but the whole. The code of EAGAIN where it does not wait, and the lock is held elsewhere.
[[nodiscard]] unsigned int lockTail(int descriptor, bool exclusive, unsigned long first, bool wait) noexcept;
[[nodiscard]] unsigned int unlockTail(int descriptor, unsigned long first) noexcept;
// Whether it is the open file of `holder`, and no other, that has an exclusive lock on the byte. `own` is another open
// file of the same file, whose lock begins behind the byte, so that nobody can take the byte meanwhile together with
// what follows it.
[[nodiscard]] bool holdsByte(int holder, int own, unsigned long byte) noexcept;

// Whether some open file holds a lock on the file that conflicts with an exclusive one. A missing file is not locked; a
// link is not followed.
[[nodiscard]] unsigned int isLocked(const char* path, bool* locked) noexcept;

// The process that holds such a lock, as far as the system lets this one look; 0 when nobody is seen to. The suspect
// (0: none) is looked at first, and is the answer as well when it cannot be looked at and nobody else is seen.
[[nodiscard]] long findLockHolder(const char* path, long suspect) noexcept;

// The monitor's lock: opened read-write, created when missing, never truncated or through a link; then who holds a
// classic record lock on it. *holder is below 1 when nobody does (or when the holder names no process).
[[nodiscard]] unsigned int openMonitorLock(const char* path, int* descriptor) noexcept;
[[nodiscard]] unsigned int recordLockHolder(int descriptor, long* holder) noexcept;

// Whether the descriptor still is the file at the path.
[[nodiscard]] bool isSameFile(int descriptor, const char* path) noexcept;
// The same, where no link may stand: the code of ELOOP for another file, else of why nobody can tell.
[[nodiscard]] unsigned int checkNamed(int descriptor, const char* path) noexcept;

// --- process -----------------------------------------------------------------------------------------------------

[[nodiscard]] unsigned int sendHangup(long process) noexcept;
[[nodiscard]] long processId() noexcept;
[[nodiscard]] unsigned int userId() noexcept;

// The name of the running program, without its path; never null.
[[nodiscard]] const char* programName() noexcept;

// That of another process, cut to the buffer; empty when nobody can tell.
void programOf(long process, char* name, std::size_t size) noexcept;

// When the process started, in a unit of the system's own; no two processes of one number share it. 0: nobody can tell.
[[nodiscard]] unsigned long long processStart(long process) noexcept;
[[nodiscard]] bool isAlive(long process) noexcept;

// --- time --------------------------------------------------------------------------------------------------------

[[nodiscard]] long long monotonicMilliseconds() noexcept;
void sleepMilliseconds(long milliseconds) noexcept;

// --- streams -----------------------------------------------------------------------------------------------------

// A stdio stream that owns the descriptor, or null (the descriptor is then still the caller's). In a forked child it
// leads nowhere: nothing that the child does with it, or its exit does, reaches the file, and it cannot be read.
[[nodiscard]] std::FILE* openStream(int descriptor, const char* mode) noexcept;
[[nodiscard]] int descriptorOf(std::FILE* stream) noexcept;

// Writes out what the stream holds back, an interrupted write again. False with errno; what could not be written is
// dropped.
[[nodiscard]] bool flushStream(std::FILE* stream) noexcept;

// Where a stream that one thread owns stands; -1 where nobody can tell.
[[nodiscard]] long placeOf(std::FILE* stream) noexcept;

// Moves a stream that is open for reading, as fseek does. To a place that is near ahead it reads, which takes a call
// for a buffer of bytes and not one for each move; to others it goes without reading anything there. False with errno.
[[nodiscard]] bool placeStream(std::FILE* stream, unsigned long offset) noexcept;

// False with errno. An interrupted close is a close: the descriptor is gone. What must not be lost is flushed before.
[[nodiscard]] bool closeStream(std::FILE* stream) noexcept;

// How many forks lie between the first process and this one: grows by one in each forked child.
[[nodiscard]] unsigned int forkGeneration() noexcept;

// A regular file that is open for as long as one call takes. In a forked child its descriptor leads nowhere, as those
// of streams do.
struct ReadFile {
    int descriptor = -1;
    unsigned long size = 0;       // in bytes, when the lock was there
    unsigned int generation = 0;  // of the process that opened it
    unsigned long forks = 0;      // of this process before it was opened
    std::size_t place = 0;        // in the table that a fork consults
};

// Opens it for reading under a shared lock, never through a link, and waits for the lock, in as few calls as there can
// be. False when anything stands in the way, a fork meanwhile included: nothing is open then, and no child has the
// lock.
[[nodiscard]] bool openLocked(const char* path, ReadFile* file, FileStatus* status = nullptr) noexcept;
// Takes in a file that was opened after `forks` of them; of this status.
[[nodiscard]] ReadFile guardFile(int descriptor, const FileStatus& status, unsigned long forks) noexcept;
// Closes either, and gives back its lock: by itself first, or, in as few calls as there can be, with the descriptor.
[[nodiscard]] unsigned int closeUnlocked(const ReadFile& file) noexcept;
[[nodiscard]] unsigned int closeLocked(const ReadFile& file) noexcept;

// Locale-free, unlocked writing for streams that one thread owns: true when all of it was taken.
[[nodiscard]] bool writeUnlocked(std::FILE* stream, const void* bytes, std::size_t size) noexcept;

}  // namespace posix
