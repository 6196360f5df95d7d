// The life of a registry object.
#include <osse/Errors.h>

#include <cerrno>
#include <cstdlib>

#include "genreg/core/Batch.h"
#include "genreg/core/FileInternals.h"
#include "genreg/core/FunctionTrace.h"
#include "genreg/core/KeptContents.h"
#include "platform/posix/Posix.h"

using genreg::FileInternals;
using genreg::Function;
using genreg::FunctionTrace;

GenRegFile::GenRegFile() noexcept {
    const FunctionTrace trace{Function::GenRegFile};
    static_assert(sizeof(FileInternals) <= ROOM_SIZE && alignof(FileInternals) <= alignof(void*));
    regPath[0] = bkpPath[0] = tmpPath[0] = corPath[0] = lockPath[0] = '\0';
    new (room_) FileInternals(*this);
}

GenRegFile::~GenRegFile() noexcept {
    FunctionTrace trace{Function::DestroyGenRegFile};
    FileInternals& inside = FileInternals::of(*this);
    inside.dropScanInput();
    // Not only a lock that is held: a failed one has left its file open too.
    if (lockFile.getFileHandle() >= 0) {
        if (const unsigned int rc = lockFile.close()) {
            trace.ignore(10, REG_CLOSE_LOCK_FAILED, rc);
        }
    }
    if (regFp != nullptr && !inside.closeRegistryStream()) {
        trace.ignore(20, REG_CLOSE_FILE_FAILED, ossErrorMapSystem(errno));
    }
    if (tmpFp != nullptr && !posix::closeStream(tmpFp)) {
        trace.ignore(30, REG_CLOSE_TMP_FAILED, ossErrorMapSystem(errno));
    }
    delete inside.kept_;
    delete inside.batch_;
    inside.~FileInternals();
    state = REG_STATE_INITIAL;
}

// Never 0.
unsigned int FileInternals::thisProcess() noexcept {
    return posix::forkGeneration() + 1;
}

// A handle that was open before a fork counts as closed in the child.
bool FileInternals::holdsParentsLock() const noexcept {
    return (file_.state & REG_STATE_LOCKED) != 0 && file_.lockFile.getFileHandle() < 0;
}

bool FileInternals::copyIsParents() const noexcept {
    return copyMaker_ != 0 && copyMaker_ != thisProcess();
}

bool FileInternals::holdsParentsFiles() const noexcept {
    return (file_.regFp != nullptr && regStreamOnHandle_ && regHandle_.getFileHandle() < 0) ||
           (file_.tmpFp != nullptr && copyIsParents());
}

unsigned int GenRegFile::Load(unsigned long /*reserved*/) noexcept {
    FunctionTrace trace{Function::Load};
    return trace.exit(0);
}

unsigned int GenRegFile::UnLoad(unsigned long /*reserved*/) noexcept {
    FunctionTrace trace{Function::UnLoad};
    return trace.exit(0);
}
