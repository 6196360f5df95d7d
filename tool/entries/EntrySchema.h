// Files of entries that a name finds, lines and frames alike: what a schema tells of itself, in one table. The commands
// over it follow from the table.
//
// An entry is edited as the bytes that stand in the file, so that nothing is lost that the library's record has no
// place for. Locking, verification and commit are the library's engines'.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/BatchFile.h"
#include "base/Command.h"

namespace tool {

// An entry as found.
struct Entry {
    std::size_t number = 0;          // of its line, or of its record; counted from 1
    std::string raw;                 // its bytes; of a line without the newline
    std::string name;                // what finds it, as people write it
    std::string value;               // what --if-value compares and "get" prints
    std::vector<std::string> names;  // other ones, where the schema has them
    std::vector<std::string> cells;  // of the table, one a field
    Json members = Json::object();
    bool hidesBytes = false;  // of a line: behind a NUL byte, which ends it for every reader

    // Gives it its number; "line" or "record" says of what.
    void setNumber(const char* what, std::size_t counted);
};

// What is asked of an entry, and how the engine's call to write it went.
struct EntryEdit {
    // The entry's bytes as they shall be. Bytes that are as asked stay as they are.
    std::function<std::string(std::string_view raw)> rewrite;
    // The fields that are asked for, as cells of the table; none: as the field stands.
    std::vector<std::optional<std::string>> cells;
    std::string layout;       // what a new entry is written over
    bool doesNotFit = false;  // result: the bytes are too long, or would be read as something else

    [[nodiscard]] bool isAsAsked(std::string_view raw) const { return rewrite(raw) == raw; }
    // Whether the entry is read as asked.
    [[nodiscard]] bool isShownBy(const Entry& entry) const;
};

// How a key is compared: the fields of the mask, and the whole entry when it must be the one that was seen.
struct EntryKey {
    unsigned long mask;
    bool exact;
};

// What an engine's slots must know of a record beside its fields.
struct EntryMarks {
    const EntryEdit* asked = nullptr;       // of a record to be written
    const EntryEdit* notYet = nullptr;      // of a key: only entries that are not yet as this edit asks for
    const std::string* expected = nullptr;  // of a key: only this entry

    [[nodiscard]] bool finds(std::string_view raw) const {
        return (expected == nullptr || *expected == raw) && (notYet == nullptr || !notYet->isAsAsked(raw));
    }
    [[nodiscard]] bool equals(std::string_view raw, std::string_view own) const {
        return asked != nullptr ? asked->isAsAsked(raw) : raw == own;
    }
};

class EntryFile {
public:
    EntryFile() = default;
    virtual ~EntryFile() = default;
    EntryFile(const EntryFile&) = delete;
    EntryFile& operator=(const EntryFile&) = delete;

    // All entries in order. Throws a Failure.
    virtual std::vector<Entry> read(const std::string& doing) = 0;
    // The engine's operations. Each answers the engine's code.
    virtual unsigned int add(unsigned long mask, EntryEdit& edit) = 0;
    // Where the key is not exact, entries that are as asked already do not count as matches, so that one of them does
    // not keep the others from being changed.
    virtual unsigned int change(const EntryKey& key, const Entry& found, EntryEdit& edit) = 0;
    virtual unsigned int remove(const EntryKey& key, const Entry& found) = 0;
    // A batch of them, which answers as the engine does. An entry that one of them has written, told by its bytes.
    virtual unsigned int begin() = 0;
    virtual unsigned int commit() = 0;
    [[nodiscard]] virtual Entry describe(const std::string& raw) const = 0;
    // What becomes of an entry by the edit. It keeps its number.
    [[nodiscard]] Entry rewritten(const Entry& found, const EntryEdit& edit) const;
};

// What stands behind a command.
struct EntryWords {
    std::string file;
    std::string name;
    std::string pattern;              // of a list; empty: everything
    std::vector<std::string> fields;  // one for each operand that the schema names; none: as they stand
    std::optional<std::string> valueFrom;
    std::vector<std::string> rest;  // of the operand that may be repeated
    bool noRest = false;
    std::optional<std::string> comment;  // none: as it stands; empty: none
    std::string type;                    // that the value is converted to; may be empty
    bool unquoted = false;
    bool addMissing = false;
    bool ifPresent = false;
    std::vector<std::optional<std::string>> lookups;  // in the schema's order
    bool asFound = false;  // of an item of a batch: some of them say what the entry said before
};

// What a command concerns.
struct EntryRequest {
    std::string file;
    std::string name;
    unsigned long mask = 0;  // the fields that find it
    EntryEdit edit{};
    std::string addWords{};  // of the command line that adds it, quoted for a shell
    // Whether the name means the entry; empty: when it is the entry's.
    std::function<bool(const Entry&)> concerns{};
    // Refuses entries that the name does not tell apart; may be empty.
    std::function<void(const std::vector<Entry>&)> tellApart{};
    bool addMissing = false;  // of a set: an entry that is not there is added
    bool ifPresent = false;   // of a delete: an entry that is not there is no failure
    bool showsName = false;   // of a get: what was asked for is the name
    bool unquoted = false;    // of a get: a value is shown without the quotes around it
};

// A line as its schema sees it.
struct JudgedLine {
    enum class Kind { ENTRY, COMMENT, BLANK, REFUSED };
    Kind kind = Kind::BLANK;
    std::string name;  // of an entry
    std::string why;   // of a refused line
};

// A word of a command line: its name, and what its help says.
struct EntryWord {
    const char* name = nullptr;
    const char* help = nullptr;
};

// An option of get that finds an entry by something else than its name.
struct EntryLookup {
    const char* option;  // "--alias"
    const char* what;
    const char* help;
    void (*find)(EntryRequest& request, const std::string& given);
};

struct EntrySchema {
    const char* group;  // of the commands: "services"
    const char* noun;   // of an entry
    const char* place;  // what carries an entry: "line"

    // The commands. Without a get-all, get has --all. One of the schema's own takes a FILE.
    EntryWord list;
    EntryWord own = {};
    EntryWord get;
    EntryWord getAll = {};
    EntryWord set;
    EntryWord add;
    EntryWord remove;
    EntryWord apply;
    int (*runOwn)(Context& context, const std::string& file) = nullptr;

    // Their words. The rest may be repeated, and there may be an option of set that says that it shall be empty.
    const char* file;
    EntryWord found;  // the name, of get and delete
    EntryWord named;  // of set and add
    std::vector<EntryWord> fields;
    EntryWord rest = {};
    EntryWord noRest = {};
    const char* restTwice = nullptr;
    std::vector<EntryLookup> lookups = {};

    std::vector<std::string> heading;  // of the table, the name's first
    unsigned long mask;                // the fields that a name finds
    unsigned long valueMask;           // those that the value consists of
    bool quotes = false;               // a value may stand in quotes, which --if-value need not give
    const char* tooLong = "";          // why an edit does not fit, and what to do
    const char* shorten = "";

    std::unique_ptr<EntryFile> (*open)(const std::string& path, bool severalAllowed);
    // Puts into the request what the words ask for. Throws a Failure where that cannot be written.
    void (*ask)(EntryRequest& request, const EntryWords& words, bool fresh);
    // Of an item of a batch: what finds the entry, which the words get as well; and what shall be written, where that
    // which is not there is as it was found (null: it is new). Both take their members out of it.
    std::string (*takeName)(BatchItem& item, EntryWords& words);
    void (*takeWords)(BatchItem& item, const Entry* found, EntryWords& words);
    std::vector<std::string> keyMembers;  // of an object, what finds the entry; the name's first
    std::vector<std::string> otherMembers;
    const char* anyValue;  // that an entry may have, as --if-value compares it
    // Completes a request whose name need not be the whole one.
    void (*find)(EntryRequest& request) = nullptr;
    // A value as --type asks for it. Throws a Failure.
    Json (*convert)(const std::string& path, const Entry& entry, const std::string& type) = nullptr;
    // What a new entry is written over, given the last one; empty without any.
    std::string (*layoutLike)(std::string_view last) = nullptr;

    // A file that is no text, as lines of its difference.
    std::string (*shown)(std::string_view bytes) = nullptr;
    // Of a file of lines, for remarks on them.
    JudgedLine (*judge)(const std::string& text) = nullptr;
    // The entry of a line, but for its number; none of a line that is none.
    std::optional<Entry> (*describe)(const std::string& text) = nullptr;
    const char* pair = nullptr;  // what a line of a name is, where that is not the noun
    bool continued = false;      // a backslash before the newline goes on with the next line
    char nameEnd = 0;            // of a name as people write it: what follows is not in the line's; 0: nothing

    [[nodiscard]] bool hasLines() const { return judge != nullptr; }
    [[nodiscard]] const char* lineNoun() const { return pair != nullptr ? pair : noun; }
};

// Of an item of a batch about a variable, whatever its file is made of: takeName and takeWords.
std::string takeVariable(BatchItem& item, EntryWords& words);
void takeValue(BatchItem& item, const Entry* found, EntryWords& words);

[[nodiscard]] const EntrySchema& varValSchema();
[[nodiscard]] const EntrySchema& servicesSchema();
[[nodiscard]] const EntrySchema& initTabSchema();
[[nodiscard]] const EntrySchema& binVarSchema();

}  // namespace tool
