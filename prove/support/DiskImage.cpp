#include "DiskImage.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "Folder.h"
#include "Place.h"

namespace prove {
namespace {

constexpr off_t IMAGE_SIZE = 8L * 1024 * 1024;

}  // namespace

std::string DiskImage::whatIsMissing() {
    if (::geteuid() != 0) {
        return "mounting takes root";
    }
    const Folder folder(true);
    DiskImage image(folder.file("image"), folder.file("mounted"));
    if (!image.format()) {
        return "no mkfs.ext4 (Debian's e2fsprogs) made a file system";
    }
    return image.mount("commit=300") ? "" : "no loop device could be mounted";
}

bool DiskImage::mountPrivately() {
    return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

DiskImage::DiskImage(std::string file, std::string mountPoint)
    : file_(std::move(file)), mountPoint_(std::move(mountPoint)) {
    std::filesystem::create_directories(mountPoint_);
}

DiskImage::~DiskImage() {
    if (mounted_) {
        (void)unmount();
    }
}

bool DiskImage::format() {
    const int descriptor = ::open(file_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (descriptor == -1) {
        return false;
    }
    const bool sized = ::ftruncate(descriptor, IMAGE_SIZE) == 0;
    (void)::close(descriptor);
    return sized && run({"mkfs.ext4", "-q", "-F", "-E", "lazy_itable_init=0,lazy_journal_init=0", file_}) == 0;
}

bool DiskImage::put(const std::string& bytes) {
    return putBytes(file_, bytes);
}

bool DiskImage::mount(const std::string& options) {
    mounted_ = run({"mount", "-t", "ext4", "-o", "loop," + options, file_, mountPoint_}) == 0;
    return mounted_;
}

bool DiskImage::unmount() {
    mounted_ = run({"umount", mountPoint_}) != 0;
    return !mounted_;
}

std::string DiskImage::bytes() const {
    return bytesOf(file_).value_or("");
}

void DiskImage::writeBack() const {
    const int descriptor = ::open(mountPoint_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor != -1) {
        (void)::syncfs(descriptor);
        (void)::close(descriptor);
    }
}

void DiskImage::bystander() {
    const std::string path = mountPoint_ + "/bystander";
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor != -1) {
        const std::string text = std::to_string(++bystanders_);
        if (::write(descriptor, text.data(), text.size()) > 0) {
            (void)::fsync(descriptor);
        }
        (void)::close(descriptor);
    }
}

}  // namespace prove
