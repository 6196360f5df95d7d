// The files of one update, from its copy to its end.
#pragma once

#include "genreg/core/Input.h"
#include "genreg/core/Output.h"
#include "platform/posix/Posix.h"

namespace genreg {

// Which file it is, whatever its names are.
struct FileIdentity {
    unsigned long device = 0;
    unsigned long inode = 0;

    FileIdentity() noexcept = default;
    explicit FileIdentity(const posix::FileStatus& status) noexcept : device(status.device), inode(status.inode) {}
    [[nodiscard]] bool isOf(const posix::FileStatus& status) const noexcept {
        return status.regular && status.device == device && status.inode == inode;
    }
};

// An update reads no more than two files at a time, and in rooms of the same size: the verification reads in those of
// the copy.
struct UpdateFiles {
    Input input{-1, 0, 0};  // of the registry
    Output output;          // to the copy
    // Kept open without streams; a descriptor of -1: it is not.
    posix::ReadFile registry;
    posix::ReadFile copy;
    FileIdentity registryIdentity;
    FileIdentity copyIdentity;
    bool unsettled = false;  // the folder is to be synced before the update returns
    bool verified = false;   // in a batch: the copy is to be taken in
};

// What becomes of the copy when it is made: it is compared next, is left where it lies, or is removed next.
enum class CopyFate { Compared, Left, Removed };

}  // namespace genreg
