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
    std::optional<EntryRequest> request;  // of an entry that is there, where it is the same whatever that says
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
    AskedEntry asked{std::move(item), {}, {}, {}, {}, {}};
    asked.words.file = file;
    (void)asked.item.take("line");  // as list prints it; lines move
    (void)asked.item.take("record");
    asked.expected = asked.item.takeText("ifValue");
    asked.expectedMembers = asked.item.takeTexts("ifFields");
    asked.name = schema.takeName(asked.item, asked.words);
    // Tried here, over any entry, so that what cannot be written is told before a lock is taken.
    BatchItem trial = asked.item;
    EntryWords words = asked.words;
    Entry any;
    any.value = schema.anyValue;
    if (asked.item.op() != BatchOp::Delete) {
        schema.takeWords(trial, asked.item.op() == BatchOp::Add ? nullptr : &any, words);
        EntryRequest request = requestOf(schema, asked, words, false);
        if (!words.asFound) {
            asked.request = std::move(request);
        }
    }
    std::vector<std::string> names = schema.keyMembers;
    names.insert(names.end(), schema.otherMembers.begin(), schema.otherMembers.end());
    trial.refuseRest(names);
    return asked;
}

class EntryBatch {
    struct Batched : Entry {
        bool isStale = false;  // but for its bytes and its name, as it was before it was changed
    };

public:
    // tells: somebody wants to know what each change did, and not just how many there were.
    EntryBatch(const EntrySchema& schema, const std::string& path, std::string doing, bool tells)
        : schema_(schema), path_(path), doing_(std::move(doing)), tells_(tells), file_(schema.open(path, false)) {
        const bool exists = judgeFile(path, doing_, false);
        answered(file_->begin());
        if (exists) {
            for (Entry& entry : schema.open(path, true)->read(doing_)) {
                keep({std::move(entry)});
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
    Entry& keep(Batched entry);
    void refresh(Batched& entry) const;
    // What is told of nobody need not be copied.
    [[nodiscard]] Entry told(const Entry& entry) const { return tells_ ? entry : Entry(); }
    // Where it stands then is for the other items to decide.
    [[nodiscard]] Entry toldAfter(const Entry& entry) const {
        Entry after = told(entry);
        after.number = 0;
        return after;
    }
    [[nodiscard]] Batched* find(const AskedEntry& asked, const EntryRequest& request);
    void forget(const Entry& entry);
    void expect(const AskedEntry& asked, const Entry& found) const;
    [[nodiscard]] EntryRequest requestFor(const AskedEntry& asked, const Entry* found) const;
    MadeEntry add(const AskedEntry& asked, const EntryRequest& request);
    MadeEntry change(const AskedEntry& asked, Batched& found);

    const EntrySchema& schema_;
    std::string path_;
    std::string doing_;
    bool tells_;
    std::unique_ptr<EntryFile> file_;
    std::list<Batched> entries_;
    std::unordered_multimap<std::string, std::list<Batched>::iterator> named_;  // by what may be asked for
};

// A name may be asked for without what ends it.
Entry& EntryBatch::keep(Batched entry) {
    const auto at = entries_.insert(entries_.end(), std::move(entry));
    named_.emplace(at->name, at);
    if (schema_.nameEnd != 0) {
        named_.emplace(at->name.substr(0, at->name.find(schema_.nameEnd)), at);
    }
    return *at;
}

void EntryBatch::refresh(Batched& entry) const {
    if (entry.isStale) {
        const std::size_t number = entry.number;
        static_cast<Entry&>(entry) = file_->describe(entry.raw);
        entry.number = number;
        entry.isStale = false;
    }
}

// Null where there is none.
EntryBatch::Batched* EntryBatch::find(const AskedEntry& asked, const EntryRequest& request) {
    Batched* only = nullptr;
    const auto [first, last] = named_.equal_range(asked.name);
    for (auto at = first; at != last; ++at) {
        Batched& entry = *at->second;
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
    if (only != nullptr) {
        refresh(*only);
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
    return {{}, toldAfter(keep({file_->rewritten(blank, edit)})), true};
}

EntryRequest EntryBatch::requestFor(const AskedEntry& asked, const Entry* found) const {
    BatchItem item = asked.item;
    EntryWords words = asked.words;
    schema_.takeWords(item, found, words);
    return requestOf(schema_, asked, words, found == nullptr);
}

MadeEntry EntryBatch::change(const AskedEntry& asked, Batched& found) {
    const std::optional<EntryRequest> own = asked.request ? std::nullopt : std::optional(requestFor(asked, &found));
    const EntryRequest& request = own ? *own : *asked.request;
    EntryEdit edit = request.edit;
    const std::string text = edit.rewrite(found.raw);
    if (text == found.raw) {
        return {told(found), toldAfter(found), false};
    }
    // Which is asked for again and again on the way.
    edit.rewrite = [&](std::string_view raw) { return raw == found.raw ? text : request.edit.rewrite(raw); };
    if (found.hidesBytes) {
        throw hiddenBytes(path_, doing_, found.number);
    }
    const unsigned int code = file_->change({request.mask, true}, found, edit);
    if (edit.doesNotFit) {
        throw asked.item.failure(schema_.tooLong, schema_.shorten);
    }
    answered(code);
    MadeEntry made{told(found), Entry(), true};
    found.raw = text;
    found.isStale = true;
    if (tells_) {
        refresh(found);
        made.after = toldAfter(found);
    }
    return made;
}

MadeEntry EntryBatch::make(const AskedEntry& asked) {
    const BatchOp op = asked.item.op();
    EntryRequest request{path_, asked.name, schema_.mask};
    if (schema_.find != nullptr) {
        schema_.find(request);
    }
    Batched* const at = find(asked, request);
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
        return add(asked, requestFor(asked, nullptr));
    }
    expect(asked, *at);
    if (op != BatchOp::Delete) {
        return change(asked, *at);
    }
    answered(file_->remove({request.mask, true}, *at));
    MadeEntry made{told(*at), {}, true};
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
    words.asFound = !value;
    words.comment = item.takeOrNone("comment");
}

int applyToEntries(Context& context, const EntrySchema& schema, const std::string& file, const std::string& source) {
    std::vector<AskedEntry> asked;
    readBatch(source, [&](BatchItem item) {
        const BatchItem named = item;
        asked.push_back(named.naming([&] { return askedOf(schema, file, std::move(item)); }));
    });
    BatchTally tally;
    Change change = changeOfEntries(schema, file, "apply");
    change.make = [&](const std::string& path) {
        tally = {};
        EntryBatch batch(schema, path, change.doing, context.output.style.json);
        {
            const Progress progress("making the changes", asked.size());
            for (const AskedEntry& each : asked) {
                MadeEntry made = each.item.naming([&] { return batch.make(each); });
                tally.count(made);
                if (context.output.style.json) {
                    made.operation = fmt::format("{} {}", schema.group, nameOf(each.item.op()));
                    tally.told.push_back(toldEntry(schema, made));
                }
                Progress::step();
            }
        }
        const Progress progress("writing " + file);
        return batch.commit();
    };
    change.told = [&] { return std::move(tally.told); };
    const int status = schema.shown == nullptr ? carryOutOnText(context, change) : carryOut(context, change);
    if (!context.output.style.json) {
        context.output.line(tally.summary());
    }
    return status;
}

}  // namespace tool
