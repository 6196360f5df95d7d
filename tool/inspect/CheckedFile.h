// A registry file that is to be checked or repaired: which one, its bytes, and of which kind it is.
#pragma once

#include <string>

#include "base/Command.h"
#include "entries/EntrySchema.h"
#include "records/Salvage.h"

namespace tool {

struct CheckedFile {
    std::string path;
    std::string bytes;
    bool global = false;                  // the global registry itself
    bool binary = false;                  // records; else lines
    SalvagedRegistry records{};           // of a binary one, taken apart; views into the bytes
    const EntrySchema* schema = nullptr;  // of a file of lines; null where no line is of any form

    CheckedFile() = default;
    CheckedFile(const CheckedFile&) = delete;
    CheckedFile& operator=(const CheckedFile&) = delete;

    // What options it takes in a command on the file, to be written before the others: "--registry g ".
    [[nodiscard]] std::string option() const;
};

// The forms that a file may be said to have; an empty one is told from name and contents.
[[nodiscard]] const std::vector<std::string>& fileForms();

// Reads and judges the file that the user means: given by name or not. Throws a Failure for one that is missing,
// unreadable or no regular file.
void look(CheckedFile& file, const Context& context, const std::string& given, const std::string& form,
          const std::string& doing);

}  // namespace tool
