// The file side of a registry object: companion paths, the lock, the open/close transaction and the scan.
//
// Files. A registry P in directory D with base name B has four companions: D/.B.lock (the lock file, never removed),
// P.tmp (the next version while it is written), D/.B.bkp (the previous version during a commit) and P.cor (a temporary
// copy that an interrupted writer left). A registry that is a symbolic link has its companions beside the real file.
//
// An update is bracketed by Lock / UnLock and made between OpenReg(op) and CloseReg(op): the current file is read from
// regFp, the next version is written to tmpFp, and the commit puts it in place:
//   error flag of the copy, flush, sync, close - hard link of the backup - rename - sync of the directory - removal of
//   the backup.
// The engines' updates keep both files open instead of closing them, and sync the directory last, behind the lock and
// before they return: whoever updates after them makes their change durable with its own, and one that is refused
// because of it syncs the directory itself.
// What stands on disk after each outcome:
//   moment                          registry   .tmp      .bkp   .cor
//   after OpenReg(2, 4, 8)          old        empty     -      the stale .tmp, if there was one
//   death while writing             old        partial   -      as before; the next update moves the .tmp there
//   death between link and rename   old        complete  old    -
//   after the commit                new        -         -      unchanged
//
// Locks belong to the open file, so threads of one process exclude each other like processes do. A thread must close
// its own scan before it appends in place through another object.
//
// What an object has in use when its process forks, the child can only drop: its scan cannot be read there
// (REG_READ_FAILED), its lock is not the child's, and no update is opened (REG_OPEN_FILE_FAILED) or closed
// (REG_CLOSE_FILE_FAILED) on it, nor the copy that the parent made committed. An object that was not in use serves
// parent and child alike.
//
// What clients compile in, here and in the engines and schemas: the size of the objects, the order and the types of the
// protected fields, and the types of the slots. A change of one of these wants a new soname. What is private lives in
// rooms of a fixed size, of which no client's code knows: what comes is put there, and the size stays.
#pragma once

#include <genreg/GenRegBase.h>
#include <osse/OSSHFile.h>

#include <cstdio>

// The size in bytes of this record in memory, and of the largest record.
using GenRegGetRecordSize = unsigned int (*)(void* record, unsigned long* size);
using GenRegGetMaxRecordSize = unsigned int (*)(unsigned long* size);

// Told while a lock is waited for: the file whose lock it is (the lock file, or the registry file itself), and how long
// that wait has lasted so far in milliseconds.
using GenRegLockNotice = void (*)(void* context, const char* lockPath, unsigned long waitedMilliseconds);

// A lock that somebody holds, lent to the processes that he starts.
struct GenRegLockLoan {
    int descriptor;      // of the open lock file, which they are to inherit
    unsigned int depth;  // how many loans this one is made under
    unsigned long kind;  // REG_LOCK_EXCLUSIVE or REG_LOCK_SHARED
};

namespace genreg {  // of the library's own, which clients neither see nor name
class FileInternals;
class Transaction;
}  // namespace genreg

class GENREG_EXPORT GenRegFile : public GenRegBase {
public:
    GenRegFile() noexcept;
    // Closes what is still open; deletes no file. Failures are logged.
    ~GenRegFile() noexcept;

    // The five paths. A buffer of at least the path's length plus one gets it (0); a smaller one an empty text and
    // REG_BUFFER_TOO_SMALL; one of size 0 is not touched.
    unsigned int getRegistryPath(char* buffer, unsigned long size) noexcept;
    unsigned int getRegistryBackupPath(char* buffer, unsigned long size) noexcept;
    unsigned int getRegistryLockPath(char* buffer, unsigned long size) noexcept;
    unsigned int getRegistryCorruptTmpPath(char* buffer, unsigned long size) noexcept;
    unsigned int getRegistryTmpPath(char* buffer, unsigned long size) noexcept;

    // Moves all five paths to the real file when the registry path is a symbolic link. Always 0. More than 40 links,
    // or a real path whose companions would not fit, leave the paths as they are.
    unsigned int GetAndSetRealRegistryPaths() noexcept;

    // Add, Change and Delete take the lock and release it by themselves: it is nothing that a client has to do, and an
    // object that holds it is refused there (REG_LOCK_FAILED, because of REG_ALREADY_LOCKED). It is for programs that
    // replace the file by other means, or keep writers out for a while.
    // Takes the lock file: flags REG_LOCK_*, one of exclusive/shared and one of wait/nowait (else
    // REG_INVALID_ARGUMENT). The second argument is ignored. REG_NOT_CONFIGURED, REG_ALREADY_LOCKED,
    // REG_CREATE_DIRECTORY_FAILED, REG_OPEN_LOCK_FAILED, REG_LOCK_HELD (not waiting, or the limit was reached), else
    // the platform's code. After a failed lock the lock file stays open until the next Lock or the end of the object.
    unsigned int Lock(unsigned long flags, unsigned long reserved) noexcept;
    // REG_RELEASE_LOCK_FAILED (the object stays locked), REG_CLOSE_LOCK_FAILED.
    unsigned int UnLock() noexcept;

    // An addition, for programs that start others under the lock. LendLock makes a loan of the lock that this object
    // holds: whoever inherits the descriptor and is told of the loan works under the lock, until UnLock gives it back
    // or the last copy of the descriptor is closed. What the object keeps of an exclusive lock meanwhile still keeps
    // everybody else out. The note in the lock file names the program that it is lent to (may be null: as it was), cut
    // to 63 bytes, but for a loan under another, whose note stands. REG_NULL_POINTER; REG_INVALID_ARGUMENT: the object
    // holds no lock; the platform's code, that of ENOTSUP where locks have no parts: nothing is lent, and the lock is
    // held as before.
    unsigned int LendLock(const char* borrower, GenRegLockLoan* loan) noexcept;
    // An addition. From now on Lock, and with it every update of this object, works under the loan (copied; null: under
    // none, as at first) where that is true: the descriptor is open, it is the object's own lock file, and its open
    // file holds the lock. Anything else is as if there were no loan. Those who work under one loan exclude each other,
    // and what one of them has begun when the loan ends keeps out everybody until it is done. Under a loan of a shared
    // lock nobody waits for the exclusive one, for it would be for whoever lent the other: REG_LOCK_HELD at once.
    // Always 0.
    unsigned int BorrowLock(const GenRegLockLoan* loan) noexcept;

    // A limit for each wait for a lock, in milliseconds; negative (the default) is none. It holds for that on the lock
    // file, where Lock answers REG_LOCK_HELD once it is reached, and for those on the registry file, which a program
    // may hold that knows of no lock file: there OpenReg and OpenScan, and with them every operation, fail with
    // REG_LOCK_FILE_FAILED, the platform's code being OSS_WOULD_BLOCK. The notice, when given, is called every second
    // or so while a lock is held elsewhere; context is handed on to it. Both last as long as the object, or until the
    // next call.
    void SetLockWait(long limitMilliseconds, GenRegLockNotice notice, void* context) noexcept;

    // An addition, for programs that ask often. From now on this object keeps what it last read in memory, at most so
    // many bytes of it (contents and index together, a buffer for one record beside; 0: keeps nothing any more, as at
    // first), and Get answers from there, through an index by the key fields of the schema, as long as one look at the
    // path finds the same file with the same length and times. The codes, the records and what is logged are those of a
    // look-up that reads.
    //
    // What is seen at once: whatever replaces the file (each change of the library's does, or makes it longer under its
    // lock), the removal, a longer or shorter file, a link put in its place, another folder above it, and what is
    // written into it in place, which its times tell. Who changed the file, and has been told so, finds no later answer
    // without the change. A link that the registry's path was is followed at the first look-up and not again, as ever.
    // What is not seen:
    // - A store through a shared mapping, for which no system sets the times before it likes to.
    // - What a write that takes no lock still stores 100 ms after it has set the times. Programs that write in place
    //   are to hold a lock on the file (Lock does not give one), or to replace it.
    // - What is written right after the machine's clock was set back to the very time of the last change.
    // - A lock: nobody who holds one on the registry file is waited for.
    // - Rights that this process gave up since it read the file.
    //
    // A look-up reads the file as ever, and keeps nothing or not yet: while the library is traced, while a scan or a
    // transaction of this object is open, with REG_FEATURE_CHECKSUM_HEADER, when the file is too large, has changed
    // within the last 100 ms (two seconds where times are whole seconds), is met the first time, or lies on a file
    // system that is not known to be the machine's own. A mask or a slot that the index does not speak for is answered
    // from memory without it.
    //
    // One descriptor stays open as long as contents are kept, so that no other file takes the number of this one: a
    // version that was replaced keeps its space until the next look-up, and its file system cannot be unmounted. A
    // forked child has the contents as well. 0, or REG_NO_MEMORY: nothing is kept.
    unsigned int KeepContents(unsigned long mostBytes) noexcept;

    // Several changes, one commit. BeginBatch takes the lock and reads the registry; from then on Add, Change, Delete
    // and Get of this object work on a private copy in memory, with the answers that they give of a file that holds it,
    // and an update that is refused leaves it as it is. CommitBatch writes the copy, holds both files against what was
    // read and what was made, puts the new one in place, gives the lock back, and then tells the change log of each
    // update, in their order, and the monitor once. Until then everybody reads the old file, and a death at any moment
    // leaves it, or the new one whole. A scan of the object cannot be open while it updates, and reads the old file.
    //
    //     GlobalReg registry;  // a copy of the product and its five instances, or nothing
    //     unsigned int rc = registry.BeginBatch();
    //     if (rc == 0) {
    //         rc = registry.Add(SERVICE_SERVICE | SERVICE_VERSION_CODE, &service);
    //         for (int i = 0; i < 5 && rc == 0; ++i) {
    //             rc = registry.Add(INSTANCE_SERVICE | INSTANCE_VERSION_CODE | INSTANCE_NAME, &instances[i]);
    //         }
    //         rc = rc == 0 ? registry.CommitBatch() : (registry.AbandonBatch(), rc);
    //     }
    //
    // Memory: the old contents, the new ones and an index of them; a registry of 2 GB and more is refused. Where the
    // change log is on, two records for each update. The destructor abandons. In a forked child its parent's batch can
    // only be abandoned.
    // BeginBatch: REG_BATCH_OPEN, REG_SCAN_OPEN, REG_LOCK_FAILED, REG_OPEN_FAILED, REG_READ_FAILED, REG_NO_MEMORY;
    // no batch is open then. A missing registry is one without records, which the first Add makes, its directory
    // included.
    unsigned int BeginBatch() noexcept;
    // Ends the batch whatever it answers. REG_UNCHANGED: the contents are the same, and nothing was written or told.
    // REG_NO_BATCH, REG_LOCK_FAILED (somebody has given it back), REG_NO_MEMORY, and what an update answers:
    // REG_OPEN_FAILED, REG_COPY_WRITE_FAILED, REG_CLOSE_FAILED, REG_VERIFY_FAILED (the old file has changed meanwhile,
    // or the new one is not what was written), REG_DISCARD_FAILED, REG_UNLOCK_FAILED, REG_NO_NOTIFY.
    unsigned int CommitBatch() noexcept;
    // REG_NO_BATCH, REG_UNLOCK_FAILED.
    unsigned int AbandonBatch() noexcept;

    // Opens for REG_OP_*; the operations of the engines do so themselves. What an earlier OpenReg left open is
    // abandoned first. After any result but REG_SCAN_OPEN follow it with CloseReg. REG_MISSING, REG_OPEN_FILE_FAILED,
    // REG_LOCK_FILE_FAILED, REG_READ_FAILED, REG_CHECKSUM_DIFFERS, REG_CHECKSUM_READ_FAILED, REG_NO_CHECKSUM_BUFFER,
    // REG_DELETE_CORRUPT_FAILED, REG_FILE_INFO_FAILED, REG_OPEN_TMP_FAILED, REG_SET_PERMISSIONS_FAILED,
    // REG_CREATE_DIRECTORY_FAILED, REG_SCAN_OPEN, else the platform's code.
    unsigned int OpenReg(unsigned long op) noexcept;
    // Closes; commits with op 16 under REG_FEATURE_DEFERRED_COMMIT, else with op 2 and 8, and 4 unless duplicates are
    // allowed; REG_OP_READ abandons. REG_SCAN_OPEN. REG_CLOSE_FILE_FAILED, REG_CLOSE_TMP_FAILED, REG_BACKUP_FAILED,
    // REG_RENAME_FAILED: the old file stands. REG_NO_CHECKSUM_BUFFER, REG_CHECKSUM_READ_FAILED, REG_COPY_WRITE_FAILED:
    // stamping the checksum failed, the old file stands. The platform's code when only the backup could not be removed.
    unsigned int CloseReg(unsigned long op) noexcept;

    // A scan holds the file open under a shared lock; it reads the version that it opened. What an earlier scan left
    // open is closed first. REG_NOT_CONFIGURED; REG_OPEN_FILE_FAILED, also where there is no file (the cause tells);
    // REG_LOCK_FILE_FAILED. With REG_FEATURE_CHECKSUM_HEADER also REG_CHECKSUM_DIFFERS, REG_CHECKSUM_READ_FAILED,
    // REG_NO_CHECKSUM_BUFFER; the scan is closed then.
    unsigned int OpenScan() noexcept;
    // Closes it, open or not. REG_CLOSE_FILE_FAILED.
    unsigned int CloseScan() noexcept;
    // Back to the first record, and on to what another program has appended meanwhile. REG_REWIND_FAILED.
    unsigned int Rewind() noexcept;
    // The scan's position, opaque and valid only within the same scan. REG_SCAN_NOT_OPEN, REG_NULL_POINTER,
    // REG_GET_POSITION_FAILED, REG_SET_POSITION_FAILED.
    unsigned int getRegFilePosition(long long* position) noexcept;
    unsigned int setRegFilePosition(long long* position) noexcept;

    // Nothing; 0.
    unsigned int Load(unsigned long reserved) noexcept;
    unsigned int UnLoad(unsigned long reserved) noexcept;

protected:
    GenRegGetRecordSize getRecordSize = nullptr;
    GenRegGetMaxRecordSize getMaxRecordSize = nullptr;
    // Texts; what is behind their ends means nothing.
    char regPath[REG_PATH_SIZE];
    char bkpPath[REG_PATH_SIZE];
    char tmpPath[REG_PATH_SIZE];
    char corPath[REG_PATH_SIZE];
    char lockPath[REG_PATH_SIZE];
    OSSHFile lockFile;
    OSSFileOpenRequest lockOpenRequest = {OSS_REQUEST_VERSION, nullptr, 0, 0, 0, 0};
    // After GetNext it stands where the scan does, and the scan goes on where a client has stopped reading it.
    std::FILE* regFp = nullptr;
    std::FILE* tmpFp = nullptr;
    unsigned long regPermissions = 0;   // of a new registry file; 0 is 0644
    unsigned long lockPermissions = 0;  // of a new lock file; 0 is 0644
    unsigned long checksumHeaderPending = 1;

    // What every schema constructor does with its path: REG_EMPTY_ARGUMENT, REG_PATH_TOO_LONG, REG_BASE_NAME_FAILED,
    // REG_DIRECTORY_NAME_FAILED; else sets the five paths and REG_STATE_CONFIGURED.
    unsigned int setRegistryPaths(const char* path) noexcept;

private:
    friend class genreg::FileInternals;
    friend class genreg::Transaction;

    // What only the library knows. It grows in here, so that what clients have compiled in stays true.
    static constexpr unsigned long ROOM_SIZE = 256;
    alignas(void*) unsigned char room_[ROOM_SIZE];
};
