#include "entries/EntryBatch.h"

#include <fmt/core.h>

#include <algorithm>
#include <list>
#include <unordered_map>

#include "base/Answers.h"
#include "base/DiskFiles.h"
#include "base/Progress.h"
#include "base/Text.h"
#include "base/Update.h"
#include "entries/EntryChanges.h"
#include "entries/EntryEditor.h"

namespace tool {
namespace {

// A change as a batch asks for it. The item still has what shall be written.
struct AskedEntry {
    BatchItem item;
    std::string name;  // what finds it
    EntryWords words;
    std::optional<std::string> expected;  // the value
    std::vector<std::pair<std::string, std::optional<std::string>>> expectedMembers;
};

EntryRequest requestOf(const EntrySchema& schema, const AskedEntry& asked, const EntryWords& words, bool fresh) {
    EntryRequest request{words.file, asked.name, schema.mask};
    if (asked.item.op() != BatchOp::Delete) {
        schema.ask(request, words, fresh);
    }
    if (schema.find != nullptr) {
        schema.find(request);
    }
    return request;
}

std::optional<std::string> memberText(const Entry& entry, const std::string& name) {
    if (!entry.members.contains(name) || entry.members[name].is_null()) {
        return std::nullopt;
    }
    const Json& value = entry.members[name];
    return value.is_string() ? value.get<std::string>() : value.dump();
}

AskedEntry askedOf(const EntrySchema& schema, const std::string& file, BatchItem item) {
    AskedEntry asked{std::move(item), {}, {}, {}, {}};
    asked.words.file = file;
    (void)asked.item.take("line");  // as list prints it; lines move
    (void)asked.item.take("record");
    asked.expected = asked.item.takeText("ifValue");
    asked.expectedMembers = asked.item.takeTexts("ifFields");
    asked.name = schema.takeName(asked.item, asked.words);
    // Tried here, over any entry, so that what cannot be written is told before a lock is taken.
    AskedEntry trial = asked;
    Entry any;
    any.value = schema.anyValue;
    if (asked.item.op() != BatchOp::Delete) {
        schema.takeWords(trial.item, asked.item.op() == BatchOp::Add ? nullptr : &any, trial.words);
        (void)requestOf(schema, trial, trial.words, false);
    }
    std::vector<std::string> names = schema.keyMembers;
    names.insert(names.end(), schema.otherMembers.begin(), schema.otherMembers.end());
    trial.item.refuseRest(names);
    return asked;
}

class EntryBatch {
public:
    EntryBatch(const EntrySchema& schema, const std::string& path, std::string doing)
        : schema_(schema), path_(path), doing_(std::move(doing)), file_(schema.open(path, false)) {
        const bool exists = judgeFile(path, doing_, false);
        answered(file_->begin());
        if (exists) {
            for (Entry& entry : schema.open(path, true)->read(doing_)) {
                keep(std::move(entry));
            }
        }
    }

    MadeEntry make(const AskedEntry& asked);
    bool commit() {
        const unsigned int code = file_->commit();
        if (code != REG_UNCHANGED) {
            answered(code);
        }
        return code == 0;
    }

private:
    void answered(unsigned int code) const {
        if (code != 0) {
            throw libraryFailure(code, path_, doing_);
        }
    }
    Entry& keep(Entry entry);
    [[nodiscard]] Entry* find(const AskedEntry& asked, const EntryRequest& request);
    void forget(const Entry& entry);
    void expect(const AskedEntry& asked, const Entry& found) const;
    MadeEntry add(const AskedEntry& asked, const EntryRequest& request);
    MadeEntry change(const AskedEntry& asked, Entry& found);

    const EntrySchema& schema_;
    std::string path_;
    std::string doing_;
    std::unique_ptr<EntryFile> file_;
    std::list<Entry> entries_;
    std::unordered_multimap<std::string, std::list<Entry>::iterator> named_;  // by what may be asked for
};

// A name may be asked for without what ends it.
Entry& EntryBatch::keep(Entry entry) {
    const auto at = entries_.insert(entries_.end(), std::move(entry));
    named_.emplace(at->name, at);
    if (schema_.nameEnd != 0) {
        named_.emplace(at->name.substr(0, at->name.find(schema_.nameEnd)), at);
    }
    return *at;
}

// Null where there is none.
Entry* EntryBatch::find(const AskedEntry& asked, const EntryRequest& request) {
    Entry* only = nullptr;
    const auto [first, last] = named_.equal_range(asked.name);
    for (auto at = first; at != last; ++at) {
        Entry& entry = *at->second;
        if (request.concerns ? !request.concerns(entry) : entry.name != asked.name) {
            continue;
        }
        if (only != nullptr) {
            throw answer(
                "several", EXIT_CONFLICT, REG_SEVERAL_MATCH, path_,
                fmt::format("{} stands in several {}s; nothing was changed", printable(asked.name), schema_.place),
                fmt::format("genreg {} set or delete, with --all", schema_.group));
        }
        only = &entry;
    }
    return only;
}

// Takes it out of what is found.
void EntryBatch::forget(const Entry& entry) {
    const std::string plain = entry.name.substr(0, schema_.nameEnd != 0 ? entry.name.find(schema_.nameEnd) : 0);
    auto place = entries_.end();
    for (const std::string& name : {entry.name, plain}) {
        const auto [first, last] = named_.equal_range(name);
        const auto own = std::find_if(first, last, [&](const auto& each) { return &*each.second == &entry; });
        if (own != last) {
            place = own->second;
            named_.erase(own);
        }
    }
    entries_.erase(place);
}

void EntryBatch::expect(const AskedEntry& asked, const Entry& found) const {
    const std::string look = fmt::format("genreg {} get", schema_.group);
    const bool quoted = schema_.quotes && asked.expected && found.value == fmt::format("\"{}\"", *asked.expected);
    if (asked.expected && found.value != *asked.expected && !quoted) {
        throw otherValue(path_, asked.name, cell(found.value), cell(*asked.expected), look);
    }
    for (const auto& [member, text] : asked.expectedMembers) {
        const auto value = memberText(found, member);
        if (value != text) {
            const auto shown = [](const auto& each) { return each ? cell(*each) : std::string(ABSENT); };
            throw otherValue(path_, fmt::format("{}: {}", asked.name, member), shown(value), shown(text), look);
        }
    }
}

MadeEntry EntryBatch::add(const AskedEntry& asked, const EntryRequest& request) {
    EntryEdit edit = request.edit;
    if (schema_.layoutLike != nullptr) {
        edit.layout = schema_.layoutLike(entries_.empty() ? std::string_view() : entries_.back().raw);
    }
    const unsigned int code = file_->add(request.mask, edit);
    if (edit.doesNotFit) {
        throw asked.item.failure(schema_.tooLong, schema_.shorten);
    }
    answered(code);
    Entry blank;
    blank.raw = edit.layout;
    return {{}, keep(file_->rewritten(blank, edit)), true};
}

MadeEntry EntryBatch::change(const AskedEntry& asked, Entry& found) {
    AskedEntry wanted = asked;
    schema_.takeWords(wanted.item, &found, wanted.words);
    const EntryRequest request = requestOf(schema_, wanted, wanted.words, false);
    EntryEdit edit = request.edit;
    MadeEntry made{found, found, !edit.isAsAsked(found.raw)};
    if (!made.changed) {
        return made;
    }
    if (found.hidesBytes) {
        throw hiddenBytes(path_, doing_, found.number);
    }
    const unsigned int code = file_->change({request.mask, true}, found, edit);
    if (edit.doesNotFit) {
        throw asked.item.failure(schema_.tooLong, schema_.shorten);
    }
    answered(code);
    found = file_->rewritten(found, edit);
    made.after = found;
    return made;
}

MadeEntry EntryBatch::make(const AskedEntry& asked) {
    const BatchOp op = asked.item.op();
    EntryRequest request{path_, asked.name, schema_.mask};
    if (schema_.find != nullptr) {
        schema_.find(request);
    }
    Entry* const at = find(asked, request);
    const bool exists = at != nullptr;
    if (exists && op == BatchOp::Add) {
        throw answer("exists", EXIT_CONFLICT, REG_DUPLICATE, path_,
                     fmt::format("{} is there already; nothing was changed", printable(asked.name)), "\"op\":\"set\"");
    }
    const bool expects = asked.expected || !asked.expectedMembers.empty();
    if (!exists && (op == BatchOp::Delete || expects)) {
        throw answer("not-found", EXIT_NEGATIVE, REG_NOT_FOUND, path_,
                     fmt::format("there is no {} {}", schema_.noun, printable(asked.name)),
                     fmt::format("genreg {} list", schema_.group));
    }
    if (!exists) {
        AskedEntry wanted = asked;
        schema_.takeWords(wanted.item, nullptr, wanted.words);
        return add(asked, requestOf(schema_, wanted, wanted.words, true));
    }
    expect(asked, *at);
    if (op != BatchOp::Delete) {
        return change(asked, *at);
    }
    answered(file_->remove({request.mask, true}, *at));
    MadeEntry made{*at, {}, true};
    forget(*at);
    return made;
}

}  // namespace

std::string takeVariable(BatchItem& item, EntryWords& words) {
    return words.name = item.takeName("name");
}

void takeValue(BatchItem& item, const Entry* found, EntryWords& words) {
    const auto value = item.takeText("value");
    if (!value && found == nullptr) {
        throw item.failure("it has no \"value\"", "a new variable needs one");
    }
    words.fields = {value ? *value : found->value};
    words.comment = item.takeOrNone("comment");
}

int applyToEntries(Context& context, const EntrySchema& schema, const std::string& file, const std::string& source) {
    std::vector<AskedEntry> asked;
    readBatch(source, [&](BatchItem item) {
        const BatchItem named = item;
        asked.push_back(named.naming([&] { return askedOf(schema, file, std::move(item)); }));
    });
    std::vector<MadeEntry> made;
    Change change = changeOfEntries(schema, file, "apply");
    change.make = [&](const std::string& path) {
        made.clear();
        EntryBatch batch(schema, path, change.doing);
        const Progress progress("making the changes", asked.size());
        for (const AskedEntry& each : asked) {
            Progress::step();
            made.push_back(each.item.naming([&] { return batch.make(each); }));
            made.back().operation = fmt::format("{} {}", schema.group, nameOf(each.item.op()));
        }
        return batch.commit();
    };
    change.told = [&] {
        std::vector<ToldChange> told;
        for (const MadeEntry& each : made) {
            told.push_back(toldEntry(schema, each));
        }
        return told;
    };
    const int status = schema.shown == nullptr ? carryOutOnText(context, change) : carryOut(context, change);
    if (!context.output.style.json) {
        const auto count = [&](bool before, bool after) {
            return std::ranges::count_if(made, [&](const MadeEntry& each) {
                return each.changed && each.before.has_value() == before && each.after.has_value() == after;
            });
        };
        context.output.line(batchSummary(static_cast<std::size_t>(count(false, true)),
                                         static_cast<std::size_t>(count(true, true)),
                                         static_cast<std::size_t>(count(true, false)), made.size()));
    }
    return status;
}

}  // namespace tool
