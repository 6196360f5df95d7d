// What a batch would do on every machine: tried with the engine on a copy of what the machine has mirrored.
#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "base/Answers.h"
#include "base/DiskFiles.h"
#include "base/Text.h"
#include "global/GlobalBatch.h"
#include "mirror/Keys.h"
#include "records/RecordChanges.h"
#include "records/RecordDiff.h"
#include "system/System.h"
#include "view/View.h"
#include "view/ViewCommands.h"

namespace fleet {
namespace {

using tool::Json;

struct Words {
    std::string batch;
    std::optional<std::string> hosts;
    std::optional<std::string> into;
    std::string path;
};

// What came of it on a host.
struct Rehearsed {
    std::string result;  // "change", "unchanged", "conflict", or why there is none
    std::string path;    // of its registry
    int exitStatus = tool::EXIT_DONE;
    std::string message;
    std::vector<tool::MadeRecord> made{};  // item by item
    tool::BatchTally tally{};
    std::string lines{};  // the batch for this host, with what it expects
};

// A line of a batch that does on the host what was rehearsed, or nothing where it is not any more what it was.
std::string lineOf(const tool::AskedChange& asked, const tool::MadeRecord& made) {
    const tool::RecordKind& kind = tool::kindOf(asked.key.recordType);
    const bool isAdd = !made.before;
    const bool isDelete = !made.after;
    Json line{{"schema", 1},
              {"op", tool::nameOf(isAdd      ? tool::BatchOp::Add
                                  : isDelete ? tool::BatchOp::Delete
                                             : tool::BatchOp::Set)}};
    line["type"] = kind.name;
    tool::putFields(line, asked.key, kind.keyFields);
    for (const auto& [field, text] : asked.fields) {
        if (text) {
            tool::putField(line, field->name, *made.after, *field);
        } else if (!isAdd) {
            line[field->name] = nullptr;
        }
    }
    if (asked.later && !isDelete) {
        tool::putLater(line, *asked.later);
    }
    if (!isAdd) {
        Json expected = Json::object();
        for (const GlobalRegField& field : kind.fields) {
            if ((kind.keyFields & field.bit) == 0 && tool::has(*made.before, field)) {
                tool::putField(expected, field.name, *made.before, field);
            } else if ((kind.keyFields & field.bit) == 0) {
                expected[field.name] = nullptr;
            }
        }
        line["ifFields"] = std::move(expected);
    }
    return tool::jsonText(line) + "\n";
}

class Rehearsal {
public:
    Rehearsal(View& view, const Words& words, const tool::AskedChanges& batch)
        : view_(view), words_(words), batch_(batch) {}

    Rehearsed run(const HostLook& look) {
        if (!look.value) {
            return look.hasValue
                       ? Rehearsed{"damaged", words_.path, tool::EXIT_DAMAGED, look.damage}
                       : Rehearsed{"no-value", words_.path, tool::EXIT_NEGATIVE, "the store has no value of it"};
        }
        Rehearsed rehearsed{"unchanged", words_.path, tool::EXIT_DONE, ""};
        try {
            const MirroredRegistry& registry = registryOf(*look.value, words_.path);
            rehearsed.path = registry.path;
            const std::string file = folder_.path() / look.id;
            copy(registry, file);
            apply(file, rehearsed);
        } catch (const tool::Failure& failure) {
            const bool isConflict =
                failure.exitStatus == tool::EXIT_CONFLICT || (applying_ && failure.exitStatus == tool::EXIT_NEGATIVE);
            rehearsed = {isConflict && applying_ ? "conflict" : failure.kind, rehearsed.path,
                         isConflict ? tool::EXIT_CONFLICT : failure.exitStatus,
                         ofHost(failure.message, look.id, rehearsed.path)};
        }
        return rehearsed;
    }

private:
    // The copy is nothing that a user knows.
    [[nodiscard]] std::string ofHost(std::string message, const std::string& id, const std::string& path) const {
        const std::string file = folder_.path() / id;
        const std::size_t at = message.find(file);
        return at == std::string::npos ? message : message.replace(at, file.size(), tool::printable(path));
    }

    // A registry that has just the records of the export.
    void copy(const MirroredRegistry& registry, const std::string& file) {
        applying_ = false;
        tool::GlobalBatch batch(view_.context, file, true, "rehearse");
        std::size_t number = 0;
        for (const Json& record : registry.records) {
            const tool::AskedChange asked = changeOf(registry, ++number, record);
            batch.make(asked, [&](const tool::MadeRecord& made) {
                if (made.before) {
                    throw tool::answer("several", tool::EXIT_CONFLICT, 0, registry.path,
                                       fmt::format("there are several records {}", tool::keyText(*made.before)),
                                       "genreg check on that host");
                }
            });
        }
        (void)batch.commit();
    }

    static tool::AskedChange changeOf(const MirroredRegistry& registry, std::size_t number, const Json& record) {
        try {
            return tool::changeOf(registry.path, number, record);
        } catch (tool::Failure& failure) {
            failure.kind = "damaged";
            failure.exitStatus = tool::EXIT_DAMAGED;
            throw;
        }
    }

    void apply(const std::string& file, Rehearsed& rehearsed) {
        applying_ = true;
        tool::GlobalBatch batch(view_.context, file, true, "rehearse");
        for (const tool::AskedChange& asked : batch_) {
            asked.item.naming([&] {
                batch.make(asked, [&](const tool::MadeRecord& made) {
                    rehearsed.tally.count(made);
                    rehearsed.made.push_back(made);
                    rehearsed.lines += lineOf(asked, made);
                });
            });
        }
        rehearsed.result = batch.commit() ? "change" : "unchanged";
    }

    View& view_;
    const Words& words_;
    const tool::AskedChanges& batch_;
    tool::ScratchFolder folder_;
    bool applying_ = false;
};

// Those that a word of the list means: a pattern of names, or a host.
std::vector<std::string> chosen(View& view, const Words& words) {
    if (!words.hosts) {
        return view.idsByName();
    }
    std::vector<std::string> ids;
    std::string_view rest = *words.hosts;
    for (bool more = true; more;) {
        const std::size_t comma = rest.find(',');
        const std::string word(rest.substr(0, comma));
        more = comma != std::string_view::npos;
        rest.remove_prefix(more ? comma + 1 : rest.size());
        if (word.find_first_of("*?[") == std::string::npos) {
            ids.push_back(view.hostFor(word));
            continue;
        }
        const std::size_t before = ids.size();
        for (const std::string& id : view.picture.ids()) {
            if (tool::fitsPattern(word, view.nameOfHost(view.picture.look(id)))) {
                ids.push_back(id);
            }
        }
        if (ids.size() == before) {
            throw tool::answer("not-found", tool::EXIT_NEGATIVE, 0, hostsPrefix(view.settings.prefix),
                               fmt::format("no host's name fits {}", tool::cell(word)), "genreg-fleet hosts");
        }
    }
    // Each once, in the order of their names, and those that are missing behind.
    std::vector<std::string> order = view.idsByName();
    std::erase_if(order, [&](const std::string& id) { return std::ranges::find(ids, id) == ids.end(); });
    for (const std::string& id : ids) {
        if (std::ranges::find(order, id) == order.end()) {
            order.push_back(id);
        }
    }
    return order;
}

// Made where it is missing; one that holds something may hold a batch of an earlier rehearsal.
void needEmptyFolder(const std::string& folder) {
    constexpr char DOING[] = "write batches into it";
    std::error_code error;
    if (std::filesystem::create_directories(folder, error) && !error) {
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all, error);
    }
    const bool isEmpty = !error && std::filesystem::is_empty(folder, error);
    if (error) {
        throw tool::systemFailure(error.value(), folder, DOING);
    }
    if (!isEmpty) {
        throw tool::answer("exists", tool::EXIT_CONFLICT, 0, folder, "the folder is not empty",
                           "name one that is new: each rehearsal has its own");
    }
}

void tell(View& view, const HostLook& look, const Rehearsed& rehearsed) {
    tool::Output& output = view.context.output;
    const std::string name = view.nameOfHost(look);
    if (output.style.json) {
        Json object{{"host", look.id}};
        tool::putText(object, "hostName", name);
        tool::putText(object, "path", rehearsed.path);
        object["result"] = rehearsed.result;
        object["message"] = rehearsed.message.empty() ? Json() : Json(rehearsed.message);
        Json changes = Json::array();
        for (const tool::MadeRecord& made : rehearsed.made) {
            changes.push_back(tool::changeObject(tool::toldRecord(made), view.context.operation, rehearsed.path, true));
        }
        object["changes"] = std::move(changes);
        output.json(object);
        return;
    }
    const std::string shown = name.empty() ? look.id : tool::printable(name);
    if (!rehearsed.message.empty()) {
        output.line(fmt::format("{}: {}: {}", shown, rehearsed.result, rehearsed.message));
        return;
    }
    output.line(fmt::format("{}: {}: {}", shown, rehearsed.result == "change" ? "would change" : "unchanged",
                            rehearsed.tally.summary()));
    const auto asList = [](const std::optional<tool::FoundRecord>& record) {
        return record ? std::vector{*record} : std::vector<tool::FoundRecord>();
    };
    for (const tool::MadeRecord& made : rehearsed.made) {
        for (const tool::ToldChange& change : tool::changesOfRecords(asList(made.before), asList(made.after))) {
            output.line(fmt::format("    {:<7}  {}", change.action(), change.text));
        }
    }
}

// The gravest of what came of all hosts.
int gravest(const std::vector<int>& all) {
    for (const int status : {tool::EXIT_DAMAGED, tool::EXIT_CONFLICT}) {
        if (std::ranges::find(all, status) != all.end()) {
            return status;
        }
    }
    return all.empty() ? tool::EXIT_DONE : std::ranges::max(all);
}

int rehearse(tool::Context& context, const Words& words) {
    const tool::AskedChanges batch = tool::readChanges(words.batch);
    View view(context);
    view.listHosts();
    const std::vector<std::string> ids = chosen(view, words);
    if (words.into) {
        needEmptyFolder(*words.into);
    }
    Rehearsal rehearsal(view, words, batch);
    std::vector<int> statuses;
    for (const std::string& id : ids) {
        const HostLook look = view.picture.look(id);
        const Rehearsed rehearsed = rehearsal.run(look);
        tell(view, look, rehearsed);
        if (words.into && rehearsed.result == "change") {
            tool::writePrivateFile(*words.into + "/" + id + ".jsonl", rehearsed.lines, "write its batch");
        }
        statuses.push_back(rehearsed.exitStatus);
    }
    return gravest(statuses);
}

tool::Action declareRehearse(tool::Parser& parser) {
    auto words = std::make_shared<Words>();
    parser.required("BATCH", words->batch, "a file of JSON lines, as genreg apply takes it, or - for standard input");
    parser.option("--hosts", "HOSTS", words->hosts,
                  "only these: names, ids or patterns of names, with commas between them");
    parser.option("--into", "FOLDER", words->into,
                  "write the batch of each host that would change as ID.jsonl, with what it expects to find");
    parser.option("--path", "PATH", words->path, "the registry at this place, where hosts mirror several");
    parser.footer(
        "Nothing is sent to any machine: what is written into FOLDER is for genreg apply there, which changes nothing\n"
        "where a record is not any more what it was. Exits 5 when there is a conflict on a host, and 7 when a value\n"
        "is damaged.");
    return [words](tool::Context& context) { return rehearse(context, *words); };
}

}  // namespace

std::span<const tool::Command> rehearseCommands() {
    static constexpr tool::Command COMMANDS[] = {
        {"rehearse", "what a batch would do on every machine", tool::USES_CONFIG, declareRehearse},
    };
    return COMMANDS;
}

}  // namespace fleet
