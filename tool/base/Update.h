// The way every change goes: rehearsed on a copy where a difference is to be shown, then made by the real engine.
#pragma once

#include <genreg/GenRegFile.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/Command.h"
#include "base/Diff.h"
#include "base/ToldChange.h"
#include "system/System.h"

namespace tool {

// A file of any kind, for what concerns the file alone: its companions and its lock.
class RegistryFile : public GenRegFile {
public:
    // Throws a Failure for a path that the library refuses. The companions lie beside the real file when the path is a
    // symbolic link.
    explicit RegistryFile(const std::string& path);

    [[nodiscard]] std::string registryPath() const { return regPath; }
    [[nodiscard]] std::string backupPath() const { return bkpPath; }
    [[nodiscard]] std::string temporaryPath() const { return tmpPath; }
    [[nodiscard]] std::string corruptPath() const { return corPath; }
    [[nodiscard]] std::string lockFilePath() const { return lockPath; }
};

struct Change {
    std::string path;   // as the user named it
    std::string doing;  // "set PORT"
    // Makes the change in the file of that path; false when the file says so already. Throws Failure.
    std::function<bool(const std::string& path)> make;
    // What --json tells of it once it is made: an entry, a record, several of them.
    std::function<std::vector<ToldChange>()> told;
    // How a difference is shown to people.
    std::function<void(Output& output, const Difference& difference)> print = printDifference;
    bool makesFolder = false;  // where the file's folder is missing; else --parents must ask for it
};

// Says which of the file's names go on with the old contents when it is replaced.
void warnOfOtherNames(Context& context, const std::string& path);
// Says what the new file at the path lacks of what belonged to the old one.
void tellOfLost(Context& context, const std::string& path, const Belongings& before);

// Makes the change as the options ask, tells of it, answers the exit status.
int carryOut(Context& context, const Change& change);

}  // namespace tool
