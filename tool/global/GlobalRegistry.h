// The global registry for the commands: which file it is, its records, and updates that never overwrite what was
// changed meanwhile.
#pragma once

#include <genreg/GlobalReg.h>

#include <functional>
#include <string>
#include <vector>

#include "base/Command.h"
#include "records/RecordFields.h"

namespace tool {

// The global registry that the options and the surroundings choose, for updates of it. Throws a Failure.
[[nodiscard]] std::string globalRegistryPath(const Context& context);

// Whether the path leads to the global registry. A file of --registry may be of any kind: it is judged by its bytes.
[[nodiscard]] bool isGlobalRegistry(const Context& context, const std::string& path);

// The library's engine with slots of its own. Where those of the library take an absent number for 0, and ask a
// variable for its further text whatever the mask says, here just the fields of the mask count; and records are equal
// only when the same fields are there.
class GlobalRegistry : public GlobalReg {
public:
    // rehearsal: neither change log nor signal. Throws a Failure when the path is refused.
    GlobalRegistry(const Context& context, const std::string& path, bool rehearsal);

    // Every record, in one scan. Throws a Failure.
    [[nodiscard]] std::vector<FoundRecord> read(const std::string& doing);
    void readEach(const std::string& doing, const std::function<void(const FoundRecord& record)>& take);

    // The engine's operations. Each answers the engine's code.
    unsigned int add(GlobalRegRecord record);
    // REG_NOT_FOUND when no record is as found any more.
    unsigned int change(GlobalRegRecord found, GlobalRegRecord record);
    unsigned int remove(GlobalRegRecord found);
    // Every record whose fields are those of the key.
    unsigned int removeMatching(GlobalRegRecord key, bool severalAllowed);

    // In a batch, where nobody changes anything meanwhile: of a record whose key no other one has. Items of a later
    // release take the place of those that the record has.
    unsigned int add(const GlobalRegRecord& record, const LaterItems& later);
    unsigned int replace(const FoundRecord& found, const FoundRecord& record);

private:
    std::string path_;
};

}  // namespace tool
