#include <genreg/Codes.h>

#include <csignal>
#include <exception>
#include <new>
#include <string_view>
#include <vector>

#include "base/CodeClasses.h"
#include "base/DiskFiles.h"
#include "complete/Completion.h"
#include "complete/Manual.h"
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

std::vector<tool::Command> allCommands() {
    std::vector<tool::Command> commands;
    for (const auto list : {tool::statusCommands(), tool::recordCommands(), tool::batchCommands(),
                            tool::entryCommands(), tool::diffCommands(), tool::lockCommands(), tool::explainCommands(),
                            tool::pathCommands(), tool::versionCommands(), tool::fixpackCommands(), tool::logCommands(),
                            tool::dumpCommands(), tool::checkCommands(), tool::repairCommands(), tool::editCommands(),
                            tool::watchCommands(), tool::completionCommands()}) {
        commands.insert(commands.end(), list.begin(), list.end());
    }
    return commands;
}

int reported(tool::Context& context, tool::Failure failure) {
    failure.operation = context.operation;
    context.output.report(failure);
    return failure.exitStatus;
}

// What programs ask, which is no command of a user: a shell for what may stand next, the build for the manual page that
// it is told to complete.
int run(tool::CommandLine& commandLine, tool::Context& context, int count, char** arguments) {
    constexpr int FIRST_WORD = 3;
    const std::string_view first = count > 1 ? arguments[1] : "";
    if (first == "__complete" && count >= FIRST_WORD) {
        tool::printCandidates(context, GROUPS, allCommands(), {arguments + FIRST_WORD, arguments + count});
        return tool::EXIT_DONE;
    }
    if (first == "__manual" && count == FIRST_WORD) {
        std::string page = tool::manualOf(tool::readFile(arguments[2], "complete it"), GROUPS, allCommands());
        page.pop_back();
        context.output.line(page);
        return tool::EXIT_DONE;
    }
    return commandLine.run(context, GROUPS, allCommands(), count, arguments);
}

int guarded(tool::CommandLine& commandLine, tool::Context& context, int count, char** arguments) {
    try {
        const int status = run(commandLine, context, count, arguments);
        context.output.finish();
        return status;
    } catch (const tool::Failure& failure) {
        return reported(context, failure);
    } catch (const std::bad_alloc&) {
        tool::Failure failure;
        failure.kind = "no-memory";
        failure.exitStatus = tool::EXIT_WRITE_FAILED;
        failure.message = "there is no memory left";
        failure.message += context.output.changed.value_or(false) ? "; the change itself stands" : "";
        failure.hint = tool::classOf(REG_NO_MEMORY).advice;
        return reported(context, failure);
    } catch (const std::exception& error) {
        tool::Failure failure;
        failure.kind = "defect";
        failure.message = std::string("unexpected: ") + error.what();
        failure.hint = "this is a defect of the tool: report it with the command line";
        return reported(context, failure);
    }
}

}  // namespace

int main(int count, char** arguments) {
    // A limit on file sizes and a reader that went away become errors of the write, in the middle of an update too.
    (void)std::signal(SIGXFSZ, SIG_IGN);
    (void)std::signal(SIGPIPE, SIG_IGN);
    tool::fillClosedStandardFiles();
    tool::Context context;
    tool::CommandLine commandLine;
    const int status = guarded(commandLine, context, count, arguments);
    context.output.flush();  // what was printed in front of a failure
    tool::leave(status);
}
