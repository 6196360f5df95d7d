// Binary registries in every layout, damaged ones, and what is no text; lines that hide bytes.
#include <genreg/Checksum.h>

#include <algorithm>

#include "Tool.h"

namespace {

struct Layout {
    bool header;
    bool bigEndian;
};
constexpr Layout LAYOUTS[] = {{false, false}, {true, false}, {false, true}, {true, true}};

// Frames of native lengths in another layout.
std::string laidOut(std::string frames, const Layout& layout) {
    for (std::size_t at = 0; layout.bigEndian && at < frames.size();) {
        unsigned int length = 0;
        frames.copy(reinterpret_cast<char*>(&length), sizeof length, at);
        std::reverse(frames.begin() + static_cast<std::ptrdiff_t>(at),
                     frames.begin() + static_cast<std::ptrdiff_t>(at) + 4);
        at += sizeof length + length;
    }
    std::string header;
    if (layout.header) {
        header = std::to_string(static_cast<int>(sqlzChecksumXOR(frames.data(), frames.size())));
        header.resize(32);
    }
    return header + frames;
}

std::string variable(std::string name, int value) {
    name.resize(16);
    return frame(name + little(static_cast<unsigned long>(value), 4) + std::string(16, '\0'));
}

std::string instanceFrame(const std::string& name) {
    return frame(RecordImage(1, 0x27).text("RVN").version().text(name).number(1).end());
}

class Layouts : public ToolTest {
protected:
    // The exit status; what was said is kept.
    int run(const Words& words) {
        last_ = genreg("", words);
        return last_.status;
    }
    [[nodiscard]] const Result& last() const { return last_; }
    // Every command that takes a file apart finds it in "f", and says so in the same words.
    void expectDamage(const std::string& said) {
        std::string first;
        for (const Words& words :
             std::vector<Words>{{"status", "f"}, {"dump", "f"}, {"dump", "f", "--raw"}, {"diff", "f", "f"}}) {
            EXPECT_EQ(run(words), 7) << words[0];
            const std::string message = last().err.substr(0, last().err.find('\n'));
            EXPECT_NE(message.find(said), std::string::npos) << message;
            first = first.empty() ? message : first;
            EXPECT_EQ(message, first) << words[0];
        }
    }

private:
    Result last_;
};

TEST_F(Layouts, EveryCommandReadsAndKeepsThem) {
    for (const Layout& layout : LAYOUTS) {
        SCOPED_TRACE(std::to_string(layout.header) + std::to_string(layout.bigEndian));
        write("g", laidOut(instanceFrame("inst1") + instanceFrame("inst2"), layout));
        write("same", laidOut(instanceFrame("inst1") + instanceFrame("inst2"), {}));
        EXPECT_EQ(run({"status", "g", "--json"}), 0) << last().err;
        EXPECT_EQ(objects(last().out).at(0)["records"]["instance"], 2);
        EXPECT_EQ(run({"diff", "same", "g"}), 0) << last().out;
        EXPECT_EQ(run({"instance", "set", "RVN", "9.7.0.2", "inst2", "startAtBoot=0", "--registry", "g", "--diff"}), 0)
            << last().err;
        EXPECT_NE(last().out.find("startAtBoot: 1 -> 0"), std::string::npos) << last().out;
        EXPECT_EQ(run({"dump", "g"}), 0) << last().err;
        EXPECT_EQ(last().out.find("checksum header") != std::string::npos, layout.header);
        EXPECT_EQ(last().out.find("big-endian") != std::string::npos, layout.bigEndian);
        EXPECT_EQ(run({"diff", "same", "g"}), 1);

        write("v", laidOut(variable("x", 1) + variable("y", 2), layout));
        EXPECT_EQ(run({"binvar", "set", "v", "y", "7"}), 0) << last().err;
        EXPECT_EQ(read("v"), laidOut(variable("x", 1) + variable("y", 7), layout));
        EXPECT_EQ(run({"status", "v"}), 0);
        EXPECT_NE(last().out.find("2 binary variables"), std::string::npos) << last().out;
    }
    write("v2", variable("x", 1) + variable("y", 8));
    EXPECT_EQ(run({"diff", "v", "v2"}), 1);
    EXPECT_NE(last().out.find("-y = 7\n+y = 8\n"), std::string::npos) << last().out;
    EXPECT_EQ(run({"diff", "v", "g"}), 1) << "records of different kinds";
}

TEST_F(Layouts, DamageIsToldByEveryCommand) {
    // The length of the version lies, and nothing else of the file is sound.
    std::string lies = instanceFrame("inst1");
    lies[4 + 20 + 6] = '\xc8';
    for (const std::string& bytes : {lies, instanceFrame("inst1").substr(0, 40), variable("x", 1) + "\x24"}) {
        write("f", bytes);
        expectDamage("damaged at offset");
    }
    const std::string sound = laidOut(instanceFrame("inst1") + instanceFrame("inst2"), {true, false});
    const std::string sum = sound.c_str();
    write("f", sound.substr(0, 32) + instanceFrame("inst1"));
    expectDamage("the checksum header says " + sum);
    EXPECT_EQ(run({"instance", "list", "--registry", "f"}), 7);
    EXPECT_NE(last().err.find("checksum"), std::string::npos) << last().err;
}

TEST_F(Layouts, AnEditorOfLinesLeavesRecordsAlone) {
    for (const std::string& bytes :
         {instanceFrame("inst1"), laidOut(instanceFrame("a"), {true, true}), variable("x", 1)}) {
        write("f", bytes);
        for (const std::vector<std::string>& words :
             std::vector<std::vector<std::string>>{{"varval", "add", "f", "a", "1"},
                                                   {"varval", "add", "f", "a", "1", "--dry-run"},
                                                   {"services", "add", "f", "a", "1/tcp"},
                                                   {"inittab", "add", "f", "a", "1", "once", "x"}}) {
            EXPECT_EQ(run(words), 6) << words[0];
        }
        EXPECT_EQ(read("f"), bytes);
    }
    // A NUL byte further on is an accident in a text.
    write("f", std::string("# text\na = 1\nb = 2\0x\n", 21));
    EXPECT_EQ(run({"status", "f"}), 0);
    EXPECT_EQ(run({"varval", "add", "f", "c", "3"}), 0);
}

TEST_F(Layouts, BytesBehindANulAreNotDropped) {
    const struct {
        std::string bytes, group;
        std::vector<std::string> refused, taken;
    } cases[] = {
        {std::string("b = 2\0x\na = 1", 13), "varval", {"b", "3"}, {"a", "3"}},
        {std::string("b:2:\\\nc:d\0x\na:1:c:d", 19), "inittab", {"b", "3", "c", "d"}, {"a", "3", "c", "d"}},
    };
    for (const auto& c : cases) {
        write("f", c.bytes);
        std::vector<std::string> words{c.group, "set", "f"};
        words.insert(words.end(), c.refused.begin(), c.refused.end());
        EXPECT_EQ(run(words), 6) << c.group;
        EXPECT_NE(last().err.find("line 1 holds a NUL byte"), std::string::npos) << last().err;
        EXPECT_EQ(read("f"), c.bytes);
        words.resize(3);
        words.insert(words.end(), c.taken.begin(), c.taken.end());
        EXPECT_EQ(run(words), 0) << last().err;
        EXPECT_EQ(read("f").substr(0, c.bytes.rfind('\n')), c.bytes.substr(0, c.bytes.rfind('\n')));
    }
    EXPECT_EQ(objects(genreg("", {"inittab", "list", "f", "--json"}).out).at(1)["line"], 3)
        << "the first spans two lines";
}

TEST_F(Layouts, ARecordHoldsNoLineBreak) {
    EXPECT_EQ(run({"instance", "set", "RVN", "9.7.0.2", "x", "comment=a\nb", "--registry", "g"}), 6);
    EXPECT_EQ(run({"instance", "set", "RVN", "9.7.0.2", "x\ny", "--registry", "g"}), 6);
    EXPECT_EQ(names(), "");
}

}  // namespace
