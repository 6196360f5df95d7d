// The files of an update: kept from its copy to its end, or opened and closed for each step.
#include "genreg/core/UpdateFiles.h"

#include <osse/Errors.h>
#include <osse/Files.h>

#include <algorithm>
#include <cerrno>

#include "genreg/core/Batch.h"
#include "genreg/core/Directory.h"
#include "genreg/core/FileInternals.h"
#include "genreg/core/FunctionTrace.h"

using genreg::FileInternals;
using genreg::Input;

namespace {

// The new contents are about as long as the old ones.
std::size_t outputRoom(unsigned long oldSize) noexcept {
    constexpr std::size_t SPARE = 4096;
    constexpr std::size_t LARGEST = 64UL * 1024;
    return std::min<std::size_t>(oldSize + SPARE, LARGEST);
}

// Whether somebody has a lock on what the descriptor leads to, or nobody can tell.
bool areNamesDoubtful(int descriptor) noexcept {
    bool locked = false;
    return descriptor == -1 || posix::isLockedElsewhere(descriptor, &locked) != 0 || locked;
}

}  // namespace

unsigned int FileInternals::openToCopy(unsigned long op, UpdateFiles& files) noexcept {
    files_ = &files;
    const bool verified = (file_.features & REG_FEATURE_DEFERRED_COMMIT) != 0;
    posix::FileStatus registry = {};
    if (verified && !holdsParentsLock() && openToLook(&files.registry, &registry)) {
        return copyKept(registry);
    }
    const unsigned int rc = file_.OpenReg(op);
    if (rc == 0 && file_.tmpFp != nullptr) {
        files.output.open(posix::descriptorOf(file_.tmpFp), outputRoom(regSize_));
    }
    return rc;
}

unsigned int FileInternals::sizeOfRegistry(unsigned long* size) const noexcept {
    if (batch_ != nullptr) {
        *size = batch_->size();
        return 0;
    }
    OSSFileInfo info = {};
    const unsigned int rc = ossFileGetInfoV9(file_.regPath, &info);
    *size = info.size;
    return rc;
}

// From its first record on.
Input& FileInternals::input() const noexcept {
    if (batch_ == nullptr) {
        readRegistry(files_->input);
    }
    return files_->input;
}

// The copy of the registry that is kept.
unsigned int FileInternals::copyKept(const posix::FileStatus& registry) noexcept {
    regBody_ = tmpBody_ = 0;
    regSize_ = registry.size;
    regCreated_ = false;
    files_->registryIdentity = FileIdentity(registry);
    int descriptor = -1;
    if (const unsigned int rc = createFreshCopy(true, &descriptor)) {
        return rc;
    }
    posix::FileStatus copy = {};
    unsigned int rc = posix::statusOf(descriptor, &copy);
    files_->copy = posix::guardFile(descriptor, copy, files_->registry.forks);
    files_->copyIdentity = FileIdentity(copy);
    files_->output.open(descriptor, outputRoom(regSize_));
    rc = rc == 0 ? posix::carryAttributes(files_->registry.descriptor, registry, descriptor, copy) : rc;
    return rc == 0 ? 0 : attributesNotCarried(rc);
}

bool FileInternals::keepsParentsFiles() const noexcept {
    return files_->registry.generation != posix::forkGeneration();
}

// Another writer's commit is asked for by the lock that it keeps on the new file until the folder is synced. Readers
// have such locks too, and then the folder is synced for nothing.
void FileInternals::doubtNames() noexcept {
    const int descriptor = keepsFiles()             ? files_->registry.descriptor
                           : file_.regFp != nullptr ? posix::descriptorOf(file_.regFp)
                                                    : -1;
    files_->unsettled = areNamesDoubtful(descriptor);
}

void FileInternals::settleNames(int descriptor) noexcept {
    if (areNamesDoubtful(descriptor)) {
        syncNames();
    }
}

unsigned int FileInternals::closeCopied(unsigned long op, CopyFate fate) noexcept {
    if (!keepsFiles()) {
        return file_.CloseReg(op);
    }
    if (keepsParentsFiles()) {
        (void)closeKept();
        return refuseParentsFile();
    }
    unsigned int rc = 0;
    if (fate != CopyFate::Removed && files_->copy.descriptor != -1) {
        rc = files_->output.flush() ? 0 : ossErrorMapSystem(errno);
        rc = rc == 0 && op != REG_OP_READ ? posix::syncFile(files_->copy.descriptor) : rc;
    }
    if (rc == 0 && fate == CopyFate::Compared) {
        return 0;
    }
    const unsigned int closed = closeKept();
    return rc == 0 ? closed : copyNotClosed(rc);
}

// What CloseReg does to its streams.
unsigned int FileInternals::closeKept() noexcept {
    const unsigned int registry = posix::closeUnlocked(files_->registry);
    files_->registry = {};
    unsigned int copy = 0;
    if (files_->copy.descriptor != -1) {
        copy = posix::closeUnlocked(files_->copy);
        files_->copy = {};
    }
    if (registry != 0) {
        return registryNotClosed(registry);
    }
    return copy == 0 ? 0 : copyNotClosed(copy);
}

// Whether both are still what stands at their paths.
bool FileInternals::stillNamed(posix::FileStatus* registry, posix::FileStatus* copy) const noexcept {
    return posix::statusAt(file_.regPath, registry) == 0 && files_->registryIdentity.isOf(*registry) &&
           posix::statusAt(file_.tmpPath, copy) == 0 && files_->copyIdentity.isOf(*copy);
}

unsigned int FileInternals::openToCompare(Input& before, Input& after, unsigned int* unread) noexcept {
    *unread = 0;
    if (batch_ != nullptr && files_ != nullptr) {
        batch_->compare(before, after, *files_);
        return 0;
    }
    if (files_ != nullptr) {
        std::size_t size = 0;
        char* const room = files_->output.closeAndKeepRoom(&size);
        after.adopt(room, size);
    }
    posix::FileStatus registry = {};
    posix::FileStatus copy = {};
    if (keepsFiles() && stillNamed(&registry, &copy) && registry.permissions == copy.permissions) {
        before.restart(files_->registry.descriptor, 0, registry.size);
        after.restart(files_->copy.descriptor, 0, copy.size);
        return 0;
    }
    if (keepsFiles()) {
        (void)closeKept();  // the plain way says what is wrong, and with what
    }
    if (const unsigned int rc = file_.OpenReg(REG_OP_FINISH)) {
        return rc;
    }
    const int descriptor = posix::descriptorOf(file_.tmpFp);
    *unread = posix::statusOf(descriptor, &copy);
    readRegistry(before);
    after.restart(descriptor, tmpBody_, copy.size);
    return 0;
}

unsigned int FileInternals::closeCompared(unsigned long op) noexcept {
    if (batch_ != nullptr && files_ != nullptr) {
        files_->verified = op == REG_OP_FINISH;
        return 0;
    }
    if (!keepsFiles()) {
        return file_.CloseReg(op);
    }
    if (keepsParentsFiles()) {
        (void)closeKept();
        return refuseParentsFile();
    }
    return op == REG_OP_FINISH ? commit(0) : closeKept();
}

// The lock on the new file tells other writers that its name may not be on the medium yet, and keeps out who would
// append to it: see doubtNames().
bool FileInternals::defersNames() const noexcept {
    return keepsFiles() && posix::lockShared(files_->copy.descriptor) == 0;
}

void FileInternals::settle() noexcept {
    FunctionTrace trace{Function::CloseReg, FunctionTrace::Part()};
    if (files_->unsettled) {
        syncNames();
    }
    if (files_->copy.descriptor != -1) {
        if (const unsigned int rc = posix::closeUnlocked(files_->copy)) {
            trace.ignore(130, REG_CLOSE_TMP_FAILED, rc);
        }
    }
    if (files_->registry.descriptor != -1) {
        if (const unsigned int rc = posix::closeUnlocked(files_->registry)) {
            trace.ignore(140, REG_CLOSE_FILE_FAILED, rc);
        }
    }
    files_ = nullptr;
}
