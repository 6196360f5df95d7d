// Any bytes as the file of each schema, and the same updates of it in the quick ways and in the plain one beside each
// other, in a folder each: codes, causes, log lines, records, and all that lies in the folder are the same after each.
//
// The plain object has functions of its own in the slots, which hand on to the schema's, and is traced: it opens each
// file for each step, and asks about each line and record. The others are the schema as it comes; one whose slots are
// others, which keeps its files and asks; one with a limit for its locks, which opens them and does not ask; and one
// that is traced alone. Another program may come between, when a record is written: it damages the old file or takes
// the place of a file.
#include <osse/Trace.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <vector>

#include "Fuzz.h"
#include "Told.h"

namespace {

constexpr std::size_t MOST_BYTES = 200'000;
constexpr unsigned int MOST_OPERATIONS = 6;
const std::string FILE_NAME = "file";

// The fields of a record, with bars between them. The texts are its own.
class Fields {
public:
    explicit Fields(const std::string& text) {
        for (std::size_t at = 0; at <= text.size();) {
            const std::size_t end = std::min(text.find('|', at), text.size());
            fields_.push_back(text.substr(at, end - at));
            at = end + 1;
        }
    }
    // Null: there are not so many.
    [[nodiscard]] char* text(std::size_t n) { return n < fields_.size() ? fields_[n].data() : nullptr; }
    [[nodiscard]] unsigned long number(std::size_t n) {
        return n < fields_.size() ? std::strtoul(fields_[n].c_str(), nullptr, 0) : 0;
    }
    [[nodiscard]] unsigned long ifThere(std::size_t n, unsigned long flag) {
        return n < fields_.size() && !fields_[n].empty() ? flag : 0;
    }
    [[nodiscard]] std::size_t count() const { return fields_.size(); }

private:
    std::vector<std::string> fields_;
};

void copyText(char* member, std::size_t capacity, const char* text) {
    std::memcpy(member, text != nullptr ? text : "", text != nullptr ? ::strnlen(text, capacity) : 0);
}

void fill(GenRegVarValRecord& record, Fields& fields) {
    record.contains = fields.ifThere(0, VARVAL_HAS_PAIR) | fields.ifThere(2, VARVAL_HAS_COMMENT);
    record.variable = fields.text(0);
    record.value = fields.text(1);
    record.comment = fields.text(2);
}
void fill(GenRegServicesRecord& record, Fields& fields) {
    record.flags = fields.ifThere(0, SERVICES_HAS_NAME) | fields.ifThere(3, SERVICES_HAS_COMMENT);
    record.name = fields.text(0);
    record.port = static_cast<unsigned int>(fields.number(1));
    record.protocol = fields.text(2);
    record.comment = fields.text(3);
    if (fields.count() > 4) {
        record.aliases = record.aliasTable;
        record.aliasTable[0] = fields.text(4);
    }
}
void fill(GenRegInitTabRecord& record, Fields& fields) {
    record.flags = fields.ifThere(0, INITTAB_HAS_ENTRY) | fields.ifThere(4, INITTAB_HAS_COMMENT);
    record.id = fields.text(0);
    record.runLevel = fields.text(1);
    record.action = fields.text(2);
    record.command = fields.text(3);
    record.comment = fields.text(4);
}
void fill(GenRegBinVarValRecord& record, Fields& fields) {
    copyText(record.variable, sizeof record.variable, fields.text(0));
    record.value = static_cast<int>(fields.number(1));
    copyText(record.comment, sizeof record.comment, fields.text(2));
}
// The type, and its fields as they stand in the record.
void fill(GlobalRegRecord& record, Fields& fields) {
    record.recordType = static_cast<unsigned int>(fields.number(0));
    unsigned long count = 0;
    const GlobalRegField* const known = globalRegFields(record.recordType, &count);
    for (unsigned long n = 0; n < count; ++n) {
        char* const member = reinterpret_cast<char*>(&record) + known[n].offset;
        if (known[n].kind == GLOBALREG_FIELD_TEXT) {
            copyText(member, known[n].capacity, fields.text(n + 1));
        } else {
            const unsigned long number = fields.number(n + 1);
            std::memcpy(member, &number, std::min<std::size_t>(known[n].capacity, sizeof number));
        }
        record.fieldMask |= fields.ifThere(n + 1, known[n].bit);
    }
}

struct Operation {
    unsigned int which;  // add, change, delete, set, look-up
    unsigned long mask;
    std::string key;
    std::string record;
};

// Another program, which comes when records are written.
struct Visitor {
    unsigned int deed = 0;  // 0: none
    unsigned int moment = 0;
    std::size_t place = 0;
};

struct Asked {
    std::string contents;
    bool exists = true;
    bool isLinked = false;
    bool hasLeftovers = false;
    mode_t mode = 0644;
    unsigned long toggled = 0;  // features
    bool keeps = false;
    Visitor visitor;
    std::vector<Operation> operations;
};

std::string readAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
void writeAll(const std::string& path, const std::string& bytes) {
    claim(std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size())).good(),
          "the file is written");
}

std::string flipped(std::string bytes, std::size_t place) {
    if (!bytes.empty()) {
        bytes[place % bytes.size()] ^= 1;
    }
    return bytes;
}

// What the other program does in a folder, at the moment that was asked for of each operation.
class Visit {
public:
    Visit(const Visitor& visitor, std::string registry) : visitor_(visitor), registry_(std::move(registry)) {}
    void recordIsWritten() {
        if (visitor_.deed != 0 && calls_++ == visitor_.moment) {
            act();
        }
    }

private:
    void replace(const std::string& path, const std::string& bytes) {
        struct stat before = {};
        (void)::stat(registry_.c_str(), &before);
        writeAll(registry_ + ".new", bytes);
        (void)::chmod((registry_ + ".new").c_str(), before.st_mode & 07777);
        (void)::rename((registry_ + ".new").c_str(), path.c_str());
    }
    void act() {
        const std::string bytes = readAll(registry_);
        const std::string copy = registry_ + ".tmp";
        switch (visitor_.deed) {
            case 1:
            case 2:
                writeAll(registry_, flipped(bytes, visitor_.place));
                break;
            case 3:
                replace(registry_, flipped(bytes, visitor_.place));
                break;
            case 4:
                replace(registry_, bytes);
                break;
            case 5:
                replace(copy, bytes);
                break;
            case 6:
                (void)::unlink(copy.c_str());
                break;
            case 7:
                (void)::chmod(registry_.c_str(), 0604);
                break;
            default:
                std::ofstream(registry_, std::ios::binary | std::ios::app) << "more=1\n";
        }
    }

    Visitor visitor_;
    std::string registry_;
    unsigned int calls_ = 0;
};
Visit* visit = nullptr;

// How often functions in the slots were asked that do not write.
unsigned long timesAsked = 0;

// A function for a slot, which hands on to what stood there; the visitor comes with it where it is one that writes.
template <typename Slot, bool WRITES>
struct Between;
template <typename... Arguments, bool WRITES>
struct Between<unsigned int (*)(Arguments...), WRITES> {
    static inline unsigned int (*behind)(Arguments...) = nullptr;
    static unsigned int call(Arguments... arguments) {
        if (!WRITES) {
            ++timesAsked;
        } else if (visit != nullptr) {
            visit->recordIsWritten();
        }
        return behind(arguments...);
    }
};
template <bool WRITES, typename Slot>
void putBetween(Slot& slot) {
    Between<Slot, WRITES>::behind = slot;
    slot = Between<Slot, WRITES>::call;
}

struct Way {
    const char* name;  // of its folder
    bool replaced;
    bool waits;
    bool traced;
};
constexpr Way PLAIN = {"plain", true, false, true};
constexpr Way OTHERS[] = {{"quick", false, false, false},
                          {"replaced", true, false, false},
                          {"waits", false, true, false},
                          {"traced", false, false, true}};

template <class Schema>
class Opened : public Schema {
public:
    Opened(const std::string& path, const Asked& asked, const Way& way) {
        claim(this->setRegistryPaths(path.c_str()) == 0, "the path is taken");
        // The change log and the monitor are the system's.
        this->features &= ~(REG_FEATURE_CHANGE_LOG | REG_FEATURE_NOTIFY);
        this->features ^= asked.toggled;
        if constexpr (requires { this->parseLine; }) {
            claim(!asked.keeps || this->KeepLines(true) == 0, "lines are kept");
            if (way.replaced) {
                putBetween<false>(this->parseLine);
            }
            if (asked.visitor.deed != 0) {
                putBetween<true>(this->formatLine);
            }
        } else if (asked.visitor.deed != 0) {
            if (this->packRecord != nullptr) {
                putBetween<true>(this->packRecord);
            } else {
                putBetween<true>(this->getRecordSize);
            }
        }
        if (way.replaced) {
            putBetween<false>(this->matchRecord);
        }
        if (way.waits) {
            this->SetLockWait(3'600'000, nullptr, nullptr);
        }
    }
};

template <class Record>
unsigned int perform(auto& registry, const Operation& operation, Record* key, Record* record, std::string* found) {
    switch (operation.which) {
        case 0:
            return registry.Add(operation.mask, record);
        case 1:
            return registry.Change(operation.mask, key, record);
        case 2:
            return registry.Delete(operation.mask, key);
        case 3: {  // as the information interface sets
            const unsigned int rc = registry.Add(operation.mask, record);
            return rc == REG_DUPLICATE ? registry.Change(operation.mask, key, record) : rc;
        }
        default: {
            auto result = std::make_unique<Record>();
            const unsigned int rc = registry.Get(operation.mask, key, result.get());
            *found = rc == 0 ? told(*result) : "";
            return rc;
        }
    }
}

// A way in its folder.
template <class Schema, class Record>
class Side {
public:
    Side(const FuzzFolder& folder, const Asked& asked, const Way& way) : way_(way), folder_(folder.path(way.name)) {
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directory(folder_);
        const std::string file = folder_ + "/" + FILE_NAME;
        if (asked.exists) {
            writeAll(file, asked.contents);
            claim(::chmod(file.c_str(), asked.mode) == 0, "the permissions are given");
        }
        if (asked.hasLeftovers) {
            writeAll(file + ".tmp", "left");
            writeAll(file + ".cor", "corrupt");
            writeAll(folder_ + "/." + FILE_NAME + ".bkp", "backup");
        }
        std::string path = file;
        if (asked.isLinked) {
            path = folder_ + "/link";
            claim(::symlink(FILE_NAME.c_str(), path.c_str()) == 0, "a link leads to the file");
        }
        registry_ = std::make_unique<Opened<Schema>>(path, asked, way);
        visitor_ = asked.visitor;
    }

    // What comes of it.
    std::string play(const Operation& operation) { return say(operation) + left(); }
    std::string say(const Operation& operation) {
        Fields keyFields(operation.key);
        Fields recordFields(operation.record);
        auto key = std::make_unique<Record>();
        auto record = std::make_unique<Record>();
        fill(*key, keyFields);
        fill(*record, recordFields);
        Visit visiting(visitor_, folder_ + "/" + FILE_NAME);
        std::string log;
        std::string found;
        visit = &visiting;
        logged = &log;
        gtraceState = way_.traced ? GTRACE_ATTACHED | GTRACE_ENABLED : 0;
        const unsigned int rc = perform(*registry_, operation, key.get(), record.get(), &found);
        gtraceState = 0;
        logged = nullptr;
        visit = nullptr;
        return told(rc) + "\n" + found + "\n" + log;
    }
    unsigned int begin() { return registry_->BeginBatch(); }
    unsigned int commit() { return registry_->CommitBatch(); }
    // The registry: nothing where there is none.
    [[nodiscard]] std::string bytes() const { return readAll(folder_ + "/" + FILE_NAME); }

private:
    // Everything in the folder. Of a lock file it is said who held the lock, and when.
    [[nodiscard]] std::string left() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        std::string all;
        for (const std::string& name : names) {
            const std::string path = folder_ + "/" + name;
            struct stat status = {};
            claim(::lstat(path.c_str(), &status) == 0, "the file is there");
            const bool told = S_ISREG(status.st_mode) && !name.ends_with(".lock");
            all += name + " " + std::to_string(status.st_mode) + " " + std::to_string(status.st_nlink) + "\n" +
                   (told ? readAll(path) : "") + "\n";
        }
        return all;
    }

    Way way_;
    std::string folder_;
    std::unique_ptr<Opened<Schema>> registry_;
    Visitor visitor_;
};

template <class Schema, class Record>
void compare(const FuzzFolder& folder, const Asked& asked) {
    Side<Schema, Record> plain(folder, asked, PLAIN);
    std::vector<std::unique_ptr<Side<Schema, Record>>> others;
    for (const Way& way : OTHERS) {
        others.push_back(std::make_unique<Side<Schema, Record>>(folder, asked, way));
    }
    for (const Operation& operation : asked.operations) {
        timesAsked = 0;
        const std::string expected = plain.play(operation);
        const unsigned long timesPlain = timesAsked;
        for (std::size_t n = 0; n < others.size(); ++n) {
            timesAsked = 0;
            const std::string got = others[n]->play(operation);
            if (got != expected) {
                (void)std::fprintf(stderr, "plain: %s\n%s: %s\n", expected.c_str(), OTHERS[n].name, got.c_str());
            }
            claim(got == expected, "every way answers, logs and leaves what the plain one does");
            claim(timesAsked == (OTHERS[n].replaced ? timesPlain : 0), "functions in the slots are asked as often");
        }
    }
}

// A line that is refused is logged whenever it is parsed, and beside which others a verification parses it is another
// matter in a batch.
std::string withoutVerification(const std::string& said) {
    static const std::string VERIFY = std::to_string(0x082a002c) + " ";
    std::vector<std::string> lines;
    std::istringstream all(said);
    for (std::string line; std::getline(all, line);) {
        if (!line.starts_with(VERIFY)) {
            lines.push_back(line);
        } else if (!lines.empty()) {
            lines.pop_back();  // the schema's own line
        }
    }
    std::string left;
    for (const std::string& line : lines) {
        left += line + "\n";
    }
    return left;
}

// The same updates one after the other and in a batch: they answer alike, and end in the same file, which is the old
// one up to the commit.
template <class Schema, class Record>
void compareBatch(const FuzzFolder& folder, const Asked& asked) {
    constexpr Way SINGLY = {"singly", false, false, false};
    for (const Way& way : {Way{"batch", false, false, false}, Way{"replaced_batch", true, false, false}}) {
        Side<Schema, Record> singly(folder, asked, SINGLY);
        Side<Schema, Record> together(folder, asked, way);
        const std::string before = together.bytes();
        claim(together.begin() == 0, "a batch begins");
        for (const Operation& operation : asked.operations) {
            const std::string expected = singly.say(operation);
            const std::string got = together.say(operation);
            // Without a file there is nobody who logs that.
            const auto head = [&](const std::string& all) {
                return asked.exists ? withoutVerification(all) : all.substr(0, all.find(' '));
            };
            if (head(got) != head(expected)) {
                (void)std::fprintf(stderr, "singly: %s\n%s: %s\n", expected.c_str(), way.name, got.c_str());
            }
            claim(head(got) == head(expected), "an update of a batch answers and logs what it does by itself");
            claim(together.bytes() == before, "nothing is written before the commit");
        }
        const unsigned int rc = together.commit();
        claim(rc == 0 || (rc == REG_UNCHANGED && singly.bytes() == before), "what was changed is committed");
        claim(together.bytes() == singly.bytes(), "a batch leaves what its updates leave");
    }
}

template <class Schema, class Record>
void compareAll(const FuzzFolder& folder, const Asked& asked) {
    compare<Schema, Record>(folder, asked);
    if (asked.visitor.deed == 0) {
        compareBatch<Schema, Record>(folder, asked);
    }
}

std::string upToNul(const std::string& input, std::size_t* at) {
    const std::size_t end = std::min(input.find('\0', *at), input.size());
    std::string text = input.substr(*at, end - *at);
    *at = std::min(end + 1, input.size());
    return text;
}

}  // namespace

// The schema; what is wished; how often the file's bytes are repeated; what the visitor does (0 to 8) and when (in the
// upper half); the place of the damage, two bytes; how many operations. Of each what it is, the mask, and key and
// record up to their NULs. Then the bytes of the file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const FuzzFolder folder;
    const FuzzQuiet quiet;
    constexpr std::size_t HEAD = 7;
    if (size < HEAD) {
        return 0;
    }
    const std::string input(reinterpret_cast<const char*>(bytes), size);
    const unsigned int wishes = bytes[1];
    Asked asked;
    asked.toggled = ((wishes & 1) != 0 ? REG_FEATURE_ALLOW_DUPLICATES : 0) |
                    ((wishes & 2) != 0 ? REG_FEATURE_DEFERRED_COMMIT : 0) |
                    ((wishes & 4) != 0 ? REG_FEATURE_LINE_CONTINUATION | REG_FEATURE_BIG_ENDIAN : 0);
    asked.keeps = (wishes & 8) != 0;
    asked.exists = (wishes & 0x30) != 0x10;
    asked.isLinked = (wishes & 0x30) == 0x20;
    asked.hasLeftovers = (wishes & 0x40) != 0;
    asked.mode = (wishes & 0x80) != 0 ? 0640 : 0644;
    asked.visitor = {bytes[3] % 16U % 9U, bytes[3] / 16U, bytes[4] + 256UL * bytes[5]};
    std::size_t at = HEAD;
    for (unsigned int n = 0; n <= bytes[6] % MOST_OPERATIONS && at + 2 <= size; ++n) {
        Operation operation = {bytes[at] % 5U, bytes[at + 1], "", ""};
        at += 2;
        operation.key = upToNul(input, &at);
        operation.record = upToNul(input, &at);
        asked.operations.push_back(operation);
    }
    for (unsigned int n = 0; n <= bytes[2] && asked.contents.size() < MOST_BYTES; ++n) {
        asked.contents.append(input, at);
    }
    switch (bytes[0] % 5) {
        case 0:
            compareAll<VarVal, GenRegVarValRecord>(folder, asked);
            break;
        case 1:
            compareAll<Services, GenRegServicesRecord>(folder, asked);
            break;
        case 2:
            compareAll<GenRegInitTab, GenRegInitTabRecord>(folder, asked);
            break;
        case 3:
            compareAll<BinVarVal, GenRegBinVarValRecord>(folder, asked);
            break;
        default:
            compareAll<GlobalReg, GlobalRegRecord>(folder, asked);
    }
    return 0;
}
