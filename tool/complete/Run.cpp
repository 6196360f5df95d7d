#include "complete/Run.h"

#include <genreg/Codes.h>

#include <csignal>
#include <exception>
#include <new>
#include <string_view>

#include "base/CodeClasses.h"
#include "base/DiskFiles.h"
#include "complete/Manual.h"
#include "system/System.h"

namespace tool {
namespace {

int reported(Context& context, Failure failure) {
    failure.operation = context.operation;
    context.output.report(failure);
    return failure.exitStatus;
}

// What programs ask, which is no command of a user: a shell for what may stand next, the build for the manual page that
// it is told to complete.
int run(CommandLine& commandLine, Context& context, ProgramCommands commands, int count, char** arguments) {
    constexpr int FIRST_WORD = 3;
    const std::string_view first = count > 1 ? arguments[1] : "";
    if (first == "__complete" && count >= FIRST_WORD) {
        printCandidates(context, commands.groups, commands.all, commands.namesFor,
                        {arguments + FIRST_WORD, arguments + count});
        return EXIT_DONE;
    }
    if (first == "__manual" && count == FIRST_WORD) {
        std::string page = manualOf(readFile(arguments[2], "complete it"), commands.groups, commands.all);
        page.pop_back();
        context.output.line(page);
        return EXIT_DONE;
    }
    return commandLine.run(context, commands.groups, std::move(commands.all), count, arguments);
}

int guarded(CommandLine& commandLine, Context& context, ProgramCommands (*commands)(), int count, char** arguments) {
    try {
        const int status = run(commandLine, context, commands(), count, arguments);
        context.output.finish();
        return status;
    } catch (const Failure& failure) {
        return reported(context, failure);
    } catch (const std::bad_alloc&) {
        Failure failure;
        failure.kind = "no-memory";
        failure.exitStatus = EXIT_WRITE_FAILED;
        failure.message = "there is no memory left";
        failure.message += context.output.changed.value_or(false) ? "; the change itself stands" : "";
        failure.hint = classOf(REG_NO_MEMORY).advice;
        return reported(context, failure);
    } catch (const std::exception& error) {
        Failure failure;
        failure.kind = "defect";
        failure.message = std::string("unexpected: ") + error.what();
        failure.hint = "this is a defect of the tool: report it with the command line";
        return reported(context, failure);
    }
}

}  // namespace

int runProgram(ProgramCommands (*commands)(), int count, char** arguments) {
    // A limit on file sizes and a reader that went away become errors of the write, in the middle of an update too.
    (void)std::signal(SIGXFSZ, SIG_IGN);
    (void)std::signal(SIGPIPE, SIG_IGN);
    fillClosedStandardFiles();
    Context context;
    CommandLine commandLine;
    const int status = guarded(commandLine, context, commands, count, arguments);
    context.output.flush();  // what was printed in front of a failure
    return status;
}

}  // namespace tool
