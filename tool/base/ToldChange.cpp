#include "base/ToldChange.h"

#include "base/Output.h"

namespace tool {

const char* ToldChange::action() const {
    return !changed ? "none" : before.is_null() ? "add" : after.is_null() ? "delete" : "change";
}

ToldChange unchanged(std::string_view type) {
    ToldChange change{std::string(type)};
    change.changed = false;
    return change;
}

Json changeObject(const ToldChange& change, const std::string& operation, const std::string& path, bool dryRun) {
    Json object{{"operation", change.operation.empty() ? operation : change.operation}};
    putText(object, "path", path);
    object["type"] = change.type;
    object.update(change.key);
    object["action"] = change.action();
    object["before"] = change.before;
    object["after"] = change.after;
    object["changed"] = change.changed;
    object["dryRun"] = dryRun;
    return object;
}

}  // namespace tool
