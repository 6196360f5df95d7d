// Files as the commands see them: read whole, judged before the library opens them, copied for a rehearsal.
#pragma once

#include <filesystem>
#include <string>

namespace tool {

// The bytes of a regular file. Throws a Failure for what is missing, unreadable or no regular file.
[[nodiscard]] std::string readFile(const std::string& path, const std::string& doing);

// Refuses, in words, what the library would stumble over: a directory, a device, a pipe (whose opening would wait for
// ever). Answers whether the file exists; a missing one is refused only when it must exist.
bool judgeFile(const std::string& path, const std::string& doing, bool mustExist);

// A private folder, removed with everything in it at the end.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace tool
