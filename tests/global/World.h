// Surroundings for the tests of the global registry: a registry of their own, environment variables, and a world in
// which /tmp and /var are empty.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

inline std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void createFile(const std::string& path) {
    const std::ofstream file(path);
}

// A variable of the environment for as long as the object lives; null: unset.
class Variable {
public:
    Variable(const char* name, const char* value) : name_(name) {
        if (value != nullptr) {
            ::setenv(name, value, 1);
        } else {
            ::unsetenv(name);
        }
    }
    ~Variable() { ::unsetenv(name_); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* name_;
};

// The registry is a file in a directory of the test's own.
class RegistryTest : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/rvn-global-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        directory_ = pattern;
        ::setenv("RVN_GLOBAL_REG_PATHNAME", path().c_str(), 1);
    }
    void TearDown() override {
        ::unsetenv("RVN_GLOBAL_REG_PATHNAME");
        std::filesystem::remove_all(directory_);
    }
    [[nodiscard]] std::string path() const { return directory_ + "/global.reg"; }
    [[nodiscard]] const std::string& directory() const { return directory_; }

    void writeFrames(std::initializer_list<std::string> images) const {
        std::ofstream file(path(), std::ios::binary);
        for (const std::string& image : images) {
            const auto size = static_cast<unsigned int>(image.size());
            file.write(reinterpret_cast<const char*>(&size), sizeof size);
            file << image;
        }
    }

private:
    std::string directory_;
};

// The fixed paths /tmp and /var/rvn are this process's own and empty. Only root may have such a world.
class PrivateWorldTest : public RegistryTest {
protected:
    void SetUp() override {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            GTEST_SKIP() << "no mount namespace of its own: not root, or forbidden";
        }
        for (const char* place : {"/tmp", "/var"}) {
            ASSERT_EQ(::mount("none", place, "tmpfs", 0, nullptr), 0) << place;
            mounted_.emplace_back(place);
        }
        ASSERT_EQ(::mkdir("/var/rvn", 0755), 0);
        RegistryTest::SetUp();
    }
    void TearDown() override {
        if (!mounted_.empty()) {
            RegistryTest::TearDown();
        }
        for (const std::string& place : mounted_) {
            ::umount2(place.c_str(), MNT_DETACH);
        }
    }

private:
    std::vector<std::string> mounted_;
};
