// A registry file that is replaced by given bytes, rather than record by record, the way every update replaces it:
// under its lock, by a private copy with all that belongs to the old file, which is made durable, read again and
// compared before one rename puts it in place.
//
// What stands on disk after each outcome is what GenRegFile.h says, and the name under which the old file is kept:
//   moment                          file      kept name
//   up to the copy's sync           old       -
//   until the rename                old       old
//   after it                        new       old
#pragma once

#include <optional>
#include <string>

#include "base/Update.h"

namespace tool {

class Replacement : public RegistryFile {
public:
    // Throws a Failure for a path that the library refuses.
    Replacement(const std::string& path, std::string doing);
    ~Replacement();

    // Of a file that is not there yet.
    void givePermissions(unsigned long permissions) { regPermissions = permissions; }

    // The name under which the old file will be kept: its own, ".damaged-" and the time. Given before put().
    void keepOld();
    [[nodiscard]] const std::string& keptAs() const { return keptAs_; }

    // Puts the bytes in place. Where `seen` is given the file must still hold just that. Throws a Failure that says
    // whether the file was replaced; then nothing is left behind but its lock file.
    void put(const std::string& bytes, const std::string* seen);

private:
    void write(const std::string& bytes, const std::string* seen);
    void commit(const std::string& bytes, const std::string* seen);
    void link();
    void check(unsigned int code) const;
    void refuseOther(const std::string* seen) const;
    [[nodiscard]] Failure failed(unsigned int code, const std::string& why, std::string hint) const;

    std::string path_;
    std::string doing_;
    std::string keptAs_;
    bool keeps_ = false;
    bool linked_ = false;
    bool copied_ = false;  // the copy on disk is this object's
    bool fresh_ = false;   // there was no file
    bool done_ = false;
};

}  // namespace tool
