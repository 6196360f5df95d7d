// One face for the text and the binary variable/value registry, so that a rig writes each of its scenarios once.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace prove {

struct Entry {
    std::string name;
    int value = 0;
    std::string comment;
    bool operator==(const Entry&) const = default;
};

// A kind of registry: the engine, and the features that the schema's own are brought to.
struct Kind {
    const char* name;
    bool binary;
    unsigned long features;  // all of them
};

class Client {
public:
    virtual ~Client() = default;

    // The operations, with their codes; the name is the key.
    virtual unsigned int add(const Entry& entry) = 0;
    virtual unsigned int change(const std::string& name, const Entry& entry) = 0;
    virtual unsigned int remove(const std::string& name) = 0;
    virtual unsigned int get(const std::string& name, Entry* entry) = 0;
    virtual unsigned int openScan() = 0;
    virtual unsigned int next(Entry* entry) = 0;  // REG_NO_MORE_RECORDS at the end; lines that hold no pair are skipped
    virtual unsigned int closeScan() = 0;

    virtual unsigned int lock(unsigned long flags) = 0;
    virtual unsigned int unlock() = 0;
    // As an object that stamped the file itself knows it: the file has its checksum header.
    virtual void expectHeader() = 0;
    // Runs once, after the next update has written and closed its temporary copy and before it looks at it again.
    virtual void beforeVerify(std::function<void()> action) = 0;
};

// Null when the constructor refuses the path; its code goes to *rc then.
[[nodiscard]] std::unique_ptr<Client> openClient(const Kind& kind, const std::string& path, unsigned int* rc = nullptr);

// The whole registry by one scan; the code that ended it early, or 0.
[[nodiscard]] unsigned int scanAll(Client& registry, std::vector<Entry>* entries);

}  // namespace prove
