// The inittab form, on lines and on files.
#include <genreg/GenRegInitTab.h>

#include <array>
#include <cstring>

#include "SchemaFile.h"

namespace {

constexpr unsigned long ID = INITTAB_MATCH_ID;
constexpr unsigned long EVERYTHING = ~0UL;

GenRegInitTabRecord entry(const char* id, const char* runLevel, const char* action, const char* command,
                          const char* comment = nullptr) {
    GenRegInitTabRecord record = {};
    record.flags = INITTAB_HAS_ENTRY | (comment != nullptr ? INITTAB_HAS_COMMENT : 0);
    record.id = const_cast<char*>(id);
    record.runLevel = const_cast<char*>(runLevel);
    record.action = const_cast<char*>(action);
    record.command = const_cast<char*>(command);
    record.comment = const_cast<char*>(comment);
    return record;
}

std::string describe(const GenRegInitTabRecord& record) {
    return " " + std::to_string(record.flags) + " " + textOf(record.id) + "|" + textOf(record.runLevel) + "|" +
           textOf(record.action) + "|" + textOf(record.command) + "#" + textOf(record.comment);
}

std::string parsed(const std::string& line) {
    GenRegInitTabRecord record;
    std::memset(static_cast<void*>(&record), 'x', sizeof record);
    const unsigned int rc = GenRegInitTab::ParseLine(&record, line.c_str());
    return std::to_string(rc) + describe(record);
}

std::string formatted(GenRegInitTabRecord record) {
    std::array<char, 2064> line;
    line.fill('~');
    line[1] = '\0';
    const unsigned int rc = GenRegInitTab::FormatLine(&record, line.data());
    EXPECT_EQ(std::string(line.data() + 2048, 16), std::string(16, '~'));
    return rc == 0 ? line.data() : genregCodeName(rc);
}

TEST(InitTabLine, IsTakenApart) {
    EXPECT_EQ(parsed("x1:35:respawn:/bin/run a:b   \n"), "0 2 x1|35|respawn|/bin/run a:b#(null)");
    EXPECT_EQ(parsed("x1:2:once:/bin/a # note"), "0 3 x1|2|once|/bin/a# note");
    EXPECT_EQ(parsed(" x ::: \n"), "0 2  x ||| #(null)");  // the first character of a command stays
    EXPECT_EQ(parsed("x1:::\n"), "0 2 x1|||#(null)");
    EXPECT_EQ(parsed(":old # entry\n"), "0 1 (null)|(null)|(null)|(null)#old # entry");
    EXPECT_EQ(parsed("#\xe9\t\n"), "0 1 (null)|(null)|(null)|(null)#\xe9\t");
    EXPECT_EQ(parsed("\n"), "0 0 (null)|(null)|(null)|(null)#(null)");
    EXPECT_EQ(parsed("x1\n"), std::to_string(REG_INITTAB_NO_RUN_LEVEL) + " 2 x1|(null)|(null)|(null)#(null)");
    EXPECT_EQ(parsed("x1:3\n"), std::to_string(REG_INITTAB_NO_ACTION) + " 2 x1|3|(null)|(null)#(null)");
    EXPECT_EQ(parsed("x1:35:respawn#:c\n"), std::to_string(REG_INITTAB_NO_COMMAND) + " 3 x1|35|respawn|(null)#:c");
    EXPECT_EQ(GenRegInitTab::ParseLine(nullptr, ""), REG_EMPTY_ARGUMENT);
    GenRegInitTabRecord record;
    EXPECT_EQ(GenRegInitTab::ParseLine(&record, nullptr), REG_EMPTY_ARGUMENT);
}

TEST(InitTabLine, IsWrittenWithoutANewline) {
    EXPECT_EQ(formatted(entry("x1", "2", "once", "/bin/a")), "x1:2:once:/bin/a");
    EXPECT_EQ(formatted(entry("x1", "2", "once", "/bin/a", " note")), "x1:2:once:/bin/a # note");
    EXPECT_EQ(formatted(entry("x1", nullptr, "once", "/bin/a")), "REG_NAME_MISSING");
    GenRegInitTabRecord record = {};
    EXPECT_EQ(formatted(record), "~");  // neither entry nor comment: left as it was
    record.flags = INITTAB_HAS_COMMENT;
    EXPECT_EQ(formatted(record), "#");
    record.comment = const_cast<char*>("c");
    EXPECT_EQ(formatted(record), "#c");
    EXPECT_EQ(GenRegInitTab::FormatLine(nullptr, nullptr), REG_EMPTY_ARGUMENT);
}

TEST(InitTabLine, EndsWithinItsBuffers) {
    const std::string head = "x1:2:once:";
    for (const std::size_t length : {2047UL, 2048UL, 5000UL}) {
        EXPECT_EQ(parsed(head + std::string(length - head.size(), 'c')),
                  "0 2 x1|2|once|" + std::string(2047 - head.size(), 'c') + "#(null)");
    }
    // With its newline a line of the file has 2,047 bytes at most.
    const std::string longest(2046 - head.size(), 'c');
    EXPECT_EQ(formatted(entry("x1", "2", "once", longest.c_str())), head + longest);
    EXPECT_EQ(formatted(entry("x1", "2", "once", (longest + "c").c_str())), "REG_LINE_TOO_LONG");
    EXPECT_EQ(formatted(entry("x1", "2", "once", "c", std::string(5000, 'c').c_str())), "REG_LINE_TOO_LONG");
}

TEST(InitTabLine, IsReadBackAsItWasWritten) {
    Dice dice(3303);
    const std::string letters = "abc 019-_./\"\\\t\xe9";
    for (int round = 0; round < 3000; ++round) {
        const std::string id = dice.word(letters, 1, 6);
        const std::string runLevel = dice.word(letters, 0, 6);
        const std::string action = dice.word(letters, 0, 9);
        const std::string command = dice.word(letters + ":", 0, 30) + "!";
        const std::string comment = dice.word(letters + "#:", 0, 20);
        const GenRegInitTabRecord record = entry(id.c_str(), runLevel.c_str(), action.c_str(), command.c_str(),
                                                 dice.below(2) == 0 ? nullptr : comment.c_str());
        const std::string line = formatted(record);
        ASSERT_EQ(parsed(line), "0" + describe(record)) << line;
    }
}

TEST(InitTabRecord, IsMatchedByWhatTheKeyHas) {
    const auto match = [](unsigned long mask, const char* line, GenRegInitTabRecord key) {
        GenRegInitTabRecord stored;
        (void)GenRegInitTab::ParseLine(&stored, line);
        return GenRegInitTab::MatchRecord(mask, &stored, &key) == 1;
    };
    const GenRegInitTabRecord plain = entry("x1", "2", "once", "/bin/a");
    EXPECT_TRUE(match(EVERYTHING, "x1:2:once:/bin/a # note", plain));  // the key asks for no comment
    EXPECT_FALSE(match(EVERYTHING, "x1:2:once:/bin/a", entry("x1", "2", "once", "/bin/a", " note")));
    EXPECT_FALSE(match(ID, "x1:2:once:/bin/a # other", entry("x1", "2", "once", "/bin/a", " note")));
    EXPECT_TRUE(match(ID, "x1:9:off:x", plain));
    for (const char* const line :
         {"x2:2:once:/bin/a", "x1:3:once:/bin/a", "x1:2:wait:/bin/a", "x1:2:once:/bin/b", "x1:2:once", "# x1"}) {
        EXPECT_FALSE(match(EVERYTHING, line, plain)) << line;
        EXPECT_TRUE(match(0, line, plain)) << line;
    }
    GenRegInitTabRecord key = {};
    EXPECT_TRUE(match(ID, "\n", key));
    EXPECT_FALSE(match(ID, "#\n", key));
    key.flags = INITTAB_HAS_COMMENT;
    key.comment = const_cast<char*>("c");
    EXPECT_TRUE(match(ID, ":c\n", key));
    EXPECT_TRUE(match(ID, "x1:2:once:/bin/a#c\n", key));
    EXPECT_FALSE(match(ID, "# c\n", key));
}

TEST(InitTabRecord, IsRefusedForWhatTheMaskMisses) {
    const auto refusal = [](unsigned long mask, GenRegInitTabRecord record) {
        return GenRegInitTab::ValidateRecord(mask, &record);
    };
    EXPECT_EQ(GenRegInitTab::ValidateRecord(0, nullptr), REG_EMPTY_ARGUMENT);
    GenRegInitTabRecord record = {};
    EXPECT_EQ(refusal(0, record), REG_EMPTY_RECORD);
    record.flags = INITTAB_HAS_COMMENT;
    EXPECT_EQ(refusal(EVERYTHING, record), 0u);
    EXPECT_EQ(refusal(EVERYTHING, entry("a", nullptr, "c", "d")), 0u);  // run levels are not asked for
    EXPECT_EQ(refusal(0, entry(nullptr, nullptr, nullptr, nullptr)), 0u);
    EXPECT_EQ(refusal(INITTAB_MATCH_ID, entry(nullptr, "b", "c", "d")), REG_NAME_MISSING);
    EXPECT_EQ(refusal(INITTAB_MATCH_ACTION, entry("a", "b", nullptr, "d")), REG_NAME_MISSING);
    EXPECT_EQ(refusal(INITTAB_MATCH_COMMAND, entry("a", "b", "c", nullptr)), REG_NAME_MISSING);
}

TEST(InitTabRecord, IsPrintedOnlyWithAComment) {
    GenRegInitTabRecord silent = entry("x1", "2", "once", "/bin/a");
    GenRegInitTabRecord spoken = entry("x1", nullptr, "once", "/bin/a", " note");
    testing::internal::CaptureStdout();
    EXPECT_EQ(GenRegInitTab::PrintRecord(&silent), 0u);
    EXPECT_EQ(GenRegInitTab::PrintRecord(&spoken), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "   ID       : |x1|\n   Action   : |once|\n   Command  : |/bin/a|\n   Comment  : | note|\n");
    unsigned long size = 0;
    EXPECT_EQ(GenRegInitTab::GetRecordSize(&silent, &size), 0u);
    EXPECT_EQ(size, 2096u);
}

class InitTabFile : public SchemaFile {
protected:
    [[nodiscard]] std::string found(const char* id) const {
        unsigned int rc = 0;
        GenRegInitTab table(registry().c_str(), &rc);
        GenRegInitTabRecord key = entry(id, nullptr, nullptr, nullptr);
        GenRegInitTabRecord record;
        rc = table.Get(ID, &key, &record);
        return rc != 0 ? genregCodeName(rc) : formatted(record);
    }
};

const std::string HEAD =
    "# Run levels and what they start.\n"
    ":was: rc\\\n 0 wait /etc/rc0\n"
    "id:3:initdefault:\n"
    "si::sysinit:/etc/rc.sysinit\n"
    "bb:2:boot:/bin/b\nbw:2:bootwait:/bin/w\nl3:3:wait:/etc/rc 3\noo:5:ondemand:/bin/o\n"
    "x1:35:respawn:/bin/run -a \\\n  -b:c \\\n  -d   # three lines\n";
const std::string EDITED = "on:2:once:/bin/once#said\n";
const std::string TAIL =
    "\n   \n"
    "of:4:off:/bin/never\n"
    "ca::ctrlaltdel:/sbin/shutdown -r now\n"
    "pf::powerfail:/sbin/p -f\npw::powerwait:/sbin/p -w\npo::powerokwait:/sbin/p -o\n"
    "not an entry\nnor:this\n";

TEST_F(InitTabFile, EditsKeepCommentsContinuationsAndEveryOtherLine) {
    write(HEAD + EDITED + TAIL);
    unsigned int rc = 0;
    GenRegInitTab table(registry().c_str(), &rc);
    ASSERT_EQ(rc, 0u);
    EXPECT_EQ(found("x1"), "x1:35:respawn:/bin/run -a   -b:c   -d # three lines");
    EXPECT_EQ(found("id"), "id:3:initdefault:");
    EXPECT_EQ(found("none"), "REG_NOT_FOUND");

    GenRegInitTabRecord changed = entry("on", "2", "off", "/bin/once a:b", " now off");
    GenRegInitTabRecord key = entry("on", nullptr, nullptr, nullptr);
    EXPECT_EQ(table.Change(ID, &key, &changed), 0u);
    EXPECT_EQ(table.Change(ID, &key, &changed), REG_UNCHANGED);
    GenRegInitTabRecord added = entry("zz", "6", "wait", "/etc/rc 6");
    EXPECT_EQ(table.Add(ID, &added), 0u);
    EXPECT_EQ(table.Add(ID, &added), REG_DUPLICATE);
    EXPECT_EQ(read(), HEAD + "on:2:off:/bin/once a:b # now off\n" + TAIL + "zz:6:wait:/etc/rc 6\n");
    EXPECT_EQ(found("on"), "on:2:off:/bin/once a:b # now off");

    // A continued entry goes or is replaced with all its lines.
    key = entry("x1", nullptr, nullptr, nullptr);
    EXPECT_EQ(table.Delete(ID, &key), 0u);
    key = entry("on", nullptr, nullptr, nullptr);
    EXPECT_EQ(table.Delete(ID, &key), 0u);
    key = entry("zz", nullptr, nullptr, nullptr);
    EXPECT_EQ(table.Delete(ID, &key), 0u);
    EXPECT_EQ(read(), HEAD.substr(0, HEAD.find("x1:")) + TAIL);
}

TEST_F(InitTabFile, AnUpdateThatWouldNotReadBackIsRefused) {
    write(HEAD + EDITED);
    unsigned int rc = 0;
    GenRegInitTab table(registry().c_str(), &rc);
    for (const char* const command : {"/bin/a\nplanted:3:once:/bin/b", "/bin/a#b", "/bin/a  ", "/bin/a\\"}) {
        GenRegInitTabRecord record = entry("zz", "2", "once", command);
        EXPECT_EQ(table.Add(ID, &record), REG_VERIFY_FAILED) << command;
        GenRegInitTabRecord key = entry("bb", nullptr, nullptr, nullptr);
        record.id = const_cast<char*>("bb");
        EXPECT_EQ(table.Change(ID, &key, &record), REG_VERIFY_FAILED) << command;
    }
    GenRegInitTabRecord silent = entry("zz", "2", "once", "/bin/a", "");
    silent.comment = nullptr;  // is written as an empty one
    EXPECT_EQ(table.Add(ID, &silent), REG_VERIFY_FAILED);
    GenRegInitTabRecord idle = entry("zz", "2", "once", "", "c");  // whose command reads back as the blank before "#"
    EXPECT_EQ(table.Add(ID, &idle), REG_VERIFY_FAILED);
    EXPECT_EQ(read(), HEAD + EDITED);
}

TEST_F(InitTabFile, TheTextBeforeTheColonJudgesALineAsParsingDoes) {
    Dice dice(409);
    using namespace std::string_literals;
    const std::vector<std::string> pieces = {
        "a",  "b",  "ab",   " ",  ":",  ":",   ":1:once:",     "#",        "#c", "\n",
        "\n", "\n", "\\\n", "\\", "\r", "a:1", "a:1:once:a\n", "b:2:off:", "\0"s};
    const std::vector<std::string> keys = {"a", "b", "ab", "", " a", "a#", "a\\", "a:1"};
    const std::vector<std::string> tails = {"", "", "a", "a\\\n"};  // the last is continued by nothing
    int found = 0;
    for (int round = 0; round < 4000; ++round) {
        const std::string text = dice.join(pieces, 14) + dice.oneOf(tails);
        const std::string id = dice.oneOf(keys);
        GenRegInitTabRecord key = entry(id.c_str(), "1", "once", "a", dice.below(3) == 0 ? "c" : nullptr);
        key.flags &= ~(dice.below(4) == 0 ? INITTAB_HAS_ENTRY : 0);
        const unsigned long mask = dice.below(16);
        const bool deletes = round % 20 == 0;
        write(text);
        const std::string fast = answersOf<GenRegInitTab>(false, registry(), 0, mask, key, deletes, describe);
        const std::string left = read();
        write(text);
        ASSERT_EQ(fast, answersOf<GenRegInitTab>(true, registry(), 0, mask, key, deletes, describe)) << text;
        ASSERT_EQ(left, read()) << text;
        found += fast[0] == '0' ? 1 : 0;
    }
    EXPECT_GT(found, 100);
}

TEST_F(InitTabFile, TheFileIsNamedLaterOrAtOnce) {
    GenRegInitTab table;
    EXPECT_TRUE(table.isFeatureSet(REG_FEATURE_DEFERRED_COMMIT));
    EXPECT_TRUE(table.isFeatureSet(REG_FEATURE_LINE_CONTINUATION));
    EXPECT_FALSE(table.isFeatureSet(REG_FEATURE_ALLOW_DUPLICATES));
    EXPECT_EQ(table.CheckFuncPtrs(), 0u);
    GenRegInitTabRecord record = entry("a", "2", "once", "/bin/a");
    EXPECT_EQ(table.Add(ID, &record), REG_LOCK_FAILED);
    EXPECT_EQ(table.setPaths(nullptr), REG_EMPTY_ARGUMENT);
    EXPECT_EQ(table.setPaths(std::string(1018, 'p').c_str()), REG_PATH_TOO_LONG);
    EXPECT_EQ(table.setPaths(registry().c_str()), 0u);
    EXPECT_EQ(table.Add(ID, &record), 0u);
    EXPECT_EQ(read(), "a:2:once:/bin/a\n");
    unsigned int rc = 0;
    GenRegInitTab unnamed("", &rc);
    EXPECT_EQ(rc, REG_EMPTY_ARGUMENT);
}

}  // namespace
