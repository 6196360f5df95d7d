#include <genreg/Codes.h>

#include <map>
#include <random>
#include <set>

#include "Tool.h"

namespace {

using Report = Scratch;

TEST_F(Report, StatusCountsLinesByKind) {
    write("f", "# c\n\n \t\na = 1\nb=2 # x\nno pair\nq = \"open\n");
    std::filesystem::permissions(at("f"), std::filesystem::perms(0640));
    const auto report = objects(genreg({"status", "f", "--json"}).out).at(0);
    EXPECT_EQ(report["size"], read("f").size());
    EXPECT_EQ(report["mode"], "0640");
    EXPECT_EQ(report["owner"], getuid());
    EXPECT_EQ(report["lines"].dump(), "{\"total\":7,\"pairs\":2,\"comments\":1,\"blank\":2,\"other\":2}");
    EXPECT_EQ(report["companions"].size(), 0U);
    EXPECT_EQ(genreg({"--registry", "f", "status"}).out, genreg({"status", "f"}).out);
    EXPECT_EQ(names(), std::vector<std::string>{"f"}) << "looking leaves nothing behind";
    write("binary", std::string("a\0b", 3));
    EXPECT_EQ(objects(genreg({"status", "binary", "--json"}).out).at(0)["lines"], nullptr);
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

// What the objects of a difference make of the old lines.
std::vector<std::string> applied(const std::vector<std::string>& lines,
                                 const std::vector<nlohmann::ordered_json>& edits) {
    std::set<std::size_t> removed;
    for (const auto& edit : edits) {
        if (edit["op"] == "remove") {
            removed.insert(edit["line"].get<std::size_t>() - 1);
        }
    }
    std::vector<std::string> result;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (removed.count(i) == 0) {
            result.push_back(lines[i]);
        }
    }
    for (const auto& edit : edits) {
        if (edit["op"] == "insert") {
            const auto place = edit["line"].get<std::ptrdiff_t>() - 1;
            result.insert(result.begin() + place, edit["text"].get<std::string>());
        }
    }
    return result;
}

TEST_F(Report, ADifferenceAppliedToTheOneGivesTheOther) {
    std::mt19937 random(4711);
    for (int round = 0; round < 30; ++round) {
        std::vector<std::string> before, after;
        for (auto* side : {&before, &after}) {
            for (auto count = random() % 30; count > 0; --count) {
                side->push_back("line " + std::to_string(random() % 8));
            }
        }
        write("a", joined(before));
        write("b", joined(after));
        const Result json = genreg({"diff", "a", "b", "--json"});
        EXPECT_EQ(json.status, before == after ? 0 : 1);
        EXPECT_EQ(applied(before, objects(json.out)), after);
    }
}

TEST_F(Report, ADifferenceOfLargeFilesIsFoundAndSmall) {
    std::vector<std::string> before, after;
    for (int i = 0; i < 20000; ++i) {
        before.push_back("line " + std::to_string(i));
        after.push_back(i % 1000 == 7 ? "other " + std::to_string(i) : before.back());
    }
    std::reverse(after.begin() + 10000, after.begin() + 10010);
    write("a", joined(before));
    write("b", joined(after));
    const auto edits = objects(genreg({"diff", "a", "b", "--json"}).out);
    EXPECT_LE(edits.size(), 60U);
    EXPECT_EQ(applied(before, edits), after);
}

TEST_F(Report, ADifferenceNamesAMissingNewlineAndWhatIsNoText) {
    write("a", "x\ny");
    write("b", "x\ny\n");
    write("c", std::string("\0", 1));
    const Result result = genreg({"diff", "a", "b"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "--- a\n+++ b\n@@ -1,2 +1,2 @@\n x\n-y\n\\ No newline at end of file\n+y\n");
    EXPECT_EQ(genreg({"diff", "a", "a"}).status, 0);
    EXPECT_EQ(genreg({"diff", "a", "c"}).status, 1);
}

TEST_F(Report, EveryCodeIsExplainedInEveryForm) {
    const auto all = objects(genreg({"explain", "--json"}).out);
    std::map<std::string, int> exits;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const unsigned int code = genregCodeAt(i);
        EXPECT_EQ(all[i]["name"], genregCodeName(code));
        EXPECT_FALSE(all[i]["advice"].get<std::string>().empty());
        EXPECT_FALSE(all[i]["operations"].get<std::string>().empty());
        exits[all[i]["code"]] = all[i]["exit"];
    }
    EXPECT_EQ(genregCodeAt(all.size()), 0U);
    const std::string once = genreg({"explain", "0x900001f6"}).out;
    for (const char* form : {"900001f6", "0X900001F6", "2415919606", "REG_NOT_FOUND"}) {
        EXPECT_EQ(genreg({"explain", form}).out, once) << form;
    }
    EXPECT_EQ(genreg({"explain", "0x9000ffff"}).status, 2);
    EXPECT_NE(genreg({"explain", "0x9000011c"}).out.find("no space left"), std::string::npos);
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
