// Changes that keep the line: what stands in the file after a client looked a record up, changed a part of it and wrote
// it back.
#include <genreg/Cause.h>
#include <genreg/GenRegInitTab.h>
#include <genreg/GenRegServices.h>
#include <netinet/in.h>

#include <functional>

#include "SchemaFile.h"
#include "support/TextRegistry.h"

namespace {

char* text(const char* of) {
    return const_cast<char*>(of);
}

template <typename Record>
struct Rewriting {
    std::string line;
    std::function<void(Record&)> edit;
    std::string expected;  // the line, or a code
};

class KeepLines : public SchemaFile {
protected:
    // What becomes of a line among others that some object cannot read.
    template <typename Schema, typename Record>
    void expectRewritten(unsigned long mask, const std::vector<Rewriting<Record>>& cases) const {
        for (const Rewriting<Record>& c : cases) {
            SCOPED_TRACE(c.line + c.expected);
            content("# \xe9\n" + c.line + "# end\n");
            const bool refused = c.expected.starts_with("REG_");
            const unsigned int rc = edited<Schema, Record>(mask, c.edit);
            GenRegCause cause = {};
            genregLastCause(&cause);
            const unsigned int unchanged = c.expected == c.line ? REG_UNCHANGED : 0U;
            EXPECT_EQ(rc, refused ? REG_FORMAT_FAILED : unchanged);
            EXPECT_EQ(content(), "# \xe9\n" + (refused ? c.line : c.expected) + "# end\n");
            EXPECT_TRUE(!refused || genregCodeName(cause.code) == c.expected) << genregCodeName(cause.code);
        }
    }

    // The obvious way of a client: the record is read, found by its place, edited and written.
    template <typename Schema, typename Record>
    [[nodiscard]] unsigned int edited(unsigned long mask, const std::function<void(Record&)>& edit) const {
        unsigned int rc = 0;
        Schema schema(registry().c_str(), &rc);
        EXPECT_EQ(schema.KeepLines(true), 0U);
        Record record = {};
        EXPECT_EQ(schema.OpenScan(), 0U);
        EXPECT_EQ(schema.GetNext(0, nullptr, &record) | schema.GetNext(0, nullptr, &record), 0U);
        EXPECT_EQ(schema.CloseScan(), 0U);
        Record key;
        std::memcpy(static_cast<void*>(&key), &record, sizeof key);
        edit(record);
        return schema.Change(mask, &key, &record);
    }
};

TEST_F(KeepLines, OnlyThePartOfAPairThatDiffersIsReplaced) {
    using Record = GenRegVarValRecord;
    const auto value = [](const char* to) { return [to](Record& record) { record.value = text(to); }; };
    const auto comment = [](const char* to) {
        return [to](Record& record) {
            record.comment = text(to);
            record.contains = VARVAL_HAS_PAIR | (to != nullptr ? VARVAL_HAS_COMMENT : 0);
        };
    };
    const std::string longest(2042, 'v');
    const std::string tooLong(2043, 'v');
    expectRewritten<GenRegVarVal, Record>(
        VARVAL_MATCH_VARIABLE,
        {
            {"\ta \t=\t 1  \t #c\xe9\t \n", value("\"x  y\""), "\ta \t=\t \"x  y\"  \t #c\xe9\t \n"},
            {"a=1#c\r\n", value("2"), "a=2#c\r\n"},
            {"a = \"x  y\"  junk # c\n", comment(" d"), "a = \"x  y\"  junk # d\n"},
            {"a = \"x  y\"  junk # c\n", value("2"), "a = 2 # c\n"},
            {"a =  # c\n", value("1"), "a = 1 # c\n"},
            {"a =# c\n", value("1"), "a =1 # c\n"},
            {"a =  \r\n", value("1"), "a =  1\r\n"},
            // Inside quotes all blanks but one are the value's.
            {"a\"=   \"x\n", value(" z"), "a\"=  z\n"},
            {"a = 1  # c \r\n", comment(nullptr), "a = 1\r\n"},
            {"a =\n", comment("c"), "a = # c\n"},
            {"a=1#c\n", comment("d"), "a=1 # d\n"},
            // The blank behind the sign is layout; a cleaned comment is the one that was cleaned.
            {"a = 1  #c\n", comment(" c"), "a = 1  #c\n"},
            {"a = 1  #   c\xc3\xa9\r\n", comment("   c.."), "a = 1  #   c\xc3\xa9\r\n"},
            {"a = 1 # c\n", [](Record& record) { record.variable = text("two words"); }, "two words = 1 # c\n"},
            {"a = 1\n", value(longest.c_str()), "a = " + longest + "\n"},
            {"a = 1\n", value(tooLong.c_str()), "REG_LINE_TOO_LONG"},
            {"a = 1\n", value("x#y"), "REG_RECORD_REFUSED"},
            {"a = 1\n", value("\"x\" y"), "REG_RECORD_REFUSED"},
            {"a = 1 # c\n", comment("c\nb = 2"), "REG_RECORD_REFUSED"},
            {"a = 1 # c\n", value(nullptr), "REG_VALUE_MISSING"},
        });
}

TEST_F(KeepLines, OnlyThePartOfAServiceThatDiffersIsReplaced) {
    using Record = GenRegServicesRecord;
    const auto aliases = [](const std::vector<const char*>& words) {
        return [words](Record& record) {
            std::fill(std::begin(record.aliasTable), std::end(record.aliasTable), nullptr);
            std::transform(words.begin(), words.end(), record.aliasTable, text);
            record.aliases = words.empty() ? nullptr : record.aliasTable;
        };
    };
    const auto comment = [](const char* to) {
        return [to](Record& record) {
            record.comment = text(to);
            record.flags = SERVICES_HAS_NAME | (to != nullptr ? SERVICES_HAS_COMMENT : 0);
        };
    };
    const auto port = [](unsigned short to) { return [to](Record& record) { record.port = htons(to); }; };
    const auto protocol = [](const char* to) { return [to](Record& record) { record.protocol = text(to); }; };
    const std::string tooLong(2046, 'p');
    const std::string line = " a 1/tcp\tx  y\t\tz   #c\xe9 \n";
    expectRewritten<GenRegServices, Record>(
        SERVICES_MATCH_NAME, {
                                 {line, port(50000), " a 50000/tcp\tx  y\t\tz   #c\xe9 \n"},
                                 {line, aliases({"x", "y", "z"}), line},
                                 {line, aliases({"x", "n", "z"}), " a 1/tcp\tx  n\t\tz   #c\xe9 \n"},
                                 {line, aliases({"x", "y", "z", "n", "m"}), " a 1/tcp\tx  y\t\tz n m   #c\xe9 \n"},
                                 {line, aliases({"x", "n", "y", "z"}), " a 1/tcp\tx n  y\t\tz   #c\xe9 \n"},
                                 {line, aliases({"y", "z"}), " a 1/tcp\ty\t\tz   #c\xe9 \n"},
                                 {line, aliases({"x", "z"}), " a 1/tcp\tx\t\tz   #c\xe9 \n"},
                                 {line, aliases({}), " a 1/tcp   #c\xe9 \n"},
                                 {line, comment(nullptr), " a 1/tcp\tx  y\t\tz\n"},
                                 {"a 1/tcp\r\n", aliases({"n", "m"}), "a 1/tcp\tn m\r\n"},
                                 {"a 1/tcp\n", comment("c"), "a 1/tcp\t# c\n"},
                                 // What no alias may be stays, and a port that cannot be written stays as it is.
                                 {"a 1/dccp  word # c\n", port(2), "a 2/dccp  word # c\n"},
                                 {"a 0/tcp  x # c\n", comment("d"), "a 0/tcp  x # d\n"},
                                 {"a 1/dccp  word\n", aliases({"x"}), "REG_RECORD_REFUSED"},
                                 {"a 1/dccp  word\n", protocol("tcp"), "REG_RECORD_REFUSED"},
                                 {"a 1/tcp\n", port(0), "REG_FORMAT_PORT_MISSING"},
                                 {"a 1/tcp\n", aliases({"two words"}), "REG_RECORD_REFUSED"},
                                 {"a 1/tcp\n", protocol(tooLong.c_str()), "REG_LINE_TOO_LONG"},
                             });
}

TEST_F(KeepLines, OnlyThePartOfAnEntryThatDiffersIsReplaced) {
    using Record = GenRegInitTabRecord;
    const auto command = [](const char* to) { return [to](Record& record) { record.command = text(to); }; };
    const auto comment = [](const char* to) {
        return [to](Record& record) {
            record.comment = text(to);
            record.flags = INITTAB_HAS_ENTRY | (to != nullptr ? INITTAB_HAS_COMMENT : 0);
        };
    };
    const std::string tooLong(2041, 'y');
    const std::string longest(2040, 'y');
    const std::string line = "a:1:\\\nonce:/bin/\\\nx  \\\n \\\n#c\xe9 \n";
    expectRewritten<GenRegInitTab, Record>(
        INITTAB_MATCH_ID,
        {
            {line, [](Record& record) { record.action = text("off"); }, "a:1:\\\noff:/bin/\\\nx  \\\n \\\n#c\xe9 \n"},
            {line, command("/bin/x:y"), "a:1:\\\nonce:/bin/\\\nx:y  \\\n \\\n#c\xe9 \n"},
            {line, command("/sbin/x"), "a:1:\\\nonce:/sbin/\\\nx  \\\n \\\n#c\xe9 \n"},
            {line, comment("d"), "a:1:\\\nonce:/bin/\\\nx  \\\n \\\n#d\n"},
            {line, comment(nullptr), "a:1:\\\nonce:/bin/\\\nx\n"},
            {line, command(""), "a:1:\\\nonce:#c\xe9 \n"},
            {"a:1:2:x\n", comment(" c"), "a:1:2:x # c\n"},
            {"a:1:2:x #c\n", comment("c"), "a:1:2:x #c\n"},
            {"a:1:2:x#c\n", comment("d"), "a:1:2:x #d\n"},
            {"a:1:2:x\n", [](Record& record) { record.runLevel = text(""); }, "a::2:x\n"},
            {"a:1:2:x\n", command("y\\"), "REG_RECORD_REFUSED"},
            {"a:1:2:x\n", comment("a\nb"), "REG_RECORD_REFUSED"},
            {"a:1:2:x\n", command(tooLong.c_str()), "REG_LINE_TOO_LONG"},
            // A text that fits, in a line that with its continuations does not.
            {"a:1:2:x\n", command(longest.c_str()), "a:1:2:" + longest + "\n"},
            {"a:1:\\\n2:x\n", command(longest.c_str()), "REG_LINE_TOO_LONG"},
            {"a:1:2:x\n", command(nullptr), "REG_NAME_MISSING"},
        });
}

TEST_F(KeepLines, CommentsAndAliasesArePartsOfARecord) {
    content("a 1/tcp x # c\nb 2/tcp # d\n");
    unsigned int rc = 0;
    GenRegServices schema(registry().c_str(), &rc);
    GenRegServicesRecord key = {};
    GenRegServicesRecord record = {};
    key.flags = SERVICES_HAS_NAME;
    key.name = text("a");
    // In the file, then as the same object sees it without the call.
    ASSERT_EQ(schema.Get(SERVICES_MATCH_NAME, &key, &record), 0U);
    record.comment = text("new");
    EXPECT_EQ(schema.Change(SERVICES_MATCH_NAME, &key, &record), REG_UNCHANGED);
    EXPECT_EQ(schema.KeepLines(true), 0U);
    EXPECT_EQ(schema.Change(SERVICES_MATCH_NAME, &key, &record), 0U);
    record.aliases = nullptr;
    EXPECT_EQ(schema.Change(SERVICES_MATCH_NAME, &key, &record), 0U);
    EXPECT_EQ(schema.Change(SERVICES_MATCH_NAME, &key, &record), REG_UNCHANGED);
    EXPECT_EQ(content(), "a 1/tcp # new\nb 2/tcp # d\n");
    key.name = record.name = text("n");
    EXPECT_EQ(schema.Add(SERVICES_MATCH_NAME, &record), 0U);
    record.comment = text(" \xc3\xa9");
    key.name = record.name = text("m");
    EXPECT_EQ(schema.Add(SERVICES_MATCH_NAME, &record), 0U);
    EXPECT_EQ(schema.Get(SERVICES_MATCH_NAME, &key, &record), 0U);
    EXPECT_STREQ(record.comment, " \xc3\xa9");
    EXPECT_EQ(content(), "a 1/tcp # new\nb 2/tcp # d\nn\t\t1/tcp\t\t\t\t# new\nm\t\t1/tcp\t\t\t\t# \xc3\xa9\n");
    EXPECT_EQ(schema.KeepLines(false), 0U);
    EXPECT_EQ(schema.Get(SERVICES_MATCH_NAME, &key, &record), 0U);
    EXPECT_STREQ(record.comment, " ..");
    record.port = htons(2);
    EXPECT_EQ(schema.Change(SERVICES_MATCH_NAME, &key, &record), 0U);
    EXPECT_TRUE(content().ends_with("m\t\t2/tcp\t\t\t\t#  ..\n")) << content();
}

TEST_F(KeepLines, EveryLineThatMatchesKeepsItsOwnLayout) {
    content(std::string("a=1\0 \xe9\n a =\t1\na = 2\nb = 1\n", 26));
    TextRegistry file(registry());
    ASSERT_EQ(file.KeepLines(true), 0U);
    EXPECT_EQ(file.change("a", "3"), 0U);
    EXPECT_EQ(content(), std::string("a=3\0 \xe9\n a =\t3\na = 3\nb = 1\n", 26)) << "what a NUL byte hides stays too";
}

TEST_F(KeepLines, ASlotOfTheClientStays) {
    content("a = 1 # c\n");
    TextRegistry file(registry());
    // One that finds what the form's own would not, so that no line may be passed over.
    file.matchRecord = [](unsigned long, void* record, void*) {
        return static_cast<GenRegVarValRecord*>(record)->variable != nullptr ? 1U : 0U;
    };
    const auto own = file.matchRecord;
    EXPECT_EQ(file.KeepLines(true), 0U);
    EXPECT_EQ(file.matchRecord, own);
    GenRegVarValRecord found;
    EXPECT_EQ(file.get("other", &found), 0U);
    EXPECT_EQ(file.formatLine, GenRegVarVal::RewriteLine);
    EXPECT_EQ(file.KeepLines(false), 0U);
    EXPECT_EQ(file.formatLine, GenRegVarVal::FormatLine);
    EXPECT_EQ(file.matchRecord, own);
    GenRegText bare;
    EXPECT_EQ(bare.KeepLines(true), REG_NO_FORMAT_LINE);
}

TEST_F(KeepLines, TheVerificationTellsADamagedComment) {
    for (const bool keep : {false, true}) {
        content("a = 1 # c\nb = 2\n");
        TextRegistry file(registry());
        ASSERT_EQ(file.KeepLines(keep), 0U);
        GenRegVarValRecord record;
        ASSERT_EQ(file.get("a", &record), 0U);
        file.formatLine = [](void* wanted, char* line) {
            const unsigned int rc = GenRegVarVal::RewriteLine(wanted, line);
            std::strchr(line, '#')[2] = 'x';
            return rc;
        };
        record.value = text("3");
        GenRegVarValRecord key = TextRegistry::pair("a", nullptr);
        EXPECT_EQ(file.Change(VARVAL_MATCH_VARIABLE, &key, &record), keep ? REG_VERIFY_FAILED : 0U);
        EXPECT_EQ(content(), keep ? "a = 1 # c\nb = 2\n" : "a = 3 # x\nb = 2\n");
    }
}

TEST_F(KeepLines, ALineOfAnotherFormIsNotWrittenOver) {
    const auto over = [](GenRegFormatLine rewrite, void* record, std::string line) {
        line.resize(REG_LINE_SIZE);
        return std::string(genregCodeName(rewrite(record, line.data())));
    };
    GenRegVarValRecord pair = TextRegistry::pair("a", "1");
    EXPECT_EQ(over(GenRegVarVal::RewriteLine, &pair, "no pair\n"), "REG_NO_EQUAL_SIGN");
    EXPECT_EQ(over(GenRegVarVal::RewriteLine, &pair, "# a comment\n"), "REG_NO_EQUAL_SIGN");
    GenRegServicesRecord service = {};
    EXPECT_EQ(over(GenRegServices::RewriteLine, &service, "name\n"), "REG_SERVICE_WITHOUT_PORT");
    GenRegInitTabRecord entry = {};
    entry.flags = INITTAB_HAS_ENTRY;
    entry.id = entry.runLevel = entry.action = entry.command = text("a");
    EXPECT_EQ(over(GenRegInitTab::RewriteLine, &entry, "a:b\n"), "REG_INITTAB_NO_ACTION");
    for (const GenRegFormatLine rewrite :
         {GenRegVarVal::RewriteLine, GenRegServices::RewriteLine, GenRegInitTab::RewriteLine}) {
        EXPECT_EQ(over(rewrite, nullptr, ""), "REG_EMPTY_ARGUMENT");
    }
}

}  // namespace
