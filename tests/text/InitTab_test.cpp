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

std::string formatted(const GenRegInitTabRecord& record) {
    return formattedLine<GenRegInitTab>(record, "~");
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

// With its newline a line of the file has 2,047 bytes at most.
TEST(InitTabLine, EndsWithinItsBuffer) {
    const std::string head = "x1:2:once:";
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

using InitTabFile = SchemaFile;

TEST_F(InitTabFile, AnUpdateThatWouldNotReadBackIsRefused) {
    const std::string before = "bb:2:boot:/bin/b\n";
    content(before);
    GenRegInitTab table;  // the file is named later
    GenRegInitTabRecord unnamed = entry("zz", "6", "wait", "/etc/rc 6");
    EXPECT_EQ(table.Add(ID, &unnamed), REG_LOCK_FAILED);
    ASSERT_EQ(table.setPaths(registry().c_str()), 0u);
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
    EXPECT_EQ(content(), before);
}

}  // namespace
