// What is shown at a terminal, and only there; and what ^C does.
#include <functional>
#include <regex>

#include "support/Terminal.h"

#include "Tool.h"

namespace {

class AtTerminal : public ToolTest {
protected:
    // What the tool shows at a terminal of so many columns.
    std::string shown(const Words& words, const Words& environment, unsigned short columns = 80) {
        Words all{BUILT_TOOL};
        all.insert(all.end(), words.begin(), words.end());
        Terminal terminal(all, folder(), environment, columns);
        EXPECT_GE(terminal.ended(), 0);
        return terminal.shown();
    }
};

TEST_F(AtTerminal, ATableStaysWithinItsWidthAndLosesNothing) {
    const std::string value = "one two three four five six seven eight nine ten eleven twelve";
    write("v", "a = " + value + "\nb = caf\xc3\xa9-" + std::string(60, 'x') + "\xc3\xa9 # comment\n");
    const std::string table = shown({"varval", "list", "v"}, {"LC_ALL=C.UTF-8"}, 40);
    std::string words;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        line.erase(line.find_last_not_of('\r') + 1);
        const auto continuation =
            std::count_if(line.begin(), line.end(), [](unsigned char c) { return (c & 0xc0U) == 0x80U; });
        EXPECT_LE(line.size() - static_cast<std::size_t>(continuation), 40U) << line;
        for (const char c : line) {
            words += c == ' ' ? "" : std::string(1, c);
        }
    }
    EXPECT_NE(table.find("one two"), std::string::npos);
    for (const char* word : {"eleven", "twelve", "comment"}) {
        EXPECT_NE(table.find(word), std::string::npos) << table;
    }
    EXPECT_EQ(std::count(words.begin(), words.end(), 'x'), 61) << "no letter is lost: " << table;
    EXPECT_NE(out("varval list v").find(value), std::string::npos) << "elsewhere a row is a line";
}

TEST_F(AtTerminal, ColourIsForTerminalsThatWantIt) {
    write("v", "a = 1\n");
    const Words words{"varval", "get", "v", "b"};
    const std::string red = "\x1b[31m";
    EXPECT_NE(shown(words, {"TERM=xterm", "NO_COLOR="}).find(red), std::string::npos);
    EXPECT_EQ(shown(words, {"TERM=dumb", "NO_COLOR="}).find(red), std::string::npos);
    EXPECT_EQ(shown(words, {"TERM=xterm", "NO_COLOR=1"}).find(red), std::string::npos);
    EXPECT_NE(shown({"--color", "always", "varval", "get", "v", "b"}, {"TERM=dumb", "NO_COLOR=1"}).find(red),
              std::string::npos);
    EXPECT_EQ(genreg("varval get v b").err.find(red), std::string::npos);
}

TEST_F(AtTerminal, AnInterruptedWaitLeavesTheFileAndSaysSo) {
    write("f", "a = 1\n");
    const Running holder = start("lock run f -- sh -c", {"touch held; exec sleep 60"});
    while (!exists("held")) {
        ::usleep(5000);
    }
    {
        Terminal terminal({BUILT_TOOL, "varval", "set", "f", "a", "2"}, folder(), {"TERM=xterm"});
        EXPECT_TRUE(terminal.shows("waiting up to 10 s")) << terminal.shown();
        terminal.type("\x03");
        EXPECT_EQ(terminal.ended(), 128 + SIGINT);
        EXPECT_NE(terminal.shown().find("f: interrupted; the file is as it was"), std::string::npos)
            << terminal.shown();
    }
    const auto whileItWaits = [&](const Running& running, const std::function<void()>& happens) {
        while (read(running.err).find("waiting up to") == std::string::npos) {
            ::usleep(5000);
        }
        happens();
        ::kill(running.pid, SIGTERM);
        const Result result = finish(running);
        EXPECT_EQ(result.status, 128 + SIGTERM);
        return result.err;
    };
    const std::string told = whileItWaits(start("varval set f a 2 --json"), [] {});
    EXPECT_EQ(objects(told).at(1)["kind"], "interrupted");
    // Where somebody else has changed it meanwhile, nothing is said that is not so.
    const std::string late = whileItWaits(start("varval set f a 2"), [&] { write("f", "a = 12\n"); });
    EXPECT_EQ(late.find("interrupted"), std::string::npos) << late;
    ::kill(holder.pid, SIGKILL);
    (void)finish(holder);
    EXPECT_EQ(read("f"), "a = 12\n");
    EXPECT_EQ(names(), ".f.lock f held");
}

// Of work that takes over a second: on a fast or an idle machine that is more of it.
TEST_F(AtTerminal, LongWorkTellsHowFarItIsAndTakesThatAway) {
    const Words environment{"TERM=xterm", "NO_COLOR=1"};
    const std::string eraser = "\r\x1b[K";
    const auto expectTold = [&](const Words& words, const std::string& piece,
                                const std::function<void(std::size_t)>& make) {
        std::string told;
        std::size_t last = std::string::npos;
        for (std::size_t lines = 2'000; last == std::string::npos && lines < 8'000'000; lines *= 2) {
            make(lines);
            told = shown(words, environment);
            last = told.rfind(eraser);
        }
        ASSERT_NE(last, std::string::npos) << told;
        EXPECT_LT(told.find("genreg: " + piece), last) << told;
        const Result unseen = genreg("", words);
        EXPECT_EQ((unseen.out + unseen.err).find_first_of("\r\x1b"), std::string::npos) << "where nobody looks";
        const std::string said = std::regex_replace(unseen.out + unseen.err, std::regex("\n"), "\r\n");
        EXPECT_EQ(told.substr(last + eraser.size()), said) << "nothing is left of it";
        Words quiet = words;
        quiet.emplace_back("-q");
        EXPECT_EQ(shown(quiet, environment).find(eraser), std::string::npos);
    };
    expectTold({"varval", "apply", "v", "batch"}, "reading the batch: ", [&](std::size_t lines) {
        std::string batch;
        for (std::size_t i = 0; i < lines; ++i) {
            batch += "{\"name\":\"n" + std::to_string(i) + "\",\"value\":1}\n";
        }
        write("batch", batch + "{");
    });
    expectTold({"check", "f", "--deep"}, "checking ", [&](std::size_t lines) {
        std::string text;
        for (std::size_t i = 0; i < lines; ++i) {
            text += "n" + std::to_string(i) + " = 1\n";
        }
        write("f", text);
    });
}

}  // namespace
