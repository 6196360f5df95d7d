// A whole command: what it takes to start, to read one value of a small file and to end.
#include <spawn.h>
#include <sys/wait.h>

#include <fstream>

#include "Bare.h"
#include "Measure.h"

extern char** environ;

namespace {

using Words = std::vector<std::string>;

// Its exit status, with its outputs thrown away; 127 where there is no such program.
int run(const Words& words) {
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t silent;
    (void)posix_spawn_file_actions_init(&silent);
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
        (void)posix_spawn_file_actions_addopen(&silent, descriptor, "/dev/null", O_WRONLY, 0);
    }
    pid_t child = 0;
    const int failed = posix_spawnp(&child, arguments[0], &silent, nullptr, arguments.data(), environ);
    (void)posix_spawn_file_actions_destroy(&silent);
    int status = 0;
    constexpr int NO_PROGRAM = 127;
    return failed != 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status) ? NO_PROGRAM
                                                                                      : WEXITSTATUS(status);
}

}  // namespace

int main(int count, char** arguments) {
    measure::begin(count, arguments);
    const measure::Scratch scratch;
    const std::string settings = scratch.path() + "/settings";
    const std::string sections = scratch.path() + "/sections";
    std::ofstream(settings) << "first = 1\nport = 5000\nlast = 3\n";
    std::ofstream(sections) << "[settings]\n\tfirst = 1\n\tport = 5000\n\tlast = 3\n";
    std::vector<measure::Rival> rivals;
    const auto add = [&](const std::string& name, const Words& words) {
        if (run(words) == 0) {
            rivals.push_back({name, [words] { bare::require(run(words) == 0); }});
        } else {
            std::printf("(%s is not here)\n", words[0].c_str());
        }
    };
    add("library", {GENREG_TOOL, "varval", "get", settings, "port"});
    add("git config -f", {"git", "config", "-f", sections, "settings.port"});
    add("an empty program", {"true"});
    constexpr int STARTS = 301;
    measure::row({"command: get", 3, STARTS}, rivals);
    return 0;
}
