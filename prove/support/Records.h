// The records that the rigs work with, and how each form of registry holds them: through the library, and as bytes that
// the rig lays out by itself.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace prove {

struct Row {
    std::string name;  // at most 15 characters, without blanks
    int value = 0;

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
    // All rows, through a scan. The code of what ended it, or 0.
    virtual unsigned int read(Rows* rows) = 0;
    // A look-up of the first row of that name, then a scan that counts them all. Takes no memory of its own.
    virtual unsigned int look(const std::string& name, Row* found, long* count) = 0;
    // The lock, for an object that could not give it back.
    virtual unsigned int unlock() = 0;
};

// A kind of registry: its class in the library and, apart from it, its layout.
struct Form {
    const char* name;
    bool binary;
    bool choosesFeatures;  // false: commits are deferred, and that is that
    // An object with exactly these of the features 0x1, 0x2 and 0x100; null when its path was refused.
    std::unique_ptr<Registry> (*open)(const std::string& path, unsigned long features);
    // The bytes of the rows, without a checksum header.
    std::string (*bytes)(const Rows& rows);
};

extern const Form TEXT_FORM;      // lines "variable = value"
extern const Form BINARY_FORM;    // fixed-size records, lengths in the machine's byte order
extern const Form PACKED_FORM;    // records of any length, packed by a schema of the rigs' own, lengths big-endian
extern const Form INSTANCE_FORM;  // the information functions over the global registry: instances
extern const Form SERVICE_FORM;   // and installed copies

// The 32 bytes that stand before the records of a stamped file.
std::string checksumHeader(const std::string& body);

}  // namespace prove
