#include "base/Program.h"
#include "complete/Completion.h"
#include "complete/Run.h"
#include "publish/PublishCommands.h"
#include "system/System.h"
#include "view/View.h"
#include "view/ViewCommands.h"

namespace {

constexpr tool::Program FLEET = {
    "genreg-fleet",
    "Mirrors the registries of many machines into one etcd, and answers from there.",
    "Exit: 0 done or nothing to change, 1 not found or differs, 2 usage, 3 missing or unreadable, 4 not reached in\n"
    "time, 5 conflict or clash, 6 invalid or too large, 7 damaged, 8 refused by the store or failed, 70 a defect.",
    "how long to try to reach the store (GENREG_WAIT, else 10; 0 tries each endpoint once)",
    "the store is the one that the settings name",
};

// Hosts, and what records there are.
tool::Names namesFor(tool::Context& context, const std::string& command, const std::string& operand,
                     const std::vector<std::string>& before) {
    tool::Names names;
    if (operand == "HOST" || operand == "HOST2" || operand == "HOSTS") {
        for (const std::string& name : fleet::knownNames(context)) {
            names.found.push_back({name, ""});
        }
        return names;
    }
    if (operand == "TYPE") {
        return {{{"service", ""}, {"instance", ""}, {"variable", ""}}, false};
    }
    const bool ofType = operand.starts_with("FIELD") && !before.empty();
    return tool::namesFor(context, ofType ? before.front() : command, operand, before);
}

tool::ProgramCommands commands() {
    tool::ProgramCommands commands{{}, {}, namesFor};
    for (const auto list : {fleet::enrolCommands(), fleet::publishCommands(), fleet::statusCommands(),
                            fleet::hostsCommands(), fleet::findCommands(), fleet::compareCommands(),
                            fleet::overseeCommands(), fleet::rehearseCommands(), tool::completionCommands()}) {
        commands.all.insert(commands.all.end(), list.begin(), list.end());
    }
    return commands;
}

}  // namespace

int main(int count, char** arguments) {
    tool::setProgram(FLEET);
    tool::leave(tool::runProgram(commands, count, arguments));
}
