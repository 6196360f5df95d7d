// A handle on one open file, with a lock that belongs to the open file.
//
// The handle is a plain value around a descriptor: its destructor closes nothing, so that a descriptor can be handed
// on to a stdio stream. Whoever keeps the descriptor in the handle ends with close(); whoever hands it on ends with
// unlock() followed by closing the stream.
//
// Locks. POSIX record locks of the classic kind belong to the process and vanish when *any* descriptor of the file is
// closed; two threads with a handle each would not exclude each other. The handle therefore takes locks that belong to
// the open file: F_OFD_SETLK, or flock where the system has none. They conflict with classic locks of other programs,
// flock's where that system's kernel lets the two meet (macOS does, Linux does not, and is built with flock for tests
// alone). A forked child shares the open file and with it the lock; a fork handler closes the child's copy of every
// descriptor that was opened or locked through a handle and neither unlocked nor closed since, so that a lock dies
// with its owner, and a handle that was open before the fork counts as closed in the child. A stdio stream over such a
// descriptor is not the child's to use either.
//
// Every call is retried when a signal interrupts it, descriptors are close-on-exec, and 0 to 2 are never handed out.
// Results: 0, or a code of ossErrorMapSystem. A handle serves one thread at a time.
#pragma once

#include <osse/Export.h>

constexpr unsigned int OSS_REQUEST_VERSION = 0x0A010000;

constexpr unsigned int OSS_ACCESS_READ = 1;        // read only; a missing file is never created
constexpr unsigned int OSS_ACCESS_READ_WRITE = 2;  // read and write; a missing file is created, a link is refused
constexpr unsigned int OSS_ACCESS_CREATE = 4;      // read and append; a missing file is created
// A file is created where nothing stands, a link that leads nowhere included.

constexpr unsigned int OSS_LOCK_EXCLUSIVE = 1;
constexpr unsigned int OSS_LOCK_SHARED = 2;

constexpr unsigned int OSS_WAIT = 1;
constexpr unsigned int OSS_NO_WAIT = 2;

constexpr unsigned int OSS_OPEN_PLAIN = 2;  // the only way of opening that this platform knows

struct OSSFileOpenRequest {
    unsigned int version;       // OSS_REQUEST_VERSION, else the request is refused
    const char* path;           // not kept
    unsigned int disposition;   // OSS_OPEN_PLAIN
    unsigned int access;        // OSS_ACCESS_*
    unsigned int reserved;      // 0
    unsigned long permissions;  // of a file that the open creates, less the process's umask
};

struct OSSFileLockRequest {
    unsigned int version;  // OSS_REQUEST_VERSION
    unsigned int type;     // OSS_LOCK_*
    unsigned int wait;     // OSS_WAIT blocks; OSS_NO_WAIT answers OSS_WOULD_BLOCK when the lock is held elsewhere
};

class OSSE_EXPORT OSSHFile {
public:
    OSSHFile() noexcept = default;
    ~OSSHFile() noexcept = default;
    OSSHFile(const OSSHFile&) = delete;
    OSSHFile& operator=(const OSSHFile&) = delete;

    // Opens request->path. A descriptor that the handle still held is forgotten, not closed.
    [[nodiscard]] unsigned int open(const OSSFileOpenRequest* request) noexcept;

    // Locks the whole file, however long it grows. A lock already held by the handle is converted.
    [[nodiscard]] unsigned int lock(const OSSFileLockRequest* request) noexcept;

    // Gives the lock back; the file stays open.
    [[nodiscard]] unsigned int unlock() noexcept;

    // Closes the descriptor (and so gives back its lock). The handle is closed afterwards, whatever the result.
    [[nodiscard]] unsigned int close() noexcept;

    // The descriptor, or -1 when the handle is closed.
    [[nodiscard]] int getFileHandle() const noexcept;

private:
    int descriptor_ = -1;
    unsigned int forkGeneration_ = 0;  // a handle opened before the last fork is no handle of this process
};
