// Folders of a rig's own, and plain ways to look at files that owe nothing to the library.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace prove {

// A folder that vanishes with the object.
class Folder {
public:
    // In memory (/dev/shm) where there is such a place and `inMemory` asks for it, else below TMPDIR or /tmp.
    explicit Folder(bool inMemory);
    ~Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] std::string file(const std::string& name) const { return path_ + "/" + name; }
    // Removes what is in it.
    void empty() const;

private:
    std::string path_;
};

// The companions of a registry, as names beside it.
struct Companions {
    explicit Companions(const std::string& registry);
    std::string lock, backup, copy, corrupt;
};

// Writes a file whole, in place; false when that fails.
bool putBytes(const std::string& path, const std::string& bytes);
// Mode, owner and group of a file, to be compared.
[[nodiscard]] std::string accessOf(const std::string& path);
// The names in a folder, sorted.
[[nodiscard]] std::vector<std::string> namesIn(const std::string& folder);

// Runs the body in a forked child that dies after `seconds`. Its code, or nothing when a signal ended it.
[[nodiscard]] std::optional<unsigned int> inChild(const std::function<unsigned int()>& body, unsigned int seconds = 30);

// Runs a program, its words on the standard output and error thrown away; its exit code, or -1.
int run(const std::vector<std::string>& words);

}  // namespace prove
