// What an object that keeps the contents sees of changes, and when it reads.
#include <sys/stat.h>

#include "support/KeptContents.h"
#include "support/TextRegistry.h"

namespace {

class KeepContentsTest : public RegistryTest {
protected:
    static std::string value(TextRegistry& file, const char* variable) {
        GenRegVarValRecord record;
        const unsigned int rc = file.get(variable, &record);
        return rc == 0 ? record.value : genregCodeName(rc);
    }
    // The file is kept now, as far as it can be.
    static void ask(TextRegistry& file, const char* variable) {
        askUntilKept([&] { (void)value(file, variable); });
    }
};

TEST_F(KeepContentsTest, EveryWayToChangeTheFileIsSeenAtOnce) {
    write("reg", "a = 1\nb = 2\n");
    TextRegistry file{reg()};
    ASSERT_EQ(file.KeepContents(PLENTY), 0u);
    const auto expect = [&](const char* variable, const std::string& expected) {
        EXPECT_EQ(value(file, variable), expected);
        ask(file, variable);
        EXPECT_EQ(value(file, variable), expected);
    };
    expect("a", "1");
    TextRegistry other{reg()};
    ASSERT_EQ(other.change("a", "3"), 0u);
    expect("a", "3");
    ASSERT_EQ(file.change("a", "4"), 0u) << "the object's own";
    expect("a", "4");
    other.features = REG_FEATURE_ALLOW_DUPLICATES;
    ASSERT_EQ(other.add("c", "5"), 0u) << "in place";
    expect("c", "5");
    std::FILE* const stream = std::fopen(reg().c_str(), "r+");
    ASSERT_EQ(std::fputs("a = 6", stream) >= 0 && std::fclose(stream) == 0, true) << "as long as before";
    expect("a", "6");
    const auto written = std::filesystem::last_write_time(reg());
    std::FILE* const again = std::fopen(reg().c_str(), "r+");
    ASSERT_EQ(std::fputs("a = 5", again) >= 0 && std::fclose(again) == 0, true);
    std::filesystem::last_write_time(reg(), written);  // which leaves a time of its own
    expect("a", "5");
    write("other", "a = 7\n");
    ASSERT_EQ(::rename(reg().c_str(), path("away").c_str()), 0);
    EXPECT_EQ(value(file, "a"), genregCodeName(REG_OPEN_FAILED));
    ASSERT_EQ(::symlink("other", reg().c_str()), 0);
    expect("a", "7");
    EXPECT_EQ(std::string(file.regPath), path("other")) << "as without";
    ASSERT_EQ(::chmod(path("other").c_str(), 0600), 0);
    expect("a", "7");
    ASSERT_EQ(::unlink(path("other").c_str()), 0);
    EXPECT_EQ(value(file, "a"), genregCodeName(REG_OPEN_FAILED));
}

TEST_F(KeepContentsTest, ItAnswersFromMemoryUntilItIsToStop) {
    if (!KEEPS_CONTENTS) {
        GTEST_SKIP() << "no file system is known to be the machine's own";
    }
    write("reg", "# first\na = 1\nb c = \"2\"\nbroken\na = 3\nd = \\\ne = 5\nlast=4");
    Mapping mapping{reg()};
    TextRegistry file{reg()};
    ASSERT_EQ(file.KeepContents(PLENTY), 0u);
    ask(file, "a");
    if (!mapping.store(12, '9')) {
        GTEST_SKIP() << "this file system tells of a store through a mapping";
    }
    EXPECT_EQ(value(file, "a"), "1");
    for (const char* variable : {"b c", "last", "none"}) {
        TextRegistry plain{reg()};
        EXPECT_EQ(value(file, variable), value(plain, variable)) << variable;
    }
    // The index speaks for no lines that are told apart otherwise, and for no function but the schema's.
    file.features |= REG_FEATURE_LINE_CONTINUATION;
    EXPECT_EQ(value(file, "e"), genregCodeName(REG_NOT_FOUND));
    file.features &= ~REG_FEATURE_LINE_CONTINUATION;
    EXPECT_EQ(value(file, "e"), "5");
    const auto schemasMatch = file.matchRecord;
    file.matchRecord = [](unsigned long, void* record, void*) {
        return (static_cast<GenRegVarValRecord*>(record)->contains & VARVAL_HAS_PAIR) != 0 ? 1U : 0U;
    };
    EXPECT_EQ(value(file, "none"), "1");
    file.matchRecord = schemasMatch;
    // Where it reads all the same.
    file.features |= REG_FEATURE_GET_IN_SCAN;
    ASSERT_EQ(file.OpenScan(), 0u);
    EXPECT_EQ(value(file, "a"), "9");
    ASSERT_EQ(file.CloseScan(), 0u);
    EXPECT_EQ(value(file, "a"), "1");
    ASSERT_EQ(file.KeepContents(0), 0u);
    EXPECT_EQ(value(file, "a"), "9");
    ASSERT_EQ(file.KeepContents(20), 0u) << "less than the file";
    ask(file, "a");
    EXPECT_TRUE(mapping.store(12, '8'));
    EXPECT_EQ(value(file, "a"), "8");
}

// Of two files with one name, one may get the number of the other as soon as that is given free.
TEST_F(KeepContentsTest, TheNumberOfWhatIsKeptIsNotGivenAway) {
    if (!KEEPS_CONTENTS) {
        GTEST_SKIP() << "no file system is known to be the machine's own";
    }
    write("reg", "a = 1\n");
    struct stat before = {};
    ASSERT_EQ(::stat(reg().c_str(), &before), 0);
    const long descriptors = openDescriptors();
    {
        TextRegistry file{reg()};
        ASSERT_EQ(file.KeepContents(PLENTY), 0u);
        ask(file, "a");
        EXPECT_EQ(openDescriptors(), descriptors + 1);
        ASSERT_EQ(::unlink(reg().c_str()), 0);
        for (int i = 0; i < 3; ++i) {
            struct stat after = {};
            ASSERT_EQ(::stat(write("reg", "a = 2\n").c_str(), &after), 0);
            EXPECT_NE(after.st_ino, before.st_ino);
            ASSERT_EQ(::unlink(reg().c_str()), 0);
        }
        write("reg", "a = 2\n");
        EXPECT_EQ(value(file, "a"), "2");
        EXPECT_EQ(openDescriptors(), descriptors) << "nothing is kept of what was";
        ask(file, "a");
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

// Files that were made within one step of the clock differ in their numbers alone.
TEST_F(KeepContentsTest, AFolderThatALinkNowLeadsToIsSeen) {
    constexpr int MOST_TRIES = 200;
    std::string folders[2];
    bool alike = false;
    for (int i = 0; i < MOST_TRIES && !alike; ++i) {
        for (int n : {0, 1}) {
            folders[n] = path(std::to_string(i) + "_" + std::to_string(n));
            ASSERT_EQ(::mkdir(folders[n].c_str(), 0700), 0);
        }
        const std::string files[] = {folders[0] + "/reg", folders[1] + "/reg"};
        for (int n : {0, 1}) {
            std::ofstream(files[n]) << "a = " << n << "\n";
        }
        alike = std::filesystem::last_write_time(files[0]) == std::filesystem::last_write_time(files[1]);
    }
    const auto lead = [&](const std::string& folder) {
        ASSERT_EQ(::symlink(folder.c_str(), path("new").c_str()), 0);
        ASSERT_EQ(::rename(path("new").c_str(), path("there").c_str()), 0);
    };
    lead(folders[0]);
    TextRegistry file{path("there/reg")};
    ASSERT_EQ(file.KeepContents(PLENTY), 0u);
    ask(file, "a");
    EXPECT_EQ(value(file, "a"), "0");
    lead(folders[1]);
    EXPECT_EQ(value(file, "a"), "1") << (alike ? "of the same times" : "");
}

TEST_F(KeepContentsTest, AKeyMayLieWhereTheAnswerGoes) {
    write("reg", "# first\na = 1\nb c = 2\n");
    TextRegistry file{reg()};
    ASSERT_EQ(file.KeepContents(PLENTY), 0u);
    ask(file, "a");
    GenRegVarValRecord record;
    for (const char* variable : {"b c", "a"}) {
        ASSERT_EQ(file.get(variable, &record), 0u);
        const std::string expected = record.value;
        ASSERT_EQ(file.Get(VARVAL_MATCH_VARIABLE, &record, &record), 0u) << "itself";
        EXPECT_EQ(record.value, expected);
        ASSERT_EQ(file.get(record.variable, &record), 0u) << "its text";
        EXPECT_EQ(record.value, expected);
        EXPECT_EQ(std::string_view(record.lineText + sizeof record.lineText - 8, 8),
                  std::string_view("\0\0\0\0\0\0\0\0", 8));
    }
}

TEST_F(KeepContentsTest, AFileOfThisMomentIsNotTrusted) {
    write("reg", "a = 0\n");
    TextRegistry file{reg()};
    ASSERT_EQ(file.KeepContents(PLENTY), 0u);
    const int descriptor = ::open(reg().c_str(), O_RDWR | O_CLOEXEC);
    for (int i = 0; i < 200; ++i) {
        const std::string digit = std::to_string(i % 10);
        ASSERT_EQ(::pwrite(descriptor, digit.data(), 1, 4), 1);
        for (int times = 0; times < 3; ++times) {
            ASSERT_EQ(value(file, "a"), digit) << "written within one step of the clock";
        }
    }
    (void)::close(descriptor);
}

}  // namespace
