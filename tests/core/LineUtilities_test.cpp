// Reading, writing and splitting lines.
#include "support/TextRegistry.h"

namespace {

class LinesTest : public Scratch {
protected:
    // Raw and logical lines, each in brackets, and the code after the last.
    [[nodiscard]] std::string readAll(const std::string& text, unsigned long size, bool joined) const {
        std::FILE* const stream = std::fopen(write("text", text).c_str(), "r");
        std::string all;
        std::vector<char> raw(size, 'r');
        std::vector<char> line(size, 'l');
        unsigned int rc = 0;
        while (GenRegReadLine(raw.data(), line.data(), size, stream, &rc, joined) == raw.data()) {
            all += "[" + std::string(raw.data()) + "|" + line.data() + "]";
            if (rc != 0) {
                all += genregCodeName(rc);
            }
        }
        std::fclose(stream);
        return rc == REG_END_OF_INPUT ? all : all + " ends with " + genregCodeName(rc);
    }
};

TEST_F(LinesTest, ContinuationsAreJoinedWhenAskedFor) {
    const struct {
        const char* text;
        unsigned long size;
        bool joined;
        const char* expected;
    } cases[] = {
        {"", 100, true, ""},
        {"a=b\\\nc\n", 100, true, "[a=b\\\nc\n|a=bc\n]"},
        {"a=b\\\nc\n", 100, false, "[a=b\\\n|a=b\\\n][c\n|c\n]"},
        {"a\\\\\nb", 100, true, "[a\\\\\nb|a\\b]"},          // the second backslash is judged afresh
        {"a\\b\\", 100, true, "[a\\b\\|a\\b\\]"},            // and one before the end stays
        {"a\\\n", 100, true, "[a\\\n|a]REG_END_OF_INPUT"},   // an unfinished continuation
        {"abcdef\n", 4, true, "[abc|abc][def|def][\n|\n]"},  // a line longer than the buffer comes in pieces
        {"ab\\\ncdef\n", 6, true, "[ab\\\nc|abc][def\n|def\n]"},
    };
    for (const auto& sample : cases) {
        EXPECT_EQ(readAll(sample.text, sample.size, sample.joined), sample.expected) << sample.text;
    }
}

TEST_F(LinesTest, LongLinesAreFoldedAndReadBackWhole) {
    const auto folded = [&](std::string line, unsigned long width) {
        std::FILE* const stream = std::fopen(path("folded").c_str(), "w");
        EXPECT_EQ(GenRegWriteLine(line.data(), width, stream), 0u);
        std::fclose(stream);
        return read("folded");
    };
    EXPECT_EQ(folded("abcdefg", 4), "abc\\\nde\\\nfg\\\n");
    EXPECT_EQ(folded("ab\n", 4), "ab\n\\\n");
    EXPECT_EQ(folded("abc", 10), "abc");
    EXPECT_EQ(folded("abcd", 3), "ab\\\nc\\\nd\\\n");
    const std::string text = folded(std::string(10'000, 'x') + "\n", 80);
    EXPECT_EQ(readAll(text, 40'000, true), "[" + text + "|" + std::string(10'000, 'x') + "\n]");
}

}  // namespace
