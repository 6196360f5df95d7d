// Which trees of files a power cut may leave behind, by the rules that hold on every file system worth the name: what
// was synced is there, and of the rest anything may be missing.
//
// Names: of the operations on a folder since it was last synced, any number may have reached the medium, in any order;
// each is whole (a rename is one). Syncing a file says nothing of its name. Contents: each write since the file's last
// sync may be there, not there, there as far as its first half, or there as a size without its bytes. Only the file
// that the rig is after is varied so finely; of the others all unsynced writes are there or none.
#pragma once

#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace prove {

// A tree of files at one moment. Paths are relative to its root; a folder is an inode without contents.
struct Tree {
    std::map<std::string, unsigned long> names;
    std::map<unsigned long, std::string> contents;
    std::map<unsigned long, std::string> links;  // symbolic ones: where they lead

    bool operator==(const Tree&) const = default;
    bool operator<(const Tree& other) const {
        return std::tie(names, contents, links) < std::tie(other.names, other.contents, other.links);
    }
};

[[nodiscard]] Tree lookAt(const std::string& root);
// Makes the root hold just this tree, hard links included.
void layOut(const std::string& root, const Tree& tree);

class DiskModel {
public:
    // All that is below the root now counts as synced. With forgetful syncs nothing ever is: a disk that lies. Watched
    // is the path, relative to the root, of the file that the rig is after.
    DiskModel(std::string root, std::string watched, bool forgetful);

    // Looks at the tree: what changed since it last did is one operation, or one write.
    void look();
    // The file or folder with this inode number was synced, as it was when last looked at.
    void synced(unsigned long inode);

    // Every tree that a cut may leave now; a choice of them where a file has many writes.
    [[nodiscard]] std::set<Tree> possible() const;

private:
    using Names = std::map<std::string, unsigned long>;
    using NameChange = std::map<std::string, unsigned long>;  // 0: removed

    struct Folder {
        Names durable;
        std::vector<NameChange> pending;
    };
    struct Write {
        std::size_t size;  // of the file after it
        std::size_t offset;
        std::string bytes;
    };
    struct File {
        std::string durable;
        std::vector<Write> pending;
    };

    [[nodiscard]] static std::set<Names> variants(const Folder& folder);
    [[nodiscard]] static std::set<std::string> variants(const File& file, bool finely);
    void noteNames(const Tree& now);
    void noteContents(const Tree& now);

    std::string root_;
    std::string watched_;
    bool forgetful_;
    Tree seen_;
    std::map<std::string, Folder> folders_;  // by path; the root is ""
    std::map<unsigned long, File> files_;
};

}  // namespace prove
