// The inittab form, on lines and on files.
#include <genreg/GenRegInitTab.h>

#include "SchemaFile.h"

namespace {

constexpr unsigned long ID = INITTAB_MATCH_ID;
constexpr unsigned long EVERYTHING = ~0UL;

GenRegInitTabRecord entry(const char* id, const char* runLevel = nullptr, const char* action = nullptr,
                          const char* command = nullptr, const char* comment = nullptr) {
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
    return parsedLine<GenRegInitTab>(line, describe);
}

std::string formatted(const GenRegInitTabRecord& record) {
    return formattedLine<GenRegInitTab>(record, "~");
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
    EXPECT_EQ(refusal(0, {}), REG_EMPTY_RECORD);
    EXPECT_EQ(refusal(EVERYTHING, entry("a", nullptr, "c", "d")), 0u);  // run levels are not asked for
    EXPECT_EQ(refusal(INITTAB_MATCH_ID, entry(nullptr, "b", "c", "d")), REG_NAME_MISSING);
    EXPECT_EQ(refusal(INITTAB_MATCH_ACTION, entry("a", "b", nullptr, "d")), REG_NAME_MISSING);
    EXPECT_EQ(refusal(INITTAB_MATCH_COMMAND, entry("a", "b", "c", nullptr)), REG_NAME_MISSING);
}

class InitTabFile : public SchemaFile {
protected:
    static std::string found(GenRegInitTab& table, const char* id) {
        GenRegInitTabRecord key = entry(id);
        GenRegInitTabRecord record;
        const unsigned int rc = table.Get(ID, &key, &record);
        return rc != 0 ? genregCodeName(rc) : formatted(record);
    }
    static unsigned int remove(GenRegInitTab& table, const char* id) {
        GenRegInitTabRecord key = entry(id);
        return table.Delete(ID, &key);
    }

    const std::string head_ =
        "# Run levels and what they start.\n"
        ":was: rc\\\n 0 wait /etc/rc0\n"
        "id:3:initdefault:\nsi::sysinit:/etc/rc.sysinit\nbb:2:boot:/bin/b\n"
        "x1:35:respawn:/bin/run -a \\\n  -b:c \\\n  -d   # three lines\n";
    const std::string edited_ = "on:2:once:/bin/once#said\n";
    const std::string tail_ =
        "\n   \nof:4:off:/bin/never\nca::ctrlaltdel:/sbin/shutdown -r now\nnot an entry\nnor:this\n";
};

TEST_F(InitTabFile, EditsKeepCommentsContinuationsAndEveryOtherLine) {
    content(head_ + edited_ + tail_);
    GenRegInitTab table;  // the file is named later
    GenRegInitTabRecord added = entry("zz", "6", "wait", "/etc/rc 6");
    EXPECT_EQ(table.Add(ID, &added), REG_LOCK_FAILED);
    ASSERT_EQ(table.setPaths(registry().c_str()), 0u);
    EXPECT_EQ(found(table, "x1"), "x1:35:respawn:/bin/run -a   -b:c   -d # three lines");
    EXPECT_EQ(found(table, "id"), "id:3:initdefault:");
    EXPECT_EQ(found(table, "none"), "REG_NOT_FOUND");

    GenRegInitTabRecord changed = entry("on", "2", "off", "/bin/once a:b", " now off");
    GenRegInitTabRecord key = entry("on");
    EXPECT_EQ(table.Change(ID, &key, &changed), 0u);
    EXPECT_EQ(table.Change(ID, &key, &changed), REG_UNCHANGED);
    EXPECT_EQ(table.Add(ID, &added), 0u);
    EXPECT_EQ(table.Add(ID, &added), REG_DUPLICATE);
    EXPECT_EQ(content(), head_ + "on:2:off:/bin/once a:b # now off\n" + tail_ + "zz:6:wait:/etc/rc 6\n");
    EXPECT_EQ(found(table, "on"), "on:2:off:/bin/once a:b # now off");

    // A continued entry goes with all its lines.
    for (const char* id : {"x1", "on", "zz"}) {
        EXPECT_EQ(remove(table, id), 0u);
    }
    EXPECT_EQ(content(), head_.substr(0, head_.find("x1:")) + tail_);
}

TEST_F(InitTabFile, AnUpdateThatWouldNotReadBackIsRefused) {
    content(head_ + edited_);
    unsigned int rc = 0;
    GenRegInitTab table(registry().c_str(), &rc);
    for (const char* const command : {"/bin/a\nplanted:3:once:/bin/b", "/bin/a#b", "/bin/a  ", "/bin/a\\"}) {
        GenRegInitTabRecord record = entry("zz", "2", "once", command);
        EXPECT_EQ(table.Add(ID, &record), REG_VERIFY_FAILED) << command;
        GenRegInitTabRecord key = entry("bb");
        record.id = const_cast<char*>("bb");
        EXPECT_EQ(table.Change(ID, &key, &record), REG_VERIFY_FAILED) << command;
    }
    GenRegInitTabRecord silent = entry("zz", "2", "once", "/bin/a", "");
    silent.comment = nullptr;  // is written as an empty one
    EXPECT_EQ(table.Add(ID, &silent), REG_VERIFY_FAILED);
    GenRegInitTabRecord idle = entry("zz", "2", "once", "", "c");  // whose command reads back as the blank before "#"
    EXPECT_EQ(table.Add(ID, &idle), REG_VERIFY_FAILED);
    EXPECT_EQ(content(), head_ + edited_);
}

TEST_F(InitTabFile, TheTextBeforeTheColonJudgesALineAsParsingDoes) {
    using namespace std::string_literals;
    expectJudgedAsParsed<GenRegInitTab, GenRegInitTabRecord>(
        {409,
         {"a", "b", "ab", " ", ":", ":", ":1:once:", "#", "#c", "\n", "\n", "\n", "\\\n", "\\", "\r", "a:1",
          "a:1:once:a\n", "b:2:off:", "\0"s},
         0,
         [](Dice& dice) {
             constexpr const char* IDS[] = {"a", "b", "ab", "", " a", "a#", "a\\", "a:1"};
             GenRegInitTabRecord key = entry(dice.oneOf(IDS), "1", "once", "a", dice.below(3) == 0 ? "c" : nullptr);
             key.flags &= ~(dice.below(4) == 0 ? INITTAB_HAS_ENTRY : 0);
             return key;
         },
         describe});
}

}  // namespace
