#include "complete/Run.h"
#include "entries/EntryCommands.h"
#include "global/GlobalCommands.h"
#include "inspect/InspectCommands.h"
#include "system/System.h"
#include "watch/WatchCommand.h"

namespace {

constexpr tool::CommandGroup GROUPS[] = {
    {"service", "installed copies in the global registry"},
    {"instance", "instances in the global registry"},
    {"variable", "settings in the global registry"},
    {"varval", "files of lines \"variable = value\""},
    {"services", "files of lines \"name port/protocol alias ...\""},
    {"inittab", "files of lines \"id:runlevels:action:command\""},
    {"binvar", "binary files of names and 32-bit values"},
    {"lock", "the lock that writers of a registry take"},
    {"version", "versions: dotted, as codes and as level numbers"},
    {"fixpack", "the fixpack numbers of the installed copies"},
    {"log", "the log of changes of the global registry"},
};

tool::ProgramCommands commands() {
    tool::ProgramCommands commands{GROUPS, {}, tool::namesFor};
    for (const auto list : {tool::statusCommands(), tool::recordCommands(), tool::batchCommands(),
                            tool::entryCommands(), tool::diffCommands(), tool::lockCommands(), tool::explainCommands(),
                            tool::pathCommands(), tool::versionCommands(), tool::fixpackCommands(), tool::logCommands(),
                            tool::dumpCommands(), tool::checkCommands(), tool::repairCommands(), tool::editCommands(),
                            tool::watchCommands(), tool::completionCommands()}) {
        commands.all.insert(commands.all.end(), list.begin(), list.end());
    }
    return commands;
}

}  // namespace

int main(int count, char** arguments) {
    tool::leave(tool::runProgram(commands, count, arguments));
}
