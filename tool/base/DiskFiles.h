// Files as the commands see them: read whole, judged before the library opens them, copied for a rehearsal.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "base/Output.h"
#include "system/System.h"

namespace tool {

// The bytes of a regular file. Throws a Failure for what is missing, unreadable or no regular file.
[[nodiscard]] std::string readFile(const std::string& path, const std::string& doing);

// A new file for this user alone; one that is there already is a failure. Throws a Failure, and no file is left then.
void writePrivateFile(const std::string& path, std::string_view bytes, const std::string& doing);

// A line with its newline, and the number of the first line of the file that it takes.
struct FileLine {
    std::size_t number;
    std::string_view bytes;
};
// The lines as an engine takes them. continued: a backslash before the newline goes on with the next line.
[[nodiscard]] std::vector<FileLine> fileLines(std::string_view bytes, bool continued);

// Refuses, in words, what the library would stumble over: a directory, a device, a pipe (whose opening would wait for
// ever). Answers whether the file exists; a missing one is refused only when it must exist.
bool judgeFile(const std::string& path, const std::string& doing, bool mustExist);

// Whether both paths lead to one file.
[[nodiscard]] bool isSameFile(const std::string& a, const std::string& b);

// The folder that a file lies in.
[[nodiscard]] std::string folderOf(const std::string& path);
[[nodiscard]] bool isFolder(const std::string& folder);
// Why a file cannot be made there.
[[nodiscard]] Failure missingFolder(const std::string& folder, const std::string& path, const std::string& doing);
// Makes it where it is missing, and those above, as the library does for an add. Throws a Failure.
void makeFolder(Output& output, const std::string& folder);
// Says that it is new, once it is there.
void tellOfFolder(Output& output, const std::string& folder);

// A private folder, removed with everything in it at the end. Signals that would end the tool wait until then.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

private:
    HeldSignals signals_;
    std::filesystem::path path_;
};

}  // namespace tool
