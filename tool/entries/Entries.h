// Files of entries that a name finds, lines and frames alike: what a form tells of itself, and the commands over it.
//
// An entry is edited as the bytes that stand in the file, so that nothing is lost that the library's record has no
// place for. Locking, verification and commit are the library's engines'.
#pragma once

#include <genreg/GenRegFile.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Command.h"
#include "base/Update.h"
#include "entries/Remarks.h"

namespace tool {

// An entry as found.
struct Entry {
    std::size_t number = 0;          // of its line, or of its record; counted from 1
    std::string raw;                 // its bytes; of a line without the newline
    std::string name;                // what finds it, as people write it
    std::string value;               // what --if-value compares and "get" prints
    std::vector<std::string> cells;  // of the table
    Json members = Json::object();
    bool hidesBytes = false;  // of a line: behind a NUL byte, which ends it for every reader

    // Gives it its number; "line" or "record" says of what.
    void setNumber(const char* what, std::size_t counted);
};

// What is asked of an entry, and how the engine's call to write it went.
struct EntryEdit {
    // The entry's bytes as they shall be; of a new one when there are none. Bytes that are as asked stay as they are.
    std::function<std::string(std::string_view raw)> rewrite;
    // Whether the library reads the bytes as asked; nothing else is ever written. For forms whose bytes may be misread.
    std::function<bool(std::string_view raw)> readsAsAsked;
    bool doesNotFit = false;  // result: the bytes are too long, or would be read as something else

    [[nodiscard]] bool isAsAsked(std::string_view raw) const { return rewrite(raw) == raw; }
};

// How a key is compared: the fields of the mask, and the whole entry when it must be the one that was seen.
struct EntryKey {
    unsigned long mask;
    bool exact;
};

class EntryFile {
public:
    EntryFile() = default;
    virtual ~EntryFile() = default;
    EntryFile(const EntryFile&) = delete;
    EntryFile& operator=(const EntryFile&) = delete;

    virtual GenRegFile& engine() = 0;
    // All entries in order. Throws a Failure.
    virtual std::vector<Entry> read(const std::string& doing) = 0;
    // The engine's operations. Each answers the engine's code.
    virtual unsigned int add(unsigned long mask, EntryEdit& edit) = 0;
    // Where the key is not exact, entries that are as asked already do not count as matches, so that one of them does
    // not keep the others from being changed.
    virtual unsigned int change(const EntryKey& key, const Entry& found, EntryEdit& edit) = 0;
    virtual unsigned int remove(const EntryKey& key, const Entry& found) = 0;
};

// A form of files.
struct EntryForm {
    const char* group;  // of the commands: "services"
    const char* noun;   // of an entry
    const char* place;  // what carries an entry: "line"
    std::vector<std::string> heading;
    unsigned long valueMask;  // the fields that the value consists of
    const char* tooLong;      // why an edit does not fit, and what to do
    const char* shorten;
    std::unique_ptr<EntryFile> (*open)(const std::string& path, bool severalAllowed);
    std::string (*shown)(std::string_view bytes) = nullptr;  // a file that is no text, as lines of its difference
    const LineForm* lines = nullptr;                         // of a file of lines, for remarks on them
};

// What a command concerns.
struct EntryRequest {
    std::string file;
    std::string name;
    std::function<bool(const Entry&)> concerns;
    unsigned long mask = 0;  // the fields that find it
    EntryEdit edit;
    Json result = Json::object();  // what --json tells of an update
    std::string addWords;          // of the command line that adds it, quoted for a shell
    // Refuses entries that the name does not tell apart; may be empty.
    std::function<void(const std::vector<Entry>&)> tellApart;
};

int listEntries(Context& context, const EntryForm& form, const std::string& file);
// The first entry, or every one.
int getEntries(Context& context, const EntryForm& form, const EntryRequest& request, bool every);
int setEntry(Context& context, const EntryForm& form, const EntryRequest& request);
int addEntry(Context& context, const EntryForm& form, const EntryRequest& request);
int deleteEntry(Context& context, const EntryForm& form, const EntryRequest& request);

// All entries of a file that must be there.
[[nodiscard]] std::vector<Entry> entriesOf(const EntryForm& form, const std::string& file, const std::string& doing);

// Makes a change of lines, which would damage a file of records: refused there.
int carryOutOnText(Context& context, const Change& change);

}  // namespace tool
