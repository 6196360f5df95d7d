// A small file system in an image file, mounted through a loop device: its bytes can be taken at any moment, as a power
// cut would leave them.
#pragma once

#include <string>

namespace prove {

class DiskImage {
public:
    // Why there can be none here; empty when there can.
    static std::string whatIsMissing();
    // From here on this process's mounts are its own and vanish with it, however it ends.
    static bool mountPrivately();

    DiskImage(std::string file, std::string mountPoint);
    ~DiskImage();
    DiskImage(const DiskImage&) = delete;
    DiskImage& operator=(const DiskImage&) = delete;

    [[nodiscard]] const std::string& mountPoint() const noexcept { return mountPoint_; }

    bool format();  // anew, as ext4
    bool put(const std::string& bytes);
    bool mount(const std::string& options);
    bool unmount();

    // What has reached the medium.
    [[nodiscard]] std::string bytes() const;
    // Writes everything back, as time would.
    void writeBack() const;
    // Writes a file beside and syncs it.
    void bystander();

private:
    std::string file_;
    std::string mountPoint_;
    bool mounted_ = false;
    unsigned long bystanders_ = 0;
};

}  // namespace prove
