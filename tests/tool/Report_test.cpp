#include <genreg/Codes.h>

#include <map>
#include <random>

#include "Tool.h"

namespace {

using Lines = std::vector<std::string>;

class Report : public ToolTest {
protected:
    // What the difference between two files of these lines, applied to the first, makes of it.
    Lines patched(const Lines& before, const Lines& after, std::size_t* edits) {
        write("a", joined(before));
        write("b", joined(after));
        const Result result = genreg("diff a b");
        EXPECT_EQ(result.status, before == after ? 0 : 1);
        Lines lines;
        std::size_t at = 0;  // in the first
        const auto keepUntil = [&](std::size_t end) {
            while (at < std::min(end, before.size())) {
                lines.push_back(before[at++]);
            }
        };
        *edits = 0;
        std::istringstream told(result.out);
        for (std::string line; std::getline(told, line);) {
            const bool name = line.starts_with("--- ") || line.starts_with("+++ ");
            if (line.starts_with("@@ -")) {
                const auto first = std::stoul(line.substr(4));
                const bool hasLines = line.substr(4, line.find(' ', 4) - 4).find(",0") == std::string::npos;
                keepUntil(first - (hasLines ? 1 : 0));
            } else if (line[0] == ' ') {
                keepUntil(at + 1);
            } else if (line[0] == '-' && !name) {
                EXPECT_EQ(line.substr(1), before.at(at++));
                ++*edits;
            } else if (line[0] == '+' && !name) {
                lines.push_back(line.substr(1));
                ++*edits;
            }
        }
        keepUntil(before.size());
        return lines;
    }

private:
    static std::string joined(const Lines& lines) {
        std::string text;
        for (const std::string& line : lines) {
            text += line + "\n";
        }
        return text;
    }
};

TEST_F(Report, StatusCountsLinesByKind) {
    write("f", "# c\n\n \t\na = 1\nb=2 # x\nno pair\nq = \"open\n");
    std::filesystem::permissions(path("f"), std::filesystem::perms(0640));
    const Json report = object("status f");
    EXPECT_EQ(report["size"], read("f").size());
    EXPECT_EQ(report["mode"], "0640");
    EXPECT_EQ(report["owner"], ::getuid());
    EXPECT_EQ(report["lines"].dump(), R"({"total":7,"pairs":2,"comments":1,"blank":2,"other":2})");
    EXPECT_EQ(report["companions"].size(), 0U);
    const Json named = object("--registry f status");  // by now it may be a second older
    EXPECT_EQ(named["path"], report["path"]);
    EXPECT_EQ(named["lines"], report["lines"]);
    EXPECT_EQ(names(), "f") << "looking leaves nothing behind";
    link("nowhere", "f.tmp");
    EXPECT_EQ(object("status f")["companions"].at(0)["companion"], "tmp") << "a link that somebody planted, too";
    write("binary", std::string("a\0b", 3));
    EXPECT_EQ(objects(genreg("status binary --json").out).at(0)["lines"], nullptr);
}

TEST_F(Report, ADifferenceAppliedToTheOneGivesTheOther) {
    std::mt19937 random(4711);
    std::size_t edits = 0;
    for (int round = 0; round < 30; ++round) {
        Lines before, after;
        for (auto* side : {&before, &after}) {
            for (auto count = random() % 30; count > 0; --count) {
                side->push_back("line " + std::to_string(random() % 8));
            }
        }
        EXPECT_EQ(patched(before, after, &edits), after);
    }
    // Of large files it is found, and small.
    Lines before, after;
    for (int i = 0; i < 20000; ++i) {
        before.push_back("line " + std::to_string(i));
        after.push_back(i % 1000 == 7 ? "other " + std::to_string(i) : before.back());
    }
    std::reverse(after.begin() + 10000, after.begin() + 10010);
    EXPECT_EQ(patched(before, after, &edits), after);
    EXPECT_LE(edits, 60U);
    // Where one line in the middle is all that they share, what stands behind it is compared as well.
    constexpr int OTHERS = 2100;
    before.clear();
    after.clear();
    for (int i = 0; i < OTHERS; ++i) {
        before.push_back("old " + std::to_string(i));
        after.push_back("new " + std::to_string(i));
    }
    before.insert(before.end(), {"one", "same", "same", "z"});
    after.insert(after.end(), {"one", "a", "same", "same"});
    EXPECT_EQ(patched(before, after, &edits), after);
    EXPECT_EQ(edits, 2U * OTHERS + 2);
}

TEST_F(Report, ADifferenceNamesAMissingNewlineAndWhatIsNoText) {
    write("a", "x\ny");
    write("b", "x\ny\n");
    write("c", std::string("\0", 1));
    const Result result = genreg("diff a b");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "--- a\n+++ b\n@@ -1,2 +1,2 @@\n x\n-y\n\\ No newline at end of file\n+y\n");
    EXPECT_EQ(status("diff a a"), 0);
    EXPECT_EQ(status("diff a c"), 1);
}

// The same objects whoever tells: a rehearsal, the command itself, the comparison of what was and is.
TEST_F(Report, AChangeHasOneShapeWhoeverTellsIt) {
    write("v", "# top\na = 1\n");
    write("s", "http 80/tcp www # W\nhttp 80/udp\n");
    write("i", "a:2:once:x \\\ny\n");
    for (const char* change : {"binvar add b x 1", "variable set RVN V value=1", "varval add e n 1"}) {
        ASSERT_EQ(status(change), 0);
    }
    // Without what differs by who tells it.
    const auto essence = [](const Json& told) {
        const std::string text = told.dump();
        const std::string rest = text.substr(text.find("\"type\""));
        return rest.substr(0, rest.find(",\"dryRun\""));
    };
    struct Case {
        std::string command;
        std::string file;
        std::string action;
    };
    for (const Case& c : std::vector<Case>{{"varval set v a 2 --comment c", "v", "change"},
                                           {"varval set v n 2 --add", "v", "add"},
                                           {"varval delete v a", "v", "delete"},
                                           {"services set s http 81/udp", "s", "change"},
                                           {"services add s ssh 22/tcp secure", "s", "add"},
                                           {"services delete s http/tcp", "s", "delete"},
                                           {"inittab add i b 2 off z", "i", "add"},
                                           {"inittab delete i b", "i", "delete"},
                                           {"binvar set b x 2", "b", "change"},
                                           {"binvar add b y 2 --comment c", "b", "add"},
                                           {"binvar delete b x", "b", "delete"},
                                           {"variable set RVN V value=2 comment=c", "global.reg", "change"},
                                           {"variable set RVN W value=", "global.reg", "add"},
                                           {"variable remove RVN V", "global.reg", "delete"}}) {
        const Json rehearsed = object(c.command + " -n");
        std::filesystem::copy_file(path(c.file), path("old"), std::filesystem::copy_options::overwrite_existing);
        const Json done = object(c.command);
        const auto compared = objects(genreg("diff --json old " + c.file).out);
        ASSERT_EQ(compared.size(), 1U) << c.command;
        EXPECT_EQ(done["action"], c.action) << c.command;
        EXPECT_EQ(essence(done), essence(compared[0])) << c.command;
        EXPECT_EQ(essence(rehearsed), essence(done)) << c.command;
    }
    write("v", "a = 1\na = 2\n");
    const auto both = objects(out("--json varval set v a 2 --all"));
    ASSERT_EQ(both.size(), 2U);
    EXPECT_EQ(both[0]["action"].text() + " " + both[1]["action"].text(), "change none");
    // What is told of nothing has a name.
    EXPECT_EQ(object("services delete s http/xns --if-present").dump(),
              R"({"schema":1,"operation":"services delete","path":"s","type":"services","name":"http",)"
              R"("protocol":"xns","action":"none","before":null,"after":null,"changed":false,"dryRun":false})");
    write("e", "b = 1\na = 1\n");
    write("old", "a = 1\nb = 1\n");
    const Result moved = genreg("diff old e --json");
    EXPECT_EQ(moved.status, 1);
    EXPECT_EQ(moved.out, "");
    EXPECT_NE(moved.err.find("order"), std::string::npos);
}

TEST_F(Report, EveryCodeIsExplainedInEveryForm) {
    const auto all = objects(out("explain --json"));
    std::map<std::string, int> exits;
    for (std::size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(all[i]["name"], genregCodeName(genregCodeAt(i)));
        EXPECT_FALSE(all[i]["advice"].text().empty());
        EXPECT_FALSE(all[i]["operations"].text().empty());
        exits[all[i]["code"].text()] = static_cast<int>(all[i]["exit"].number());
        // What became of the file is told wherever an update may have failed, and as the sentence tells it.
        const std::string text = all[i]["text"].text();
        const bool kept = text.find("not replaced") != std::string::npos || text.find("as it was") != std::string::npos;
        const bool replaced =
            text.find("change stands") != std::string::npos || text.find("was updated") != std::string::npos;
        EXPECT_TRUE(!kept || all[i]["file"] == "kept") << text;
        EXPECT_TRUE(!replaced || all[i]["file"] == "replaced") << text;
        EXPECT_EQ(all[i]["exit"] == 8, !all[i]["file"].is_null()) << text;
    }
    EXPECT_EQ(genregCodeAt(all.size()), 0U);
    const std::string once = out("explain 0x900001f6");
    for (const char* form : {"900001f6", "0X900001F6", "2415919606", "REG_NOT_FOUND"}) {
        EXPECT_EQ(out("explain", {form}), once) << form;
    }
    EXPECT_EQ(status("explain 0x9000ffff"), 2);
    EXPECT_NE(out("explain 0x9000011c").find("no space left"), std::string::npos);
    // What scripts rely on.
    const std::map<std::string, int> promised{
        {"0x900001f7", 0}, {"0x900001f6", 1}, {"0x900001be", 1}, {"0x90000513", 3}, {"0x900001bf", 3},
        {"0x900001c5", 3}, {"0x900001bc", 4}, {"0x900001c4", 4}, {"0x900001f1", 5}, {"0x900001f8", 5},
        {"0x900001fc", 6}, {"0x90000207", 6}, {"0x90000273", 6}, {"0x90000229", 6}, {"0x900001cd", 7},
        {"0x90000254", 7}, {"0x900005a4", 7}, {"0x900001b3", 7}, {"0x900001d0", 8}, {"0x900001e1", 8},
        {"0x900001e2", 8}, {"0x900001fb", 8}, {"0x900001c8", 8}, {"0x900001da", 3}, {"0x9000021b", 70}};
    for (const auto& [code, status] : promised) {
        EXPECT_EQ(exits.at(code), status) << code;
    }
}

}  // namespace
