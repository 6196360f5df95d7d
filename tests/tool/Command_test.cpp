#include <fcntl.h>
#include <poll.h>

#include <cstdlib>

#include "Tool.h"

namespace {

using Command = ToolTest;

TEST_F(Command, GlobalOptionsStandBeforeOrBehindTheCommand) {
    write("f", "a = 1\n");
    EXPECT_EQ(out("--json varval get f a"), out("varval get f a --json"));
    EXPECT_EQ(status("varval --json get --wait 0 f a --wait 1"), 0) << "the last one counts";
    // Words that are commands elsewhere, and values that look like options.
    EXPECT_EQ(status("varval add f status lock"), 0);
    EXPECT_EQ(status("varval set f status -- --json"), 0);
    EXPECT_EQ(read("f"), "a = 1\nstatus = --json\n");
    EXPECT_EQ(status("--if-value diff varval set f status x --if-value --json"), 2);
    EXPECT_EQ(status("--if-value=--json varval set f status diff"), 0);
    EXPECT_EQ(status("--if-value diff varval set f status dump"), 0);
    EXPECT_EQ(read("f"), "a = 1\nstatus = dump\n");
}

TEST_F(Command, AMistypedWordIsAnsweredWithTheNearestAndNothingIsDone) {
    write("f", "a = 1\n");
    const struct {
        const char *line, *hint;
    } cases[] = {
        {"varvall get f a", "genreg varval"},
        {"varval gte f a", "genreg varval get"},
        {"varval get f a --jsn", "--json"},
        {"varval get f a --tpye=int", "--type"},
        {"varval get f", "genreg varval get --help"},
        {"varval", "genreg varval --help"},
        {"", "genreg --help"},
        {"varval get f a --wait -1", "genreg varval get --help"},
        {"varval set f a --zzzz", "stands behind \"--\""},
        {"explain REG_NOTFOUND", "genreg explain REG_NOT_FOUND"},
        // Options that mean nothing to the command.
        {"lock run -n f -- touch ran", "--dry-run"},
        {"diff f f --all", "--all"},
        {"--json varvall", "\"kind\":\"usage\""},
    };
    for (const auto& c : cases) {
        expectFailure(2, c.hint, c.line);
    }
    EXPECT_EQ(names(), "f");
}

TEST_F(Command, NothingThatDestroysIsSuggested) {
    write("f", "a = 1\na = 2\n");
    const struct {
        const char *line, *hint;
    } cases[] = {
        // The words of other tools.
        {"varval rm f a", "genreg varval delete --help"},
        {"binvar rename f a b", "genreg binvar add with the new name"},
        {"instance delete RVN", "genreg instance remove --help"},
        {"instance rename RVN", "genreg instance set with the new name"},
        {"variable unset RVN V", "genreg variable set, where FIELD= takes a field out"},
        // Where two are near, the one that keeps.
        {"log of", "genreg log on\n"},
        {"varval delte f a", "genreg varval delete --help"},
        {"varval delete f a --all --yess", "--help"},
        {"varval delete f a --all", "at a terminal"},
        // Behind "--" nothing is an option.
        {"varval get f b -- -q", "options come before \"--\""},
        {"varval delete f -- a --all", "options come before \"--\""},
        {"instance set RVN 9.7 i -- --dry-run", "options come before \"--\""},
        {"varval get f a --color never --color auto", "--color is given twice"},
    };
    for (const auto& c : cases) {
        const Result result = genreg(c.line);
        EXPECT_EQ(result.status, 2) << c.line;
        std::string hint = result.err.substr(std::min(result.err.find("  try: "), result.err.size()));
        EXPECT_NE(result.err.find(c.hint), std::string::npos) << c.line << ": " << result.err;
        for (const std::string word : {"delete", "remove", "off"}) {
            const std::size_t at = hint.find(" " + word);
            EXPECT_TRUE(at == std::string::npos || hint.compare(at + 1, word.size() + 7, word + " --help") == 0)
                << hint;
        }
        EXPECT_EQ(hint.find("-y"), std::string::npos) << hint;
    }
    EXPECT_EQ(read("f"), "a = 1\na = 2\n");
}

TEST_F(Command, HelpIsNoFailureAndNamesTheCommands) {
    EXPECT_NE(out("--help").find("varval"), std::string::npos);
    const std::string set = out("varval set --help");
    EXPECT_NE(set.find("genreg varval set [OPTIONS] FILE NAME [VALUE]"), std::string::npos);
    EXPECT_EQ(out("help varval set"), set);
    EXPECT_EQ(out("help varval"), out("varval -h"));
    EXPECT_EQ(out("help"), out("--help"));
    expectFailure(2, "genreg varval set", "help varval ste");
    // The global options that the command takes, and no other.
    const std::string list = out("varval list --help");
    for (const char* option : {"--json", "--wait SECONDS", "--color WHEN", "-q"}) {
        EXPECT_NE(set.find(option), std::string::npos) << option;
        EXPECT_NE(list.find(option), std::string::npos) << option;
    }
    for (const char* option : {"--dry-run", "--diff", "--if-value", "--all"}) {
        EXPECT_NE(set.find(option), std::string::npos) << option;
        EXPECT_EQ(list.find(option), std::string::npos) << option;
    }
    EXPECT_EQ(set.find("--registry"), std::string::npos) << set;
    EXPECT_NE(out("instance list --help").find("--registry"), std::string::npos);
    EXPECT_EQ(out("--version"), out("-V"));
    EXPECT_EQ(out("-V"), "genreg " + object("--version")["version"].text() + "\n");
}

TEST_F(Command, ErrorsSayWhatWhereWhyAndWhatNext) {
    EXPECT_EQ(genreg("varval set absent a 1").err,
              "genreg: absent: cannot set a: there is no such file\n"
              "  try: check the path; an add creates a missing file   [0x90000513]\n");
    write("it's", "b = 1\n");
    EXPECT_NE(genreg("varval get it's a").err.find("varval list 'it'\\''s'"), std::string::npos);
    expectFailure(3,
                  R"({"schema":1,"kind":"missing","exit":3,"code":"0x90000513","operation":"varval set",)"
                  R"("path":"absent","message":"absent: cannot set a: there is no such file",)"
                  R"("hint":"check the path; an add creates a missing file"})",
                  "varval set absent a 1 --json");
}

TEST_F(Command, AnAddMakesNoFolderUnlessItIsAskedTo) {
    for (const char* line : {"varval add new/dir/f a 1", "binvar add new/dir/f a 1", "services add new/dir/f a 1/tcp",
                             "inittab add new/dir/f a 1 once x"}) {
        expectFailure(3, "there is no folder new/dir\n", line);
        expectFailure(3, "--parents", std::string("-n ") + line);
        EXPECT_EQ(names(), "");
        const Result made = genreg(std::string("--parents ") + line);
        EXPECT_EQ(made.status, 0) << made.err;
        EXPECT_NE(made.err.find("new/dir: the folder is new"), std::string::npos) << made.err;
        EXPECT_EQ(genreg(std::string("--parents --all ") + line).err, "");
        remove("new");
    }
    // A link counts as what it leads to.
    link("no/f", "dangling");
    expectFailure(3, "there is no folder ", "varval add dangling a 1");
    EXPECT_EQ(status("varval set new/f a 1"), 3);
    write("f", "");
    EXPECT_EQ(status("varval add f/f a 1 --parents"), 8);
    EXPECT_EQ(names(), "dangling f");
    // The global registry's comes with it.
    EXPECT_NE(genreg("--registry new/g service set RVN 9.7").err.find("new: the folder is new"), std::string::npos);
}

TEST_F(Command, OtherNamesOfAFileAreSpokenOf) {
    write("f", "a = 1\n");
    std::filesystem::create_hard_link(path("f"), path("twin"));
    EXPECT_NE(genreg("-n varval set f a 2").err.find("1 other name "), std::string::npos);
    EXPECT_NE(genreg("varval set f a 2").err.find("1 other name "), std::string::npos);
    EXPECT_EQ(read("twin"), "a = 1\n");
    EXPECT_EQ(genreg("varval set f a 3").err, "");
    // The backup of an interrupted commit is none of the user's.
    std::filesystem::create_hard_link(path("f"), path(".f.bkp"));
    EXPECT_EQ(genreg("varval set f a 4").err, "");
}

TEST_F(Command, WhatIsNoReadableFileIsToldApart) {
    write("f", "a = 1\n");
    std::filesystem::create_directory(path("d"));
    link("nowhere", "dangling");
    const struct {
        std::string path, words;
    } cases[] = {{"absent", "no such file"},   {"d", "is a directory"}, {"/dev/zero", "no regular file"},
                 {"dangling", "no such file"}, {"f/x", "no such file"}, {std::string(1100, 'p'), "too long"}};
    for (const auto& c : cases) {
        for (const std::string& line :
             {"varval get " + c.path + " a", "varval set " + c.path + " a 2", "varval list " + c.path,
              "status " + c.path, "diff f " + c.path, "lock run " + c.path + " -- true"}) {
            expectFailure(3, c.words, line);
        }
    }
    EXPECT_EQ(names(), "d dangling f");
    // A file that cannot be read to its end is not taken for what came before.
    EXPECT_NE(genreg("diff f /proc/self/mem").err.find("input/output error"), std::string::npos);
}

TEST_F(Command, OutputThatCannotBeWrittenIsAFailure) {
    write("f", "a = 1\n");
    EXPECT_EQ(genreg("--help", {}, {"/dev/full"}).status, 8);
    std::string many;
    for (int i = 0; i < 20000; ++i) {
        many += "v" + std::to_string(i) + " = 1\n";
    }
    write("many", many);
    const std::string pipeline = "{ '" + BUILT_TOOL + "' varval list '" + path("many") + "' 2>'" + path("err") +
                                 "'; echo $? >'" + path("status") + "'; } | head -n 1 >/dev/null";
    EXPECT_EQ(std::system(pipeline.c_str()), 0);
    EXPECT_EQ(read("status"), "141\n");
    EXPECT_EQ(read("err"), "") << "a reader that has seen enough is no error to talk about";
}

TEST_F(Command, ARehearsalThatDoesNotFitOnTheDiskIsNoAnswer) {
    // Its copy would not hold all of this file, though what it makes of it would fit.
    write("f", "a = " + std::string(1500, 'x') + "\nb = " + std::string(1500, 'y') + "\nc = 1\n");
    const Result rehearsed = genreg("varval delete f a -n", {}, {"", 2048});
    EXPECT_EQ(rehearsed.status, 8) << rehearsed.err;
    EXPECT_EQ(rehearsed.out, "");
}

TEST_F(Command, NoMemoryIsToldApartFromADefect) {
    Surroundings poor;
    poor.memoryLimit = 256UL << 20U;
    if (genreg("version decode 1", {}, poor).status != 0) {
        GTEST_SKIP() << "the tool as built takes more memory than that to start";
    }
    write("f", "");
    std::filesystem::resize_file(path("f"), 512UL << 20U);
    const Result result = genreg("status f", {}, poor);
    EXPECT_EQ(result.status, 8);
    EXPECT_NE(result.err.find("no memory left\n  try: free some memory"), std::string::npos) << result.err;
}

TEST_F(Command, ColoursAndControlBytesStayWhereTheyBelong) {
    write("f", "a = 1\nb = \xc2\x9b\n");
    EXPECT_EQ(out("varval set f a 2 -n").find('\x1b'), std::string::npos);
    EXPECT_NE(out("varval set f a 2 -n --color always").find("\x1b[32m+a = 2\x1b[0m"), std::string::npos);
    EXPECT_NE(out("varval list f").find("\\xc2\\x9b"), std::string::npos);
    EXPECT_EQ(out("varval get f b"), "\xc2\x9b\n") << "programs get the bytes";
    EXPECT_EQ(out("varval list f --json").find('\x9b'), std::string::npos);
    EXPECT_EQ(objects(out("varval list f --json")).at(1)["value"], "\xc2\x9b");
}

TEST_F(Command, TablesAreAlignedByWhatATerminalShows) {
    // Wide, combining, invisible and ordinary letters: 4, 4, 1, 3 and 4 columns.
    write("f", "日本 = 1\n😀é́z = 1\na\xe2\x80\x8d = 1\nñoñ = 1\nabcd = 1\n");
    const std::string head = "NAME  VALUE  COMMENT\n";
    EXPECT_EQ(out("varval list f"), head +
                                        "日本  1      -\n😀é́z  1      -\na\xe2\x80\x8d     1      -\nñoñ   1      -\n"
                                        "abcd  1      -\n");
}

TEST_F(Command, ATerminalGetsColoursUnlessTheyAreUnwanted) {
    write("f", "a = 1\n");
    const auto coloured = [&](const std::string& line) {
        const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        EXPECT_EQ(::grantpt(master) | ::unlockpt(master), 0);
        Surroundings terminal;
        terminal.standardOutput = ::ptsname(master);
        const int held = ::open(terminal.standardOutput.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        EXPECT_EQ(genreg(line, {}, terminal).status, 0) << line;
        // A terminal hands its output on in pieces.
        std::string text;
        ssize_t got = 1;
        while (text.find("+a = 2") == std::string::npos && got > 0) {
            pollfd output{master, POLLIN, 0};
            char bytes[4096];
            got = ::poll(&output, 1, 5000) == 1 ? ::read(master, bytes, sizeof bytes) : 0;
            text.append(bytes, got > 0 ? static_cast<std::size_t>(got) : 0);
        }
        ::close(held);
        ::close(master);
        EXPECT_NE(text.find("+a = 2"), std::string::npos) << text;
        return text.find('\x1b') != std::string::npos;
    };
    {
        const Variable plain("TERM", "dumb");
        EXPECT_FALSE(coloured("varval set f a 2 -n"));
    }
    const Variable dialect("TERM", "xterm");
    EXPECT_TRUE(coloured("varval set f a 2 -n"));
    EXPECT_FALSE(coloured("varval set f a 2 -n --color never"));
    const Variable unwanted("NO_COLOR", "1");
    EXPECT_FALSE(coloured("varval set f a 2 -n"));
    EXPECT_TRUE(coloured("varval set f a 2 -n --color always"));
}

}  // namespace
