// Frames and packed records of the global registry, made by hand, and a world of the test's own.
#pragma once

#include <sched.h>
#include <sys/mount.h>

#include <filesystem>
#include <string>
#include <vector>

inline std::string little(unsigned long value, int size) {
    std::string bytes;
    for (int i = 0; i < size; ++i) {
        bytes += static_cast<char>(value >> (8 * i));
    }
    return bytes;
}

inline std::string item(const std::string& bytes) {
    return little(bytes.size(), 2) + bytes;
}

inline std::string textItem(const std::string& text) {
    return item(text + std::string(1, '\0'));
}

inline std::string image(unsigned int type, unsigned long mask, const std::string& items) {
    return little(type, 4) + little(mask, 8) + little(0, 8) + items + little(0, 4);
}

inline std::string frame(const std::string& payload) {
    return little(payload.size(), 4) + payload;
}

constexpr unsigned long VERSION_9702 = 0x0009000700000002;

// An instance of RVN 9.7.0.2 that starts at boot: 0x36 bytes of payload for a name of five letters.
inline std::string instanceFrame(const std::string& name) {
    return frame(image(1, 0x27, textItem("RVN") + item(little(VERSION_9702, 8)) + textItem(name) + item(little(1, 4))));
}

// /var and /tmp are this process's own and empty, but for the tool where it was built. Only root may have such a world.
class PrivateWorld {
protected:
    PrivateWorld() {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            return;
        }
        const auto build = std::filesystem::path(RVN_TOOL).parent_path().parent_path().parent_path();
        const std::string kept = "/mnt/build";
        cover("/mnt");
        std::filesystem::create_directory(kept);
        own_ = ::mount(build.c_str(), kept.c_str(), nullptr, MS_BIND, nullptr) == 0;
        cover("/tmp");
        cover("/var");
        std::filesystem::create_directories("/var/rvn");
        if (!std::filesystem::exists(RVN_TOOL)) {
            std::filesystem::create_directories(build);
            own_ = own_ && ::mount(kept.c_str(), build.c_str(), nullptr, MS_BIND, nullptr) == 0;
        }
    }
    ~PrivateWorld() {
        for (; !covered_.empty(); covered_.pop_back()) {
            ::umount2(covered_.back().c_str(), MNT_DETACH);
        }
    }

    [[nodiscard]] bool isOwn() const { return own_ && covered_.size() == 3; }

private:
    void cover(const char* place) {
        if (::mount("none", place, "tmpfs", 0, nullptr) == 0) {
            covered_.emplace_back(place);
        }
    }

    std::vector<std::string> covered_;
    bool own_ = false;
};
