#include "inspect/CheckedFile.h"

#include <algorithm>
#include <array>

#include "base/DiskFiles.h"
#include "base/Text.h"
#include "entries/Remarks.h"
#include "global/GlobalPath.h"
#include "global/GlobalRegistry.h"

namespace tool {
namespace {

const EntrySchema* schemaOf(const std::string& form) {
    for (const EntrySchema* schema : {&varValSchema(), &servicesSchema(), &initTabSchema(), &binVarSchema()}) {
        if (form == schema->group) {
            return schema;
        }
    }
    return nullptr;
}

// The lines of a large file are those of its beginning.
std::string beginningOf(const std::string& bytes) {
    constexpr std::size_t ENOUGH = 1U << 18U;
    return bytes.substr(0, ENOUGH);
}

// By accident some lines of any bytes are of some form.
bool mostAreRefused(const EntrySchema& schema, const std::string& bytes) {
    const auto counts = countLines(schema, bytes);
    std::size_t all = 0;
    for (const auto& [kind, number] : counts) {
        all += number;
    }
    const auto refused = counts.find(JudgedLine::Kind::REFUSED);
    return refused != counts.end() && 2 * refused->second > all;
}

// Of a file with a NUL byte. Junk at its beginning hides that it is binary; its records tell, or that there are no
// lines in it.
bool holdsRecords(const CheckedFile& file, const std::string& beginning) {
    return isBinary(file.bytes) || (file.records.content != RegistryContent::OTHER && !file.records.sound().empty()) ||
           file.schema == nullptr || mostAreRefused(*file.schema, beginning);
}

}  // namespace

std::string CheckedFile::option() const {
    return global ? "" : "--registry " + shellWord(path) + " ";
}

const std::vector<std::string>& fileForms() {
    static const std::vector<std::string> FORMS = {"varval", "services", "inittab", "binvar"};
    return FORMS;
}

void look(CheckedFile& file, const Context& context, const std::string& given, const std::string& form,
          const std::string& doing) {
    file.path = globalFile(context, given);
    file.bytes = readFile(file.path, doing);
    file.global = isGlobalRegistry(context, file.path);
    const EntrySchema* const named = schemaOf(form);
    if (named != nullptr && named->hasLines()) {
        file.schema = named;
        return;
    }
    const std::string beginning = beginningOf(file.bytes);
    file.schema = formOf(file.path, beginning);
    if (named == nullptr && !file.global && !isBinary(file.bytes) && file.bytes.find('\0') == std::string::npos) {
        return;
    }
    file.records = salvage(file.bytes, named != nullptr ? RegistryContent::VARIABLES
                                       : file.global    ? RegistryContent::GLOBAL
                                                        : RegistryContent::OTHER);
    file.binary = named != nullptr || file.global || (!file.bytes.empty() && holdsRecords(file, beginning));
}

}  // namespace tool
