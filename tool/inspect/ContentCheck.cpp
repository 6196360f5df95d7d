#include "inspect/ContentCheck.h"

#include <fmt/core.h>
#include <genreg/GlobalReg.h>
#include <osse/Memory.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <unordered_map>

#include "base/DiskFiles.h"
#include "base/Progress.h"
#include "base/Text.h"
#include "entries/Remarks.h"

namespace tool {
namespace {

// --- records -------------------------------------------------------------------------------------------------------

void findDamage(Findings& findings, const CheckedFile& file) {
    const bool lost = file.records.sound().empty();
    const std::string word = shellWord(file.path);
    const std::string hint =
        lost ? "no sound record is left in it: put a saved copy in its place"
             : fmt::format("genreg repair {}, which keeps the sound records, and this file beside them", word);
    if (!file.records.headerFits) {
        findings.add({Severity::FAULT, Findings::DAMAGE, file.path, file.records.damages().front().why,
                      fmt::format("compare the records with a saved copy (genreg diff), since one may hold a wrong "
                                  "value; then genreg repair {} states the checksum anew",
                                  word),
                      0, REG_CHECKSUM_HEADER_SIZE});
    }
    for (const RegistryPart& part : file.records.parts) {
        if (!part.damage.empty()) {
            findings.add({Severity::FAULT, Findings::DAMAGE, file.path,
                          (part.framed ? "a record is damaged: " : "no record: ") + part.damage, hint, part.offset,
                          part.size});
        }
    }
}

void findLaterItems(Findings& findings, const CheckedFile& file) {
    std::size_t records = 0;
    const RegistryPart* first = nullptr;
    for (const RegistryPart* part : file.records.sound()) {
        bool later = false;
        eachItem(part->payload, [&](const GlobalRegItem& item) { later = later || item.field == nullptr; });
        records += later ? 1 : 0;
        first = later && first == nullptr ? part : first;
    }
    if (first != nullptr) {
        findings.add({Severity::NOTE, "later-items", file.path,
                      fmt::format("{} of a later release {} items that this one does not know; updates keep them",
                                  counted(records, "record"), records == 1 ? "has" : "have"),
                      fmt::format("genreg dump {}", shellWord(file.path)), first->offset, first->size});
    }
}

void addDuplicate(Findings& findings, const CheckedFile& file, const RegistryPart& part, const std::string& what,
                  std::size_t first, const std::string& hint) {
    findings.add({Severity::WARNING, "duplicate-key", file.path,
                  fmt::format("a second {}; readers take the first, at offset {}", what, first), hint, part.offset,
                  part.size});
}

// The words of a command line that name the service of an instance, with which its key begins.
std::string serviceWords(const GlobalRegRecord& instance) {
    std::string words;
    for (const GlobalRegField& field : kindOf(GLOBALREG_INSTANCE).fields) {
        if ((kindOf(GLOBALREG_SERVICE).keyFields & field.bit) != 0) {
            words += " " + shellWord(valueText(instance, field).value_or(""));
        }
    }
    return words;
}

void compareRecords(Findings& findings, const CheckedFile& file) {
    std::unordered_map<std::string, std::size_t> offsets;
    for (const RegistryPart* part : file.records.sound()) {
        const FoundRecord record = recordOfImage(part->payload);
        const RecordKind& kind = kindOf(record.recordType);
        const auto [first, fresh] = offsets.emplace(keyBytes(record), part->offset);
        if (!fresh) {
            addDuplicate(findings, file, *part, keyText(record), first->second,
                         fmt::format("genreg dump {} shows both: note what is to stay, then genreg {} remove --help, "
                                     "since that takes out "
                                     "both",
                                     shellWord(file.path), kind.name));
        }
    }
    for (const RegistryPart* part : file.records.sound()) {
        const FoundRecord record = recordOfImage(part->payload);
        if (record.recordType != GLOBALREG_INSTANCE || offsets.contains(keyBytesOfService(record))) {
            continue;
        }
        findings.add(
            {Severity::WARNING, "no-service", file.path,
             fmt::format("{} has no service record of its version", keyText(record)),
             fmt::format(
                 "genreg {}service set{} servicePath=...; where the instance is gone, genreg instance remove --help",
                 file.option(), serviceWords(record)),
             part->offset, part->size});
    }
}

// A buffer of the platform's, which the functions of a record may replace.
class RecordBytes {
public:
    explicit RecordBytes(std::string_view image) {
        unsigned long size = 0;
        (void)GlobalReg::GetMaxRecordSize(&size);
        size = std::max<unsigned long>(size, image.size());
        buffer_ = ossMemAlloc(size);
        if (buffer_ == nullptr) {
            throw std::bad_alloc();
        }
        std::memset(buffer_, 0, size);
        (void)image.copy(static_cast<char*>(buffer_), image.size());
    }
    ~RecordBytes() { (void)ossMemFree(buffer_); }
    RecordBytes(const RecordBytes&) = delete;
    RecordBytes& operator=(const RecordBytes&) = delete;

    [[nodiscard]] void** slot() { return &buffer_; }
    [[nodiscard]] std::string_view packed() const {
        unsigned long size = 0;
        (void)GlobalReg::GetPackedRecordSize(buffer_, &size);
        return {static_cast<const char*>(buffer_), size};
    }

private:
    void* buffer_ = nullptr;
};

// What an update that rewrites the record would make of it; empty when that is the same record.
std::string changedByPacking(std::string_view image) {
    const RecordBytes before(image);
    RecordBytes bytes(image);
    if (const unsigned int code = GlobalReg::UnpackRecord(bytes.slot())) {
        return fmt::format("it cannot be unpacked ({})", hexCode(code));
    }
    RecordBytes previous(image);
    if (const unsigned int code = GlobalReg::PackRecord(bytes.slot(), *previous.slot())) {
        return fmt::format("it cannot be packed ({})", hexCode(code));
    }
    const FoundRecord old = recordOfImage(image);
    const FoundRecord again = recordOfImage(bytes.packed());
    const bool same = old.recordType == again.recordType && old.fieldMask == again.fieldMask &&
                      sameValues(old, again, kindOf(old.recordType).known) && old.later == again.later;
    return same ? "" : "another record comes of it";
}

void packAgain(Findings& findings, const CheckedFile& file) {
    for (const RegistryPart* part : file.records.sound()) {
        Progress::step();
        if (const std::string change = changedByPacking(part->payload); !change.empty()) {
            findings.add({Severity::FAULT, "repack", file.path,
                          fmt::format("{} is read, but not written again as it is: {}",
                                      keyText(recordOfImage(part->payload)), change),
                          fmt::format("keep a copy of the file; genreg dump {} shows the record", shellWord(file.path)),
                          part->offset, part->size});
        }
    }
}

void compareVariables(Findings& findings, const CheckedFile& file) {
    std::unordered_map<std::string, std::size_t> offsets;
    for (const RegistryPart* part : file.records.sound()) {
        const auto record = variableOf(part->payload);
        const std::string name = record->variable;
        Progress::step();
        if (const auto [first, fresh] = offsets.emplace(name, part->offset); !fresh) {
            addDuplicate(
                findings, file, *part, fmt::format("variable {}", printable(name)), first->second,
                fmt::format("genreg binvar get {} {} --all shows them", shellWord(file.path), shellWord(name)));
        }
    }
}

void checkRecords(Findings& findings, const CheckedFile& file, bool deep) {
    findDamage(findings, file);
    const RegistryContent content = file.records.content;
    if (content == RegistryContent::GLOBAL) {
        findLaterItems(findings, file);
        if (deep) {
            compareRecords(findings, file);
            packAgain(findings, file);
        }
    } else if (content == RegistryContent::VARIABLES && deep) {
        compareVariables(findings, file);
    } else if (content == RegistryContent::OTHER && !file.records.sound().empty()) {
        findings.add({Severity::NOTE, "other-kind", file.path,
                      "its records are of a kind not known here: only their lengths were looked at", ""});
    }
}

// --- lines ---------------------------------------------------------------------------------------------------------

std::string lineHint(const CheckedFile& file, const OddLine& line) {
    const std::string show = fmt::format("sed -n {}p {}", line.number, shellWord(file.path));
    if (line.kind == std::string_view("other-form")) {
        return show + "; mend the line, or make it a comment (#)";
    }
    return line.kind == std::string_view("hidden") ? show + " | od -c; take the NUL byte out" : show;
}

void compareEntries(Findings& findings, const CheckedFile& file) {
    const EntrySchema& schema = *file.schema;
    std::unordered_map<std::string, std::size_t> lines;
    for (const Entry& entry : schema.open(file.path, true)->read("check it")) {
        const std::size_t line = entry.number;
        const auto [first, fresh] = lines.emplace(entry.name, line);
        if (!fresh) {
            findings.add(
                {Severity::WARNING, "duplicate-key", file.path,
                 fmt::format("a second {} {}; readers take the first, in line {}", schema.noun, printable(entry.name),
                             first->second),
                 fmt::format("genreg {} get{} {} {} shows them", schema.group,
                             schema.getAll.name != nullptr ? "-all" : "", shellWord(file.path), shellWord(entry.name)),
                 std::nullopt, std::nullopt, line});
        }
    }
}

void checkLines(Findings& findings, const CheckedFile& file, bool deep) {
    if (!deep || file.bytes.empty()) {
        return;
    }
    if (file.schema == nullptr) {
        findings.add({Severity::WARNING, "form-unknown", file.path, "no line of it is of a form known here",
                      "name the form: --form varval, services, inittab or binvar"});
        return;
    }
    for (const OddLine& line : oddLines(*file.schema, file.bytes)) {
        const bool misread = line.kind == std::string_view("other-form") || line.kind == std::string_view("hidden");
        findings.add({misread ? Severity::WARNING : Severity::NOTE, line.kind, file.path, line.why,
                      lineHint(file, line), std::nullopt, std::nullopt, line.number});
    }
    compareEntries(findings, file);
}

}  // namespace

void checkContent(Findings& findings, const CheckedFile& file, bool deep) {
    if (file.binary) {
        checkRecords(findings, file, deep);
    } else {
        checkLines(findings, file, deep);
    }
}

std::string contentText(const CheckedFile& file) {
    if (file.binary) {
        return counted(file.records.sound().size(), "record");
    }
    const auto lines = static_cast<std::size_t>(std::count(file.bytes.begin(), file.bytes.end(), '\n'));
    return counted(lines, "line") +
           (file.schema != nullptr ? fmt::format(" of the form {}", file.schema->group) : std::string());
}

}  // namespace tool
