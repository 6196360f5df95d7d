// What a registry object knows beyond its fields, and the steps that its operations are made of. It lives in the
// object, in the room that GenRegFile.h keeps for it, from the constructor to the destructor.
#pragma once

#include <genreg/GenRegFile.h>

#include <new>

#include "genreg/core/Input.h"
#include "genreg/core/UpdateFiles.h"
#include "platform/posix/Posix.h"

namespace genreg {

class Batch;
class KeptContents;

class FileInternals {
public:
    explicit FileInternals(GenRegFile& file) noexcept : file_(file) {}
    FileInternals(const FileInternals&) = delete;
    FileInternals& operator=(const FileInternals&) = delete;

    [[nodiscard]] static FileInternals& of(GenRegFile& file) noexcept {
        return *std::launder(reinterpret_cast<FileInternals*>(file.room_));
    }

    // The read-ahead of the open scan, where the stream stands; null when there is no memory.
    [[nodiscard]] Input* scanInput() noexcept;
    // Moves the stream to where the read-ahead is, for a client that reads from it.
    void placeStream() noexcept;
    // Lets the streams of scans that are opened from now on stand where they begin: for those that nobody reads from.
    void leaveStream() noexcept { leavesStream_ = true; }
    // Gives the stream of an open scan the scan's position, for reads that go through the stream itself; the next
    // GetNext goes on where they stop.
    void handOverStream() noexcept;
    // Opens the registry file for a look-up, which nobody else sees: what OpenReg(REG_OP_READ) does, without a stream.
    // False, and nothing is open, when that would do more than open and lock it, or may fail.
    [[nodiscard]] bool openToLook(posix::ReadFile* file, posix::FileStatus* status = nullptr) const noexcept;
    // Ends it; answers, logs and notes what CloseReg does. unlocks: the lock goes first, by itself.
    [[nodiscard]] static unsigned int closeLooked(const posix::ReadFile& file, bool unlocks) noexcept;

    // The steps of an update (UpdateFiles.cpp). Where nobody sees more of it than its result, both files stay open from
    // the copy to the end, without streams; elsewhere each step is what OpenReg and CloseReg do. The files are the
    // update's; they are this object's from the first step to the last.
    [[nodiscard]] unsigned int openToCopy(unsigned long op, UpdateFiles& files) noexcept;
    [[nodiscard]] Input& input() const noexcept;
    [[nodiscard]] Output& output() const noexcept { return files_->output; }
    [[nodiscard]] bool isUpdating() const noexcept { return files_ != nullptr; }
    [[nodiscard]] bool hasCopy() const noexcept { return file_.tmpFp != nullptr || files_->copy.descriptor != -1; }
    // What refuses the update may be a change whose name is not on the medium yet; then settle() sees to it.
    void doubtNames() noexcept;
    // The same at once, of what was read of the registry file of the descriptor.
    void settleNames(int descriptor) noexcept;
    [[nodiscard]] unsigned int closeCopied(unsigned long op, CopyFate fate) noexcept;
    // For the verification, with or without an update around it. What OpenReg answers; *unread is the platform's code
    // when that is 0 and nobody can tell how long the copy is.
    [[nodiscard]] Input& inputOr(Input& own) const noexcept { return files_ != nullptr ? files_->input : own; }
    [[nodiscard]] unsigned int openToCompare(Input& before, Input& after, unsigned int* unread) noexcept;
    [[nodiscard]] unsigned int closeCompared(unsigned long op) noexcept;
    // The last step, which needs no lock: the folder is synced where it has to be, and what only the old file still has
    // on the medium is given back.
    void settle() noexcept;

    // What Get may answer from, if it is current; null while nothing is kept, and where a look-up has to read.
    [[nodiscard]] KeptContents* keptContents() const noexcept;

    // The batch that is open: updates and look-ups are made in it; null: there is none.
    [[nodiscard]] Batch* batch() const noexcept { return batch_; }
    // The files of an update in it, which are in memory, from its first step to its last; null ends it.
    void useInBatch(UpdateFiles* files) noexcept { files_ = files; }
    // How long the registry is, in bytes; the platform's code.
    [[nodiscard]] unsigned int sizeOfRegistry(unsigned long* size) const noexcept;

    // Points a read-ahead at the first record of the open registry file.
    void readRegistry(Input& input) const noexcept;
    // Whether an add looks at nothing that is there: duplicates do not matter, and nothing is verified. It appends to
    // the registry file itself, but for in a batch.
    [[nodiscard]] bool addsBlindly() const noexcept;
    [[nodiscard]] bool addsInPlace() const noexcept { return addsBlindly() && batch_ == nullptr; }

    // What a forked child finds in use, and which is its parent's.
    [[nodiscard]] bool holdsParentsLock() const noexcept;
    [[nodiscard]] bool holdsParentsFiles() const noexcept;
    [[nodiscard]] bool copyIsParents() const noexcept;

private:
    friend class ::GenRegFile;

    // GetAndSetRealRegistryPaths; the platform's code when nobody can tell whether the path is a link.
    [[nodiscard]] unsigned int moveToRealFile() noexcept;
    [[nodiscard]] unsigned int takeLock(OSSHFile& handle, const char* path, const OSSFileLockRequest& request,
                                        unsigned long first = 0) noexcept;
    [[nodiscard]] unsigned int takeLockFile(bool exclusive, bool waits) noexcept;
    [[nodiscard]] bool borrowsHere() const noexcept;
    [[nodiscard]] static unsigned int thisProcess() noexcept;

    [[nodiscard]] unsigned int openRegistryHandle(unsigned int access) noexcept;
    [[nodiscard]] unsigned int lockRegistryFile(unsigned int kind) noexcept;
    [[nodiscard]] unsigned int openRegistryStream(char mode) noexcept;
    [[nodiscard]] unsigned int openRegistryFile(unsigned long op) noexcept;
    [[nodiscard]] unsigned int createTemporaryCopy() noexcept;
    [[nodiscard]] unsigned int createFreshCopy(bool appending, int* descriptor) noexcept;
    [[nodiscard]] bool keepsFiles() const noexcept { return files_ != nullptr && files_->registry.descriptor != -1; }
    [[nodiscard]] bool keepsParentsFiles() const noexcept;
    [[nodiscard]] unsigned int copyKept(const posix::FileStatus& registry) noexcept;
    [[nodiscard]] bool stillNamed(posix::FileStatus* registry, posix::FileStatus* copy) const noexcept;
    unsigned int closeKept() noexcept;
    [[nodiscard]] bool defersNames() const noexcept;
    void syncNames() noexcept;
    [[nodiscard]] unsigned int readTemporaryCopy() noexcept;
    [[nodiscard]] bool usesChecksumHeader() const noexcept;
    [[nodiscard]] static unsigned int refuseParentsFile() noexcept;
    [[nodiscard]] static unsigned int attributesNotCarried(unsigned int platformCode) noexcept;
    [[nodiscard]] static unsigned int copyNotClosed(unsigned int platformCode) noexcept;
    [[nodiscard]] static unsigned int registryNotClosed(unsigned int platformCode) noexcept;
    [[nodiscard]] unsigned int judgeHeader(int descriptor, unsigned long size, unsigned long* body,
                                           unsigned int* platformCode) noexcept;

    [[nodiscard]] unsigned int finishAppend(bool keep) noexcept;
    [[nodiscard]] bool closeRegistryStream() noexcept;
    unsigned int closeRegistryFile() noexcept;
    unsigned int closeTemporaryCopy(bool written) noexcept;
    [[nodiscard]] unsigned int writeCopyOut(bool whole) noexcept;
    [[nodiscard]] unsigned int stampTemporaryCopy(unsigned int* checksum) noexcept;
    [[nodiscard]] unsigned int commit(unsigned int checksum) noexcept;
    void widenScanStream() noexcept;
    void dropScanInput() noexcept;

    GenRegFile& file_;
    OSSHFile regHandle_;              // owns the lock of regFp
    Input* scanInput_ = nullptr;      // read-ahead of an open scan
    long scanStream_ = 0;             // where the scan left regFp; elsewhere a client has moved it
    char* scanBuffer_ = nullptr;      // stdio's buffer of regFp while a scan is open
    UpdateFiles* files_ = nullptr;    // of the update that is made
    unsigned long regBody_ = 0;       // where the first record of regFp begins
    unsigned long tmpBody_ = 0;       // and of tmpFp, when it is read
    unsigned long regSize_ = 0;       // of the registry file when it was opened, in bytes
    bool leavesStream_ = false;       // the stream does not follow the scan
    bool regStreamOnHandle_ = false;  // regFp was opened on the descriptor of regHandle_
    bool regCreated_ = false;         // OpenReg made the registry file
    bool regAppends_ = false;         // regFp is open for appending, not for reading
    unsigned int copyMaker_ = 0;      // the process that last made or opened the copy; 0: none did
    long lockWaitLimit_ = -1;
    GenRegLockNotice lockNotice_ = nullptr;
    void* lockNoticeContext_ = nullptr;
    GenRegLockLoan loan_ = {-1, 0, 0};  // under which the lock file is locked, where it is true
    unsigned long lockedFrom_ = 0;      // the first byte of the lock file that this object's lock covers
    KeptContents* kept_ = nullptr;      // null: nothing is to be kept
    Batch* batch_ = nullptr;
};

}  // namespace genreg
