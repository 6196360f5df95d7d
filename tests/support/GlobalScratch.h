// The global registry as a file of the test's own, and its frames written by hand.
#pragma once

#include <ThisSystem.h>
#include <fcntl.h>

#include <optional>

#include "support/BuiltTool.h"
#include "support/Scratch.h"

constexpr unsigned long VERSION_9_7_0_2 = 0x0009000700000002;

inline std::string little(unsigned long value, unsigned long size) {
    std::string bytes;
    for (unsigned long index = 0; index < size; ++index) {
        bytes += static_cast<char>(value >> (8 * index));
    }
    return bytes;
}

inline std::string frame(const std::string& image) {
    return little(image.size(), 4) + image;
}

// A packed image, item by item.
class RecordImage {
public:
    explicit RecordImage(unsigned int type, unsigned long mask, unsigned long missing = 0)
        : bytes_(little(type, 4) + little(mask, 8) + little(missing, 8)) {}
    RecordImage& item(const std::string& contents) {
        bytes_ += little(contents.size(), 2) + contents;
        return *this;
    }
    RecordImage& text(const std::string& contents) { return item(contents + '\0'); }
    RecordImage& number(unsigned long value, unsigned long size = 4) { return item(little(value, size)); }
    RecordImage& version() { return number(VERSION_9_7_0_2, 8); }
    [[nodiscard]] std::string end(unsigned int checksum = 0) const { return bytes_ + little(checksum, 4); }

private:
    std::string bytes_;
};

class GlobalScratch : public Scratch {
protected:
    [[nodiscard]] std::string registry() const { return path("global.reg"); }
    [[nodiscard]] std::string bytes() const { return read("global.reg"); }
    void writeFrames(std::initializer_list<std::string> images) const {
        std::string all;
        for (const std::string& image : images) {
            all += frame(image);
        }
        write("global.reg", all);
    }

private:
    const Variable variable_{"RVN_GLOBAL_REG_PATHNAME", registry().c_str()};
};

// /var and /tmp are this process's own and empty, but for the build where it lies there. Only root has such a world,
// and only where mounts are granted.
class PrivateMounts {
public:
    PrivateMounts() {
        if (!this_system::beginMounts()) {
            return;
        }
        const auto build = BUILD.parent_path();
        const std::string kept = "/mnt/build";
        cover("/mnt");
        std::filesystem::create_directory(kept);
        own_ = this_system::mountFolder(build, kept);
        cover("/tmp");
        cover("/var");
        std::filesystem::create_directories("/var/rvn");
        if (!std::filesystem::exists(BUILD)) {
            std::filesystem::create_directories(build);
            own_ = own_ && this_system::mountFolder(kept, build);
        }
    }
    ~PrivateMounts() {
        for (; !covered_.empty(); covered_.pop_back()) {
            this_system::unmount(covered_.back());
        }
    }
    PrivateMounts(const PrivateMounts&) = delete;
    PrivateMounts& operator=(const PrivateMounts&) = delete;

    [[nodiscard]] bool areGranted() const { return own_ && covered_.size() == 3; }

private:
    void cover(const char* place) {
        if (this_system::mountEmpty(place)) {
            covered_.emplace_back(place);
        }
    }

    std::vector<std::string> covered_;
    bool own_ = false;
};

// The same without a mount: this process's root directory is its own, and holds these folders and the users, but no
// program.
class PrivateRoot {
public:
    PrivateRoot() {
        std::string pattern = std::filesystem::temp_directory_path() / "rvn-root-XXXXXX";
        folder_ = ::mkdtemp(pattern.data());
        ::chmod(folder_.c_str(), 0755);
        for (const char* name : {"tmp", "var/rvn", "etc"}) {
            std::filesystem::create_directories(folder_ / name);
        }
        std::filesystem::copy_file("/etc/passwd", folder_ / "etc/passwd");
        ::unsetenv("TMPDIR");  // which leads elsewhere in there
        granted_ = ::chroot(folder_.c_str()) == 0 && ::chdir("/") == 0;
    }
    ~PrivateRoot() {
        if (granted_ && (::fchdir(outside_) != 0 || ::chroot(".") != 0)) {
            std::abort();
        }
        ::close(outside_);
        std::filesystem::remove_all(folder_);
    }
    PrivateRoot(const PrivateRoot&) = delete;
    PrivateRoot& operator=(const PrivateRoot&) = delete;

    [[nodiscard]] bool isGranted() const { return granted_; }

private:
    const int outside_ = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::filesystem::path folder_;
    bool granted_ = false;
};

enum class Programs { None, AreRun };

class PrivateWorld {
protected:
    explicit PrivateWorld(Programs programs) {
        if (!mounts_.areGranted() && programs == Programs::None) {
            root_.emplace();
        }
    }

    [[nodiscard]] bool isOwn() const { return mounts_.areGranted() || (root_.has_value() && root_->isGranted()); }

private:
    const PrivateMounts mounts_;
    std::optional<PrivateRoot> root_;
};

// The fixture in a world of its own, in which its folder lies too.
template <typename Fixture, Programs programs = Programs::None>
class InPrivateWorld : private PrivateWorld, public Fixture {
protected:
    InPrivateWorld() : PrivateWorld(programs) {}
    void SetUp() override {
        if (!isOwn()) {
            GTEST_SKIP() << "no /tmp and /var of its own: not root, or forbidden";
        }
        Fixture::SetUp();
    }
};
