// What the fuzz targets share: a claim that stops the run, and a folder in memory for files.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

inline void claim(bool holds, const char* what) {
    if (!holds) {
        (void)std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

// Removed with everything in it at the end of the process.
class FuzzFolder {
public:
    FuzzFolder() {
        for (const char* parent : {"/dev/shm", "/tmp"}) {
            std::string pattern = std::string(parent) + "/rvn-fuzz-XXXXXX";
            if (path_.empty() && ::mkdtemp(pattern.data()) != nullptr) {
                path_ = pattern;
            }
        }
        claim(!path_.empty(), "a folder for the files");
    }
    ~FuzzFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    FuzzFolder(const FuzzFolder&) = delete;
    FuzzFolder& operator=(const FuzzFolder&) = delete;

    [[nodiscard]] std::string path(const char* name) const { return path_ + "/" + name; }

    // A file with these bytes; its path.
    [[nodiscard]] std::string write(const char* name, const std::string& bytes) const {
        std::FILE* const file = std::fopen(path(name).c_str(), "wb");
        claim(file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() &&
                  std::fclose(file) == 0,
              "the input is written");
        return path(name);
    }
    [[nodiscard]] std::string read(const char* name) const {
        std::string bytes;
        std::FILE* const file = std::fopen(path(name).c_str(), "rb");
        for (int c = file == nullptr ? EOF : std::fgetc(file); c != EOF; c = std::fgetc(file)) {
            bytes += static_cast<char>(c);
        }
        if (file != nullptr) {
            (void)std::fclose(file);
        }
        return bytes;
    }

private:
    std::string path_;
};

// Keeps what the library prints out of the report of the run.
class FuzzQuiet {
public:
    FuzzQuiet() : kept_(::dup(STDOUT_FILENO)) {
        (void)std::fflush(stdout);
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        (void)::dup2(nowhere, STDOUT_FILENO);
        (void)::close(nowhere);
    }
    ~FuzzQuiet() {
        (void)std::fflush(stdout);
        (void)::dup2(kept_, STDOUT_FILENO);
        (void)::close(kept_);
    }
    FuzzQuiet(const FuzzQuiet&) = delete;
    FuzzQuiet& operator=(const FuzzQuiet&) = delete;

private:
    int kept_;
};
