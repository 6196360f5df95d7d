// Any bytes as a batch: it is read and checked, or refused with the number of a line that it has; what it made of a
// registry and exported makes the same registry, and says so without a change.
//
// First byte: 1 services in place of the global registry, 2 variables.
#include "Fuzz.h"
#include "entries/EntryBatch.h"
#include "entries/EntryEditor.h"
#include "global/GlobalBatch.h"

namespace {

using namespace tool;  // NOLINT(google-build-using-namespace): what is tried

// Whether it was read; a refusal says where.
template <typename Work>
bool isDone(Work work) {
    try {
        work();
        return true;
    } catch (const Failure& failure) {
        claim(failure.exitStatus != EXIT_DEFECT && !failure.message.empty(), "a refusal says what is wrong");
        const bool named = failure.message.find(": line ") != std::string::npos;
        claim(named || failure.exitStatus != EXIT_INVALID, "what is refused of a batch is named by its line");
        return false;
    }
}

std::string exported(Context& context, const std::string& path) {
    std::string lines;
    for (const FoundRecord& record : GlobalRegistry(context, path, true).read("export")) {
        lines += recordObject(record).dump() + "\n";
    }
    return lines;
}

// Makes the changes in the file of that path; what of them changed something.
std::size_t applied(Context& context, const std::string& path, const AskedChanges& asked) {
    GlobalBatch batch(context, path, true, "apply");
    std::size_t changed = 0;
    for (const AskedChange& each : asked) {
        each.item.naming([&] { batch.make(each, [&](const MadeRecord& made) { changed += made.changed ? 1 : 0; }); });
    }
    (void)batch.commit();
    return changed;
}

void tryRecords(const FuzzFolder& folder, const std::string& source) {
    AskedChanges asked;
    Context context;
    const std::string registry = folder.path("global.reg");
    if (!isDone([&] { asked = readChanges(source); }) || asked.empty()) {
        return;
    }
    (void)::unlink(registry.c_str());
    if (!isDone([&] { (void)applied(context, registry, asked); }) || ::access(registry.c_str(), F_OK) != 0) {
        return;
    }
    const std::string lines = exported(context, registry);
    const std::string again = folder.write("exported", lines);
    asked = readChanges(again);
    claim(applied(context, registry, asked) == 0, "what was exported is there");
    (void)::unlink(registry.c_str());
    (void)applied(context, registry, asked);
    claim(asked.empty() || exported(context, registry) == lines, "what is imported is what was exported");
}

void tryEntries(const FuzzFolder& folder, const EntrySchema& schema, const std::string& source) {
    const std::string file = folder.path("entries");
    (void)::unlink(file.c_str());
    Context context;
    if (!isDone([&] { (void)applyToEntries(context, schema, file, source); }) || ::access(file.c_str(), F_OK) != 0) {
        return;
    }
    std::string lines;
    for (const Entry& entry : entriesOf(schema, file, "list")) {
        lines += entry.members.dump() + "\n";
    }
    const std::string before = folder.read("entries");
    // Several lines of one name are a conflict, as they are for a set.
    (void)isDone([&] { (void)applyToEntries(context, schema, file, folder.write("listed", lines)); });
    claim(folder.read("entries") == before, "what is listed is there");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const FuzzFolder folder;
    const FuzzQuiet quiet;
    if (size == 0) {
        return 0;
    }
    const std::string source = folder.write("batch", {reinterpret_cast<const char*>(bytes + 1), size - 1});
    switch (bytes[0] % 3) {
        case 1:
            tryEntries(folder, servicesSchema(), source);
            break;
        case 2:
            tryEntries(folder, varValSchema(), source);
            break;
        default:
            tryRecords(folder, source);
    }
    return 0;
}
