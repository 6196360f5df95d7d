#include "inspect/Replacement.h"

#include <fmt/chrono.h>
#include <fmt/core.h>
#include <osse/Files.h>

#include <cerrno>
#include <ctime>
#include <filesystem>

#include "base/Answers.h"
#include "base/CodeClasses.h"
#include "base/DiskFiles.h"
#include "base/PlaceAdvice.h"
#include "base/Text.h"

namespace tool {
namespace {

// All that is left in the stream; short of it where reading fails, which compares as different.
std::string restOf(std::FILE* stream) {
    std::string bytes;
    char piece[65536];
    while (const std::size_t got = std::fread(piece, 1, sizeof piece, stream)) {
        bytes.append(piece, got);
    }
    return bytes;
}

}  // namespace

Replacement::Replacement(const std::string& path, std::string doing)
    : RegistryFile(path), path_(path), doing_(std::move(doing)) {
    fileKind = REG_KIND_BINARY;
    features = REG_FEATURE_DEFERRED_COMMIT;  // the copy is compared between its sync and its commit
}

Replacement::~Replacement() {
    if ((state & REG_STATE_LOCKED) == 0) {
        return;
    }
    (void)CloseReg(REG_OP_READ);
    if (!done_) {
        if (linked_ && isSameFile(keptAs_, registryPath())) {
            (void)ossFileDelete(keptAs_.c_str());
        }
        if (copied_) {
            (void)ossFileDelete(temporaryPath().c_str());
        }
        std::error_code error;
        if (fresh_ && std::filesystem::file_size(registryPath(), error) == 0 && !error) {
            (void)ossFileDelete(registryPath().c_str());
        }
    }
    (void)UnLock();
}

void Replacement::keepOld() {
    keeps_ = true;
    keptAs_ = fmt::format("{}.damaged-{:%Y%m%dT%H%M%SZ}", registryPath(), fmt::gmtime(std::time(nullptr)));
}

void Replacement::put(const std::string& bytes, const std::string* seen) {
    check(Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_WAIT, 0));
    write(bytes, seen);
    commit(bytes, seen);
    done_ = true;
    if (const unsigned int code = UnLock()) {
        throw libraryFailure(code, path_, doing_ + " (it is done)");
    }
}

void Replacement::write(const std::string& bytes, const std::string* seen) {
    fresh_ = !judgeFile(path_, doing_, false);
    const unsigned long op = fresh_ ? REG_OP_ADD : REG_OP_CHANGE;
    const unsigned int code = OpenReg(op);
    copied_ = tmpFp != nullptr;
    check(code);
    refuseOther(seen);
    if (std::fwrite(bytes.data(), 1, bytes.size(), tmpFp) != bytes.size() || std::fflush(tmpFp) != 0) {
        const int error = errno;
        throw failed(REG_COPY_WRITE_FAILED, systemWords(error), systemAdvice(error));
    }
    check(CloseReg(op));
}

void Replacement::commit(const std::string& bytes, const std::string* seen) {
    check(OpenReg(REG_OP_FINISH));
    refuseOther(seen);
    if (restOf(tmpFp) != bytes) {
        throw failed(REG_VERIFY_FAILED, "the copy was read back otherwise than it was written", "");
    }
    if (keeps_) {
        link();
    }
    const unsigned int code = CloseReg(REG_OP_FINISH);
    // The code of the backup's removal comes after the rename.
    done_ = code == 0 || (linked_ && !isSameFile(keptAs_, registryPath()));
    check(code);
}

// The old file gets the second name; nothing is copied, and nothing is overwritten.
void Replacement::link() {
    constexpr int MOST_IN_A_SECOND = 100;
    const std::string first = keptAs_;
    std::error_code error = std::make_error_code(std::errc::operation_not_permitted);
    const bool mayUndo = folderLetsMove(registryPath());  // else the name could not be taken back
    for (int i = 2; mayUndo && i <= MOST_IN_A_SECOND; ++i) {
        std::filesystem::create_hard_link(registryPath(), keptAs_, error);
        if (error.value() != EEXIST) {
            break;
        }
        keptAs_ = fmt::format("{}-{}", first, i);
    }
    linked_ = !error;
    if (error) {
        const std::string advice = placeAdvice(REG_BACKUP_FAILED, error.value(), path_);
        throw failed(REG_BACKUP_FAILED,
                     fmt::format("it cannot be kept as {}: {}", printable(keptAs_), systemWords(error.value())),
                     advice.empty() ? systemAdvice(error.value()) : advice);
    }
}

void Replacement::check(unsigned int code) const {
    if (code != 0) {
        throw libraryFailure(code, path_, doing_);
    }
}

// Against programs that know of no lock, too.
void Replacement::refuseOther(const std::string* seen) const {
    if (seen != nullptr && restOf(regFp) != *seen) {
        throw changedMeanwhile(path_, "the file", "genreg check");
    }
}

Failure Replacement::failed(unsigned int code, const std::string& why, std::string hint) const {
    return answer(std::string(classOf(code).kind), EXIT_WRITE_FAILED, code, path_,
                  fmt::format("cannot {}: {}; the file was not replaced", doing_, why), std::move(hint));
}

}  // namespace tool
