#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <span>
#include <utility>

#include "base/DiskFiles.h"
#include "base/HeldLocks.h"
#include "base/Text.h"
#include "base/Update.h"
#include "global/GlobalPath.h"
#include "inspect/InspectCommands.h"
#include "inspect/LockReport.h"
#include "system/System.h"

namespace tool {
namespace {

// As shells answer them.
constexpr int EXIT_CANNOT_RUN = 126;
constexpr int EXIT_NO_SUCH_COMMAND = 127;

struct Arguments {
    std::string file;
    std::vector<std::string> command;
    bool shared = false;
};

// The lock, to be lent to a command. It ends with what is run here, or with this process and the command.
class LentLock : public RegistryFile {
public:
    using RegistryFile::RegistryFile;

    // Puts it into what the command is given; nothing where the system's locks cannot be lent.
    void lend(ChildSetup& setup) {
        GenRegLockLoan loan{};
        if (LendLock(setup.words.front().c_str(), &loan) != 0) {
            return;
        }
        setup.inherited = loan.descriptor = descriptorToInherit(loan.descriptor);
        if (loan.descriptor >= 0) {
            putHeldLock(setup.environment, loan);
        }
    }
};

int status(Context& context, const std::string& given) {
    const std::string path = globalFile(context, given);
    judgeFile(path, "tell who holds the lock", true);
    const RegistryFile file(path);
    const Json lock = lockObject(file);
    if (context.output.style.json) {
        Json object = Json::object();
        putText(object, "path", path);
        putText(object, "lockPath", file.lockFilePath());
        object.update(lock);
        context.output.json(object);
    } else {
        context.output.line(fmt::format("{}: {}", printable(path), lockText(lock)));
    }
    return lock["held"].get<bool>() ? EXIT_LOCKED : EXIT_DONE;
}

// The command's exit status.
int runCommand(const Context& context, const std::vector<std::string>& command, LentLock& lock) {
    ChildSetup setup;
    setup.words = command;
    setup.environment = inheritedEnvironment();
    setup.output = context.output.descriptor();
    lock.lend(setup);
    int status = 0;
    if (const int error = runInForeground(setup, &status)) {
        Failure failure = systemFailure(error, command.front(), "run it");
        failure.kind = "command";
        failure.exitStatus = error == ENOENT ? EXIT_NO_SUCH_COMMAND : EXIT_CANNOT_RUN;
        failure.hint = "check the name of the command";
        throw failure;
    }
    return status;
}

// The parser takes the first word for FILE. When all of them stand behind "--" there is no FILE.
Arguments split(const Context& context, const Arguments& parsed) {
    const std::span<char*> all(context.arguments, static_cast<std::size_t>(context.argumentCount));
    const auto sign = std::find(all.begin(), all.end(), std::string_view("--"));
    Arguments arguments = parsed;
    if (sign != all.end() && static_cast<std::size_t>(all.end() - sign - 1) == parsed.command.size() + 1) {
        arguments.command.insert(arguments.command.begin(), std::exchange(arguments.file, {}));
    }
    if (arguments.command.empty()) {
        throw usageFailure("which command is to run under the lock?", "genreg lock run [--shared] [FILE] -- CMD");
    }
    return arguments;
}

int lockAndRun(Context& context, const Arguments& arguments) {
    const std::string path = globalFile(context, arguments.file);
    judgeFile(path, "lock it", true);
    LentLock file(path);
    const unsigned long kind = arguments.shared ? REG_LOCK_SHARED : REG_LOCK_EXCLUSIVE;
    const unsigned int code = file.Lock(kind | REG_LOCK_WAIT, 0);
    if (code != 0) {
        throw libraryFailure(code, path, "lock it");
    }
    const int result = runCommand(context, arguments.command, file);
    const unsigned int unlocked = file.UnLock();
    if (unlocked != 0) {
        throw libraryFailure(unlocked, path, "give the lock back");
    }
    return result;
}

Action declareStatus(Parser& parser) {
    auto file = std::make_shared<std::string>();
    parser.optionalFile(*file, "the registry file; the global registry when there is none");
    return [file](Context& context) { return status(context, *file); };
}

Action declareRun(Parser& parser) {
    auto arguments = std::make_shared<Arguments>();
    parser.optionalFile(arguments->file, "the registry file; the global registry when there is none");
    parser.words("CMD", arguments->command, "the command and its arguments, behind \"--\"");
    parser.flag("--shared", arguments->shared, "a lock that others may share, under which nobody writes");
    parser.footer(
        "genreg works on the file below the command, under its lock, as often as it is called. Under a shared lock it\n"
        "reads alone.");
    return [arguments](Context& context) { return lockAndRun(context, split(context, *arguments)); };
}

}  // namespace

std::span<const Command> lockCommands() {
    static constexpr Command COMMANDS[] = {
        {"lock status", "who holds the lock, since when; exits 0 when it is free, 4 when it is held", USES_REGISTRY,
         declareStatus},
        {"lock run", "run a command under the lock; exits with its status", USES_REGISTRY, declareRun},
    };
    return COMMANDS;
}

}  // namespace tool
