// One face for the registries that the rigs work with, so that each scenario is written once: the text and the binary
// schemas, and the information functions. A schema is told apart from its layout: what the library is asked through the
// one, and bytes that the rig lays out by itself.
#pragma once

#include <genreg/Codes.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace prove {

struct Row {
    std::string name;  // at most 15 characters, without blanks
    int value = 0;
    std::string comment = {};  // where the schema has comments

    friend bool operator==(const Row&, const Row&) = default;
};

using Rows = std::vector<Row>;

// A registry object of the library; the calls answer its codes.
class Registry {
public:
    virtual ~Registry() = default;
    virtual unsigned int add(const Row& row) = 0;
    // Every row of that name becomes this one.
    virtual unsigned int change(const Row& row) = 0;
    virtual unsigned int remove(const std::string& name) = 0;
    // All rows, through a scan. The code of what ended it early, or 0.
    virtual unsigned int read(Rows* rows) = 0;
    // A look-up of the first row of that name, then a scan that counts them all. Takes no memory of its own.
    virtual unsigned int look(const std::string& name, Row* found, long* count) = 0;
    // The lock, for an object that could not give it back.
    virtual unsigned int unlock() = 0;
    // A batch; the objects of a schema have them.
    virtual unsigned int begin() { return REG_NO_BATCH; }
    virtual unsigned int commit() { return REG_NO_BATCH; }
    virtual unsigned int abandon() { return REG_NO_BATCH; }
};

// One that is an object of a schema, call by call.
class SchemaRegistry : public Registry {
public:
    virtual unsigned int get(const std::string& name, Row* row) = 0;
    virtual unsigned int openScan() = 0;
    virtual unsigned int next(Row* row) = 0;  // REG_NO_MORE_RECORDS at the end; lines that hold no row are skipped
    virtual unsigned int closeScan() = 0;
    virtual unsigned int lock(unsigned long flags) = 0;
    // As an object that stamped the file itself knows it: the file has its checksum header.
    virtual void expectHeader() = 0;
    // Runs once, after the next update has written and closed its temporary copy and before it looks at it again.
    virtual void beforeVerify(std::function<void()> action) = 0;

    unsigned int read(Rows* rows) override;
    unsigned int look(const std::string& name, Row* found, long* count) override;
};

struct Schema {
    const char* name;
    bool binary;
    bool choosesFeatures;  // false: commits are deferred, and that is that
    // An object with exactly these of the features 0x1, 0x2 and 0x100; null when its path was refused.
    std::unique_ptr<Registry> (*open)(const std::string& path, unsigned long features);
    // The bytes of the rows, without comments and without a checksum header.
    std::string (*bytes)(const Rows& rows);
};

extern const Schema TEXT_SCHEMA;      // lines "variable = value"
extern const Schema BINARY_SCHEMA;    // fixed-size records, lengths in the machine's byte order
extern const Schema PACKED_SCHEMA;    // records of any length, packed by the rigs' own slots, lengths big-endian
extern const Schema INSTANCE_SCHEMA;  // the information functions over the global registry: instances
extern const Schema SERVICE_SCHEMA;   // and installed copies

// The text or the binary schema, and all the features of an object.
struct Kind {
    const char* name;
    bool binary;
    unsigned long features;
};

// Null when the constructor refuses the path; its code goes to *rc then.
[[nodiscard]] std::unique_ptr<SchemaRegistry> openSchema(const Kind& kind, const std::string& path,
                                                         unsigned int* rc = nullptr);

// The 32 bytes that stand before the records of a stamped file.
std::string checksumHeader(const std::string& body);

}  // namespace prove
