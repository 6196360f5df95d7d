// What shells are told, and what comes of it where they run; the manual and the help beside it.
#include <algorithm>
#include <regex>
#include <set>

#include "Tool.h"
#include "support/Terminal.h"

namespace {

const std::filesystem::path SOURCES = SOURCE_FOLDER;

class Completion : public ToolTest {
protected:
    // The words that may stand where the last one does; what is said of them is left out.
    std::set<std::string> candidates(Words words) {
        words.insert(words.begin(), "--");
        std::set<std::string> found;
        std::istringstream lines(genreg("__complete", words).out);
        for (std::string line; std::getline(lines, line);) {
            found.insert(line.substr(0, line.find('\t')));
        }
        return found;
    }
    using Set = std::set<std::string>;

    static std::string pathWithTool() {
        return "PATH=" + std::filesystem::path(BUILT_TOOL).parent_path().string() + ":" + std::getenv("PATH");
    }
    static bool isInstalled(const std::string& program) {
        return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
    }

    void SetUp() override {
        write("v", "alpha = 1\nalso = 2\nwith blank = 3\n");
        write("s", "http 80/tcp www\nssh 22/tcp\n");
        EXPECT_EQ(status("-q instance set RVN 9.7.0.2 inst1") + status("-q variable set RVN PORT value=5"), 0);
    }
};

TEST_F(Completion, OffersWhatIsThere) {
    EXPECT_TRUE(candidates({""}).contains("varval"));
    EXPECT_EQ(candidates({"varva"}), Set{"varval"});
    EXPECT_EQ(candidates({"--json", "--wait", "5", "varval", "get-"}), Set{"get-all"});
    EXPECT_EQ(candidates({"varval", "set", "v", "al"}), (Set{"alpha", "also"}));
    EXPECT_EQ(candidates({"varval", "set", "--comment", "x", "v", "-q", "alp"}), Set{"alpha"});
    EXPECT_EQ(candidates({"varval", "get", "absent", ""}), Set{});
    EXPECT_EQ(candidates({"varval", "get", ""}), Set{":files"});
    EXPECT_EQ(candidates({"varval", "get", "v", "alpha", ""}), Set{});
    EXPECT_EQ(candidates({"services", "get", "s", "--alias", ""}), Set{"www"});
    EXPECT_EQ(candidates({"services", "delete", "s", ""}), (Set{"http/tcp", "ssh/tcp"}));
    EXPECT_EQ(candidates({"services", "set", "s", "h"}), Set{"http"});
    EXPECT_EQ(candidates({"instance", "get", ""}), Set{"RVN"});
    EXPECT_EQ(candidates({"service", "set", "RVN", ""}), Set{"9.7.0.2"}) << "known by an instance";
    EXPECT_EQ(candidates({"instance", "get", "RVN", "9.7.0.2", ""}), Set{"inst1"});
    EXPECT_EQ(candidates({"instance", "get", "RVN", "9.8", ""}), Set{});
    EXPECT_EQ(candidates({"variable", "get", "RVN", ""}), Set{"PORT"});
    EXPECT_EQ(candidates({"variable", "set", "RVN", "PORT", "va"}), (Set{"value=", "variableText="}));
    EXPECT_EQ(candidates({"--registry", "absent", "instance", "get", ""}), Set{});
    EXPECT_EQ(candidates({"--registry=v", "instance", "get", ""}), Set{}) << "no registry of records";
    EXPECT_EQ(candidates({"check", "--form", "v"}), Set{"varval"});
    EXPECT_EQ(candidates({"check", "--form=v"}), Set{"--form=varval"});
    EXPECT_EQ(candidates({"--registry", ""}), Set{":files"});
    EXPECT_EQ(candidates({"explain", "REG_NOT_F"}), Set{"REG_NOT_FOUND"});
    EXPECT_EQ(candidates({"help", "varval", "ad"}), Set{"add"});
    EXPECT_EQ(candidates({"varval", "delete", "v", "--", "-"}), Set{});
    EXPECT_EQ(candidates({}), candidates({""}));
    EXPECT_EQ(names(), ".global.reg.lock global.reg s v") << "to be asked leaves nothing";
}

// Words of the help that begin an option: "  -n,--dry-run  ..."
std::set<std::string> optionsOfHelp(const std::string& help) {
    std::set<std::string> found;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) {
        std::smatch option;
        const std::regex item("^ +(-[-a-zA-Z]+)(,(-[-a-zA-Z]+))?.*");
        if (std::regex_match(line, option, item)) {
            found.insert(option[1]);
            found.insert(option[3].matched ? option[3] : option[1]);
        }
    }
    return found;
}

TEST_F(Completion, HelpManualAndCompletionNameTheSame) {
    const std::string manual = out("__manual " + (SOURCES / "docs" / "man" / "genreg.1.in").string());
    std::size_t commands = 0;
    for (const std::string& first : candidates({""})) {
        const Set more = candidates({first, ""});
        const bool isGroup = out("help " + first).find("Subcommands:") != std::string::npos;
        EXPECT_NE(out("help").find("  " + first + " "), std::string::npos) << first;
        for (const std::string& second : isGroup ? more : Set{""}) {
            const std::string command = first + (second.empty() ? "" : " " + second);
            Words words{first};
            if (!second.empty()) {
                words.push_back(second);
            }
            words.emplace_back("-");
            Set said = optionsOfHelp(out("help " + command));
            said.insert({"-V", "--version"});
            if (first != "help") {
                EXPECT_EQ(candidates(words), said) << command;
            }
            const std::size_t at = manual.find(".Cm " + command + "\n");
            ASSERT_NE(at, std::string::npos) << command;
            const std::string item = manual.substr(at, manual.find(".It Xo", at) - at);
            for (const std::string& option : said) {
                const bool isGlobal =
                    manual.substr(0, manual.find(".Sh COMMANDS")).find("Fl " + option.substr(1)) != std::string::npos;
                EXPECT_TRUE(isGlobal || item.find("Fl " + option.substr(1)) != std::string::npos)
                    << command << ": " << option;
            }
            ++commands;
        }
    }
    EXPECT_GT(commands, 40U);
}

TEST_F(Completion, InBash) {
    if (!isInstalled("bash")) {
        GTEST_SKIP() << "no bash";
    }
    Terminal shell({"bash", "--norc", "--noprofile", "-i"}, folder(),
                   {pathWithTool(), "PS1=> ", "TERM=dumb", "INPUTRC=/dev/null", "HISTFILE="}, 200);
    shell.type("eval \"$(genreg completion bash)\"; echo rea''dy\n");
    ASSERT_TRUE(shell.shows("ready")) << shell.shown();
    // Each line is completed by TAB, and what came of it told.
    const struct {
        const char *typed, *told;
    } cases[] = {
        {"varva\tse\tv alp\t9", "[varval][set][v][alpha][9]"},
        {"instance get RV\t\t\t", "[instance][get][RVN][9.7.0.2][inst1]"},
        {"varval get v wi\t", "[varval][get][v][with blank]"},
        {"varval get v \"wi\t", "[varval][get][v][with blank]"},
        {"variable set RVN PO\tval\t7", "[variable][set][RVN][PORT][value=7]"},
        {"--color=alw\tvarval get v also", "[--color=always][varval][get][v][also]"},
        {"check --form var\tglobal.r\t", "[check][--form][varval][global.reg]"},
        {"explain REG_NOT_F\t", "[explain][REG_NOT_FOUND]"},
        {"services get s --po\t2\t", "[services][get][s][--port][22/tcp]"},
    };
    for (const auto& c : cases) {
        shell.forget();
        shell.type(std::string("genreg() { printf '[%s]' \"$@\"; echo .; }\n"));
        shell.type(std::string("genreg ") + c.typed + "\n");
        EXPECT_TRUE(shell.shows(std::string(c.told) + ".")) << c.typed << ": " << shell.shown();
    }
}

TEST_F(Completion, InZsh) {
    if (!isInstalled("zsh")) {
        GTEST_SKIP() << "no zsh";
    }
    Terminal shell({"zsh", "-f", "-i"}, folder(), {pathWithTool(), "PS1=> ", "TERM=dumb", "HOME=" + folder()}, 200);
    shell.type("autoload -U compinit; compinit -u -D; eval \"$(genreg completion zsh)\"; echo rea''dy\n");
    ASSERT_TRUE(shell.shows("ready")) << shell.shown();
    for (const auto& [typed, told] : std::vector<std::pair<std::string, std::string>>{
             {"varva\tse\tv alp\t9", "[varval][set][v][alpha][9]"},
             {"instance get RV\t\t\t", "[instance][get][RVN][9.7.0.2][inst1]"},
             {"varval get v wi\t", "[varval][get][v][with blank]"}}) {
        shell.forget();
        shell.type("genreg() { printf '[%s]' \"$@\"; echo .; }\n");
        shell.type("genreg " + typed + "\n");
        EXPECT_TRUE(shell.shows(told + ".")) << typed << ": " << shell.shown();
    }
}

TEST_F(Completion, InFish) {
    if (!isInstalled("fish")) {
        GTEST_SKIP() << "no fish";
    }
    const std::string ask = "HOME='" + folder() + "' " + pathWithTool() +
                            " sh -c 'cd \"$0\"; genreg completion fish >c; "
                            "fish -c \"source c; complete -C \\\"$1\\\"\" >told 2>&1' '" +
                            folder() + "' '";
    for (const auto& [typed, told] :
         std::vector<std::pair<std::string, std::string>>{{"genreg varva", "varval\t"},
                                                          {"genreg instance get RVN 9.7.0.2 ", "inst1\n"},
                                                          {"genreg varval get v al", "alpha\nalso\n"},
                                                          {"genreg check --form=v", "--form=varval\n"}}) {
        ASSERT_EQ(std::system((ask + typed + "'").c_str()), 0) << read("told");
        EXPECT_EQ(read("told").substr(0, told.size()), told) << typed << ": " << read("told");
    }
}

// The lines of the literal displays of a page, as the reader sees them.
std::vector<std::string> displays(const std::string& page) {
    std::vector<std::string> found;
    std::istringstream lines(page);
    bool inside = false;
    for (std::string line; std::getline(lines, line);) {
        if (line == ".Bd -literal") {
            found.emplace_back();
        }
        inside = line == ".Bd -literal" || (inside && line != ".Ed");
        if (inside && line != ".Bd -literal") {
            found.back() += std::regex_replace(line, std::regex("\\\\e"), "\\") + "\n";
        }
    }
    return found;
}

class Manual : public Completion {
protected:
    void SetUp() override {}

    // Runs the commands of a display, and answers it with what they said.
    std::string run(const std::string& display) {
        std::string said;
        std::istringstream lines(display);
        for (std::string line; std::getline(lines, line);) {
            if (!line.starts_with("$ ")) {
                continue;
            }
            write(".command", line.substr(2) + "\n");
            const std::string command = "cd '" + folder() + "' && " + pathWithTool() + " sh .command >.said 2>&1";
            (void)!std::system(command.c_str());
            said += line + "\n" + read(".said");
        }
        return said;
    }
};

TEST_F(Manual, TheExamplesSayWhatTheCommandsSay) {
    const auto pages = SOURCES / "docs" / "man";
    std::size_t seen = 0;
    std::filesystem::create_symlink(BUILD / "tests" / "example_lookup", path("lookup"));
    for (const char* name : {"genreg.1.in", "global.reg.5", "genreg-formats.5", "genreg.3"}) {
        for (const std::string& display : displays(read(pages / name))) {
            if (display.starts_with("//")) {
                EXPECT_EQ(display, read(SOURCES / "examples" / "lookup.cpp"));
            } else {
                // A long line is shown in two.
                EXPECT_EQ(run(display), std::regex_replace(display, std::regex("\\\\\n"), "")) << name;
            }
            ++seen;
        }
    }
    EXPECT_EQ(seen, 9U);
}

}  // namespace
