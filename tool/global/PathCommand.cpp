#include <fmt/core.h>
#include <genreg/GlobalReg.h>
#include <install/Install.h>
#include <osse/Files.h>

#include <cstdlib>
#include <memory>

#include "base/Text.h"
#include "base/Update.h"
#include "global/GlobalCommands.h"
#include "global/GlobalPath.h"

namespace tool {
namespace {

constexpr char PATH_VARIABLE[] = "RVN_GLOBAL_REG_PATHNAME";
constexpr char INSTANCE_VARIABLE[] = "RVNINSTANCE";
constexpr char TOOL_OF_INSTANCE[] = "/rvnhome/adm/rvntool";
constexpr char TOOL_OF_INSTALLATION[] = "/adm/rvntool";

// The administration tool that the library looks at: the instance's, else the installation's.
std::string toolLookedAt() {
    char path[REG_PATH_SIZE] = "";
    const char* instance = std::getenv(INSTANCE_VARIABLE);
    if (instance != nullptr && *instance != '\0') {
        (void)ossBuildHomeDirectoryRelativePath(instance, TOOL_OF_INSTANCE, path, sizeof path);
        return path;
    }
    const bool found = sqloInstallPath(sizeof path, path) == 0 && path[0] != '\0';
    return found ? std::string(path) + TOOL_OF_INSTALLATION : std::string();
}

std::string resolvedPath(bool defaultPath) {
    char path[REG_PATH_SIZE] = "";
    unsigned short length = sizeof path;
    const unsigned int code = GetGlobalRegPathnameInternal(path, &length, defaultPath);
    if (code == REG_PATH_BUFFER_TOO_SMALL) {
        throw libraryFailure(REG_PATH_TOO_LONG, PATH_VARIABLE, "use the path that it names");
    }
    if (code != 0) {
        Failure failure = libraryFailure(code, "the global registry", "find it");
        const char* instance = std::getenv(INSTANCE_VARIABLE);
        if (instance != nullptr && std::getenv(PATH_VARIABLE) == nullptr) {
            failure.message =
                fmt::format("the global registry: cannot find it: {} names \"{}\", which has no home here",
                            INSTANCE_VARIABLE, printable(instance));
            failure.hint =
                fmt::format("set {} to the name of a user, or {} to the file", INSTANCE_VARIABLE, PATH_VARIABLE);
        }
        throw failure;
    }
    if (path[0] == '\0') {
        Failure failure = libraryFailure(REG_MISSING, "the global registry", "find it");
        failure.message = fmt::format("the global registry: cannot find it: {} is set, but empty", PATH_VARIABLE);
        failure.hint = fmt::format("set {} to a path, or unset it", PATH_VARIABLE);
        throw failure;
    }
    return path;
}

std::string shownVariable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "not set" : cell(value);
}

std::string ruleText(const GlobalPath& found) {
    if (found.rule == "option") {
        return "--registry names it";
    }
    if (found.rule == "environment") {
        return fmt::format("{} names it", PATH_VARIABLE);
    }
    if (found.rule == "default-asked") {
        return "--default-path asks for it";
    }
    if (found.rule == "instance") {
        return "it lies beside the instance's administration tool, a set-user-ID program of root";
    }
    return "it is the default: no rule before it applies";
}

std::string toolText(const GlobalPath& found) {
    if (found.toolPath.empty()) {
        return found.rule == "instance" || found.rule == "default" ? "none" : "none; a rule before that one applied";
    }
    const std::string shown = printable(found.toolPath);
    if (found.toolVouches) {
        return shown + ": a set-user-ID program of root";
    }
    if (!ossIsFile(found.toolPath.c_str())) {
        return shown + ": not there";
    }
    return shown + (ossPathIsSetuidRoot(found.toolPath.c_str()) == 0
                        ? ": no set-user-ID program of root"
                        : fmt::format(": it does not lie in ...{}", TOOL_OF_INSTANCE));
}

Json explanation(const GlobalPath& found) {
    Json object = Json::object();
    putText(object, "path", found.path);
    object["rule"] = found.rule;
    return object;
}

void putVariable(Json& object, const std::string& key, const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr) {
        object[key] = nullptr;
    } else {
        putText(object, key, value);
    }
}

int showPath(Context& context, bool explain) {
    const GlobalPath found = globalPath(context);
    Output& output = context.output;
    if (output.style.json) {
        Json object = explanation(found);
        if (explain) {
            putVariable(object, "environment", PATH_VARIABLE);
            putVariable(object, "instance", INSTANCE_VARIABLE);
            object["tool"] = nullptr;
            if (!found.toolPath.empty()) {
                object.erase("tool");
                putText(object, "tool", found.toolPath);
            }
            object["toolVouches"] = found.toolVouches;
            object["exists"] = ossIsFile(found.path.c_str());
        }
        output.json(object);
        return EXIT_DONE;
    }
    output.line(printable(found.path));
    if (explain) {
        output.line("  because     " + ruleText(found));
        output.line(fmt::format("  variables   {} {}, {} {}", PATH_VARIABLE, shownVariable(PATH_VARIABLE),
                                INSTANCE_VARIABLE, shownVariable(INSTANCE_VARIABLE)));
        output.line("  tool        " + toolText(found));
        output.line(std::string("  the file    ") + (ossIsFile(found.path.c_str()) ? "is there" : "is not there yet"));
    }
    return EXIT_DONE;
}

Action declarePath(Parser& parser) {
    auto explain = std::make_shared<bool>(false);
    parser.flag("--explain", *explain, "say which rule chose it, and what was looked at");
    return [explain](Context& context) { return showPath(context, *explain); };
}

}  // namespace

GlobalPath globalPath(const Context& context) {
    GlobalPath found;
    if (context.options.registry && context.options.defaultPath) {
        throw usageFailure("--registry and --default-path name two registries; one is enough");
    }
    if (context.options.registry) {
        found.path = *context.options.registry;
        found.rule = "option";
        if (found.path.empty()) {
            throw usageFailure("--registry names no file");
        }
        (void)RegistryFile(found.path);
        return found;
    }
    found.path = resolvedPath(context.options.defaultPath);
    (void)RegistryFile(found.path);
    if (std::getenv(PATH_VARIABLE) != nullptr) {
        found.rule = "environment";
    } else if (context.options.defaultPath) {
        found.rule = "default-asked";
    } else {
        found.toolPath = toolLookedAt();
        found.toolVouches =
            ossPathIsSetuidRoot(found.toolPath.c_str()) != 0 && found.toolPath.ends_with(TOOL_OF_INSTANCE);
        found.rule = found.toolVouches ? "instance" : "default";
    }
    return found;
}

std::string globalFile(const Context& context, const std::string& given) {
    if (!given.empty() && (context.options.registry || context.options.defaultPath)) {
        throw usageFailure("FILE and an option name two files; one is enough");
    }
    return given.empty() ? globalPath(context).path : given;
}

std::span<const Command> pathCommands() {
    static constexpr Command COMMANDS[] = {
        {"path", "where the global registry lies", USES_REGISTRY, declarePath},
    };
    return COMMANDS;
}

}  // namespace tool
