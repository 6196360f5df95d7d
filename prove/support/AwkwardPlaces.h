// Places in which a registry is hard to update: what makes each of them awkward, what an update there is to be told,
// and what takes the obstacle away. Some take root: users other than its own, mounts, attributes.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace prove {

struct AwkwardPlace {
    std::string name;
    // Makes the place awkward for the registry at this path, which is alone in its folder but for its lock file; what
    // is missing for it, or nothing.
    std::function<std::string(const std::string& path)> prepare = [](const std::string&) { return std::string(); };
    // What the updating process does to itself first.
    std::function<void(const std::string& path)> inside = [](const std::string&) {};
    // Takes the obstacle away.
    std::function<void(const std::string& path)> mend = [](const std::string&) {};
    // The innermost causes of which one is to be told; none: the update succeeds.
    std::set<unsigned int> causes = {};
    // Whether it concerns only updates that replace the file, which takes a link and a rename.
    bool onlyReplacing = false;
    // Whether the process is another user's.
    bool asNobody = false;
    // Whether it can say nothing.
    bool silent = false;
    // Whether only calls of a system's own tell of it before an update fails.
    bool hidden = false;
};

// All of them; those that mount something are for a process whose mounts are its own.
[[nodiscard]] std::vector<AwkwardPlace> awkwardPlaces(bool ownMounts);

// To show the checkers of a rig: one in which no update can be made, though it tells of no cause; and those in which
// the process does harm, each with what is to be found wrong.
[[nodiscard]] AwkwardPlace lockedPlace();
[[nodiscard]] std::vector<std::pair<const char*, AwkwardPlace>> harmfulPlaces();

// After a place: unmounts what it mounted on the folder.
void leaveAwkwardPlace(const std::string& folder);

// What is wrong in the folder after an update in such a place: another's file was written, or a file is there that
// nobody asked for. Empty when nothing is.
[[nodiscard]] std::string harmDone(const std::string& folder);

[[nodiscard]] std::string folderOf(const std::string& path);

// Turns the process into one of a user who owns nothing.
void becomeNobody();

// From here on this process gives no file an extended attribute, as on a file system without them.
void refuseAttributes();

// Beyond a quarter of the file's size this process writes nothing; the signal is deadly or ignored.
void limitFileSize(const std::string& path, bool ignoreSignal);

// A folder below this one, of such a depth that a file of that name in it has a path of so many characters.
[[nodiscard]] std::string deepFolder(const std::string& parent, const std::string& name, std::size_t length);

}  // namespace prove
