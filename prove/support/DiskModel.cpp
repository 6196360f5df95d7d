#include "DiskModel.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <utility>

#include "Place.h"

namespace prove {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t MOST_WRITES = 4;  // of one file that are varied fully: 4 outcomes each

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

enum class Outcome : unsigned { Missing, Whole, Half, SizeOnly };
constexpr unsigned OUTCOMES = 4;

void extend(std::string& content, std::size_t size) {
    if (content.size() < size) {
        content.resize(size, '\0');
    }
}

}  // namespace

Tree lookAt(const std::string& root) {
    Tree tree;
    std::error_code ignored;
    for (const auto& entry : fs::recursive_directory_iterator(root, ignored)) {
        struct stat status = {};
        if (::lstat(entry.path().c_str(), &status) != 0) {
            continue;
        }
        tree.names[entry.path().string().substr(root.size() + 1)] = status.st_ino;
        if (S_ISREG(status.st_mode)) {
            tree.contents[status.st_ino] = bytesOf(entry.path()).value_or("");
        } else if (S_ISLNK(status.st_mode)) {
            tree.links[status.st_ino] = fs::read_symlink(entry.path());
        }
    }
    return tree;
}

void layOut(const std::string& root, const Tree& tree) {
    fs::remove_all(root);
    fs::create_directories(root);
    std::map<unsigned long, std::string> made;
    for (const auto& [name, inode] : tree.names) {  // sorted: a folder comes before what is in it
        const std::string path = root + "/" + name;
        if (const auto first = made.find(inode); first != made.end()) {
            fs::create_hard_link(first->second, path);
        } else if (const auto link = tree.links.find(inode); link != tree.links.end()) {
            fs::create_symlink(link->second, path);
        } else if (const auto content = tree.contents.find(inode); content != tree.contents.end()) {
            std::ofstream(path, std::ios::binary) << content->second;
            made[inode] = path;
        } else {
            fs::create_directory(path);
        }
    }
}

DiskModel::DiskModel(std::string root, std::string watched, bool forgetful)
    : root_(std::move(root)), watched_(std::move(watched)), forgetful_(forgetful), seen_(lookAt(root_)) {
    folders_[""];
    for (const auto& [name, inode] : seen_.names) {
        folders_[folderOf(name)].durable[name] = inode;
    }
    for (const auto& [inode, content] : seen_.contents) {
        files_[inode].durable = content;
    }
}

void DiskModel::look() {
    const Tree now = lookAt(root_);
    noteNames(now);
    noteContents(now);
    seen_ = now;
}

void DiskModel::noteNames(const Tree& now) {
    std::map<std::string, NameChange> changes;
    for (const auto& [name, inode] : seen_.names) {
        if (now.names.count(name) == 0) {
            changes[folderOf(name)][name] = 0;
        }
    }
    for (const auto& [name, inode] : now.names) {
        const auto before = seen_.names.find(name);
        if (before == seen_.names.end() || before->second != inode) {
            changes[folderOf(name)][name] = inode;
        }
    }
    for (const auto& [folder, change] : changes) {
        folders_[folder].pending.push_back(change);
    }
}

void DiskModel::noteContents(const Tree& now) {
    for (const auto& [inode, content] : now.contents) {
        const auto known = seen_.contents.find(inode);
        const std::string before = known == seen_.contents.end() ? "" : known->second;
        File& file = files_[inode];
        if (before == content) {
            continue;
        }
        const auto differs = std::mismatch(before.begin(), before.end(), content.begin(), content.end());
        const auto offset = static_cast<std::size_t>(differs.second - content.begin());
        file.pending.push_back({content.size(), offset, content.substr(offset)});
    }
}

void DiskModel::synced(unsigned long inode) {
    if (forgetful_) {
        return;
    }
    if (const auto file = seen_.contents.find(inode); file != seen_.contents.end()) {
        files_[inode] = {file->second, {}};
        return;
    }
    struct stat status = {};
    std::string path;
    if (::stat(root_.c_str(), &status) != 0 || status.st_ino != inode) {
        const auto named = std::find_if(seen_.names.begin(), seen_.names.end(),
                                        [&](const auto& name) { return name.second == inode; });
        if (named == seen_.names.end()) {
            return;
        }
        path = named->first;
    }
    Folder& folder = folders_[path];
    folder.pending.clear();
    folder.durable.clear();
    for (const auto& [name, target] : seen_.names) {
        if (folderOf(name) == path) {
            folder.durable[name] = target;
        }
    }
}

std::set<DiskModel::Names> DiskModel::variants(const Folder& folder) {
    std::set<std::pair<unsigned long, Names>> reached = {{0, folder.durable}};
    std::vector<std::pair<unsigned long, Names>> open(reached.begin(), reached.end());
    std::set<Names> result;
    while (!open.empty()) {
        const auto [done, names] = open.back();
        open.pop_back();
        result.insert(names);
        for (std::size_t i = 0; i < folder.pending.size(); ++i) {
            if ((done >> i & 1UL) != 0) {
                continue;
            }
            Names next = names;
            for (const auto& [name, inode] : folder.pending[i]) {
                if (inode == 0) {
                    next.erase(name);
                } else {
                    next[name] = inode;
                }
            }
            if (const auto added = reached.emplace(done | 1UL << i, next); added.second) {
                open.push_back(*added.first);
            }
        }
    }
    return result;
}

std::set<std::string> DiskModel::variants(const File& file, bool finely) {
    if (!finely && !file.pending.empty()) {
        std::string whole = file.durable;
        for (const Write& write : file.pending) {
            extend(whole, write.offset);
            (void)whole.replace(write.offset, std::string::npos, write.bytes);
        }
        return {file.durable, whole};
    }
    const std::size_t varied = std::min(file.pending.size(), MOST_WRITES);
    const std::size_t whole = file.pending.size() - varied;  // the earliest of many
    std::size_t choices = 1;
    for (std::size_t i = 0; i < varied; ++i) {
        choices *= OUTCOMES;
    }
    std::set<std::string> result;
    for (std::size_t choice = 0; choice < choices; ++choice) {
        std::string content = file.durable;
        std::size_t rest = choice;
        for (std::size_t i = 0; i < file.pending.size(); ++i) {
            const Write& write = file.pending[i];
            auto outcome = Outcome::Whole;
            if (i >= whole) {
                outcome = static_cast<Outcome>(rest % OUTCOMES);
                rest /= OUTCOMES;
            }
            if (outcome == Outcome::Missing) {
                continue;
            }
            if (outcome == Outcome::SizeOnly) {
                extend(content, write.size);
                continue;
            }
            const std::size_t length = outcome == Outcome::Whole ? write.bytes.size() : write.bytes.size() / 2;
            extend(content, write.offset + length);
            (void)content.replace(write.offset, length, write.bytes, 0, length);
            if (outcome == Outcome::Whole) {
                content.resize(write.size);
            }
        }
        result.insert(content);
    }
    return result;
}

std::set<Tree> DiskModel::possible() const {
    std::vector<Names> namings = {{}};
    for (const auto& [path, folder] : folders_) {  // a folder comes before those in it
        std::vector<Names> extended;
        const std::set<Names> local = variants(folder);
        for (const Names& naming : namings) {
            if (!path.empty() && naming.count(path) == 0) {
                extended.push_back(naming);  // not there, and so is nothing in it
                continue;
            }
            for (const Names& names : local) {
                extended.push_back(naming);
                extended.back().insert(names.begin(), names.end());
            }
        }
        namings = std::move(extended);
    }
    std::set<Tree> trees;
    for (const Names& naming : namings) {
        std::vector<Tree> variations = {{naming, {}, seen_.links}};
        const auto watched = naming.find(watched_);
        for (const auto& [name, inode] : naming) {
            const auto file = files_.find(inode);
            if (file == files_.end() || variations.front().contents.count(inode) != 0) {
                continue;
            }
            std::vector<Tree> extended;
            const bool finely = watched != naming.end() && watched->second == inode;
            for (const std::string& content : variants(file->second, finely)) {
                for (const Tree& tree : variations) {
                    extended.push_back(tree);
                    extended.back().contents[inode] = content;
                }
            }
            variations = std::move(extended);
        }
        trees.insert(variations.begin(), variations.end());
    }
    return trees;
}

}  // namespace prove
