// Add, Change and Delete: codes, and what stands in the file and beside it afterwards.
#include <chrono>
#include <thread>

#include "support/TextRegistry.h"

namespace {

constexpr unsigned long DEFERRED = REG_FEATURE_DEFERRED_COMMIT;
constexpr unsigned long DUPLICATES = REG_FEATURE_ALLOW_DUPLICATES;
constexpr unsigned long JOINED = REG_FEATURE_LINE_CONTINUATION;

using UpdateTest = RegistryTest;

// What becomes of "a = 1, b = 2, b = 3" where duplicates are refused and where they are allowed.
TEST_F(UpdateTest, MatchesDecideByTheFourWaysOfUpdating) {
    const std::string old = "a = 1\n# c\nb = 2\nb = 3\n";
    const std::string half = "a = 1\n# c\nb = 2\nb = 2\n";
    const struct {
        unsigned int (*run)(TextRegistry&);
        unsigned int code[2];
        std::string content[2];
    } cases[] = {
        {[](TextRegistry& f) { return f.add("z", "9"); }, {0, 0}, {old + "z = 9\n", old + "z = 9\n"}},
        {[](TextRegistry& f) { return f.add("a", "9"); }, {REG_DUPLICATE, 0}, {old, old + "a = 9\n"}},
        {[](TextRegistry& f) { return f.change("a", "9"); },
         {0, 0},
         {"a = 9" + old.substr(5), "a = 9" + old.substr(5)}},
        {[](TextRegistry& f) { return f.change("b", "9"); },
         {REG_SEVERAL_MATCH, 0},
         {old, "a = 1\n# c\nb = 9\nb = 9\n"}},
        {[](TextRegistry& f) { return f.change("z", "9"); }, {REG_NOT_FOUND, REG_NOT_FOUND}, {old, old}},
        {[](TextRegistry& f) { return f.change("a", "1"); }, {REG_UNCHANGED, REG_UNCHANGED}, {old, old}},
        // One line says so already, one does not: without the verification the one that does not is changed.
        {[](TextRegistry& f) { return f.change("b", "2"); }, {REG_UNCHANGED, REG_UNCHANGED}, {half, half}},
        {[](TextRegistry& f) { return f.remove("a"); }, {0, 0}, {old.substr(6), old.substr(6)}},
        {[](TextRegistry& f) { return f.remove("b"); }, {REG_SEVERAL_MATCH, 0}, {old, "a = 1\n# c\n"}},
        {[](TextRegistry& f) { return f.remove("z"); }, {REG_NOT_FOUND, REG_NOT_FOUND}, {old, old}},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        for (const unsigned long features : UPDATE_WAYS) {
            SCOPED_TRACE(std::to_string(i) + " by way " + std::to_string(features));
            const bool deferred = (features & DEFERRED) != 0;
            const bool allowed = (features & DUPLICATES) != 0;
            const unsigned int code = cases[i].code[allowed];
            remove("reg.tmp");
            write("reg", old);
            TextRegistry file{reg(), features};
            const long descriptors = openDescriptors();
            EXPECT_EQ(cases[i].run(file), code);
            EXPECT_EQ(content(), deferred && code == REG_UNCHANGED ? old : cases[i].content[allowed]);
            // What was abandoned stays, but for a change or delete that would have been verified.
            const bool left = code == REG_DUPLICATE || (!deferred && code != 0 && code != REG_UNCHANGED);
            EXPECT_EQ(names(), left ? "reg reg.tmp" : "reg");
            EXPECT_EQ(file.state & REG_STATE_LOCKED, 0u);
            EXPECT_EQ(openDescriptors(), descriptors);
        }
    }
}

// Everything that is no line of the schema, in front of, behind and between lines that are.
TEST_F(UpdateTest, WhatIsNotTouchedIsCarriedByteForByte) {
    std::string odd = "# comment\r\n\n   \n\xff\x80 high = \x01\nno pair\r\n\\\nopen = \"quote\n";
    odd += std::string("nul\0nul = 1\n\0\n", 14);
    for (const std::size_t length : {2046UL, 2047UL, 2048UL, 2049UL, 70'000UL}) {
        odd += std::string(length - 5, 'a') + " = 1\n";  // its name begins like the one that is sought
        odd += "a = " + std::string(length, 'v') + "\n";
    }
    for (const std::size_t length : {0UL, 1UL, 2046UL, 2047UL, 2048UL, 2049UL, 70'000UL}) {
        for (const unsigned long way : UPDATE_WAYS) {
            for (const unsigned long features : {way, way | JOINED}) {
                SCOPED_TRACE(std::to_string(length) + " by way " + std::to_string(features));
                const std::string tail(length, 't');
                const std::string ended = length == 0 ? tail : tail + "\n";
                TextRegistry file{reg(), features};
                write("reg", odd + "key = 1\r\n" + odd + tail);
                EXPECT_EQ(file.change("key", "2"), 0u);
                EXPECT_TRUE(content() == odd + "key = 2\n" + odd + ended);
                write("reg", odd + "key = 1\r\n" + odd + tail);
                EXPECT_EQ(file.remove("key"), 0u);
                EXPECT_TRUE(content() == odd + odd + tail);
                const bool refused = length > 2048 && (features & ~JOINED) != DUPLICATES;
                EXPECT_EQ(file.add("key", "3"), refused ? REG_BUFFER_TOO_SMALL : 0U);
                EXPECT_TRUE(content() == (refused ? odd + odd + tail : odd + odd + ended + "key = 3\n"));
            }
        }
    }
}

TEST_F(UpdateTest, ContinuedLinesAreOneRecordAndNeverTakeANewLineIn) {
    for (const unsigned long features : UPDATE_WAYS) {
        TextRegistry file{reg(), features | JOINED};
        write("reg", "a = 1\\\n2\nb = 3\\\n4\n");
        const char* value = nullptr;
        EXPECT_TRUE(file.GetStringValue("a", &value));
        EXPECT_STREQ(value, "12");
        EXPECT_EQ(file.change("a", "5"), 0u);
        EXPECT_EQ(file.remove("b"), 0u);
        EXPECT_EQ(content(), "a = 5\n");
        write("reg", "a = 1\\\n");
        EXPECT_EQ(file.add("x", "2"), 0u);
        EXPECT_EQ(content(), "a = 1\\\n\nx = 2\n");
        EXPECT_TRUE(file.GetStringValue("a", &value));
        EXPECT_STREQ(value, "1");
        // A backslash at the very end would begin a continuation: verified, that is refused; unverified, x still stands
        // on a line of its own.
        write("reg", "a = 1\\");
        EXPECT_EQ(file.add("x", "2"), (features & DEFERRED) != 0 ? REG_VERIFY_FAILED : 0u);
        EXPECT_EQ(file.GetStringValue("x", &value), (features & DEFERRED) == 0);
    }
}

TEST_F(UpdateTest, WhatWouldNotReadBackAsAskedForIsRefused) {
    const std::string old = "a = 1\nb = 2\n";
    for (const char* value :
         {"1\nz = 5", "a # b", "\"open", "\"quoted\" tail", "two  blanks", " lead", "trail ", "x\r"}) {
        write("reg", old);
        TextRegistry file{reg()};
        EXPECT_EQ(file.add("c", value), REG_VERIFY_FAILED) << value;
        EXPECT_EQ(names(), "reg reg.tmp") << "kept for inspection";
        EXPECT_EQ(file.change("a", value), REG_VERIFY_FAILED) << value;
        EXPECT_EQ(content(), old);
        EXPECT_EQ(names(), "reg reg.cor reg.tmp");
        EXPECT_EQ(file.add("c", "3"), 0u);
        EXPECT_EQ(names(), "reg reg.cor");
        remove("reg.cor");
    }
    TextRegistry file{reg()};
    write("reg", old);
    EXPECT_EQ(file.add("c", std::string(2043, 'v').c_str()), REG_FORMAT_FAILED);
    EXPECT_EQ(file.add("c", std::string(2042, 'v').c_str()), 0u);
    EXPECT_EQ(file.change("c", std::string(2043, 'v').c_str()), REG_FORMAT_FAILED);
    EXPECT_EQ(content(), old + "c = " + std::string(2042, 'v') + "\n");
}

TEST_F(UpdateTest, AMissingSlotIsToldAndNothingIsTouched) {
    const struct {
        void (*clear)(TextRegistry&);
        unsigned int code;
        bool writes;  // only writing needs it
    } cases[] = {
        {[](TextRegistry& f) { f.validateRecord = nullptr; }, REG_NO_VALIDATE_RECORD, false},
        {[](TextRegistry& f) { f.getMaxRecordSize = nullptr; }, REG_NO_GET_MAX_RECORD_SIZE, false},
        {[](TextRegistry& f) { f.parseLine = nullptr; }, REG_NO_PARSE_LINE, false},
        {[](TextRegistry& f) { f.matchRecord = nullptr; }, REG_NO_MATCH_RECORD, false},
        {[](TextRegistry& f) { f.formatLine = nullptr; }, REG_NO_FORMAT_LINE, true},
    };
    write("reg", "a = 1\n");
    for (const auto& sample : cases) {
        for (const unsigned long features : UPDATE_WAYS) {
            TextRegistry file{reg(), features};
            sample.clear(file);
            EXPECT_EQ(file.CheckFuncPtrs(), sample.code);
            EXPECT_EQ(file.add("b", "2"), REG_CALLBACK_MISSING);
            EXPECT_EQ(file.Verify(REG_OP_ADD, 0, nullptr, nullptr), REG_CALLBACK_MISSING);
            EXPECT_EQ(file.change("a", "2"), sample.code);
            GenRegVarValRecord record;
            GenRegVarValRecord key = TextRegistry::pair("a", "1");
            EXPECT_EQ(file.get("a", &record), sample.writes ? 0 : sample.code);
            EXPECT_EQ(file.OpenScan(), 0u);
            EXPECT_EQ(file.GetNext(VARVAL_MATCH_VARIABLE, &key, &record), sample.writes ? 0 : sample.code);
            EXPECT_EQ(file.CloseScan(), 0u);
            EXPECT_EQ(content(), "a = 1\n");
            TextRegistry other{reg()};
            EXPECT_EQ(other.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT, 10), 0u);
        }
    }
}

TEST_F(UpdateTest, AnAppendInPlaceWaitsForAScanOfAnotherThread) {
    write("reg", "a = 1\n");
    TextRegistry scan{reg()};
    ASSERT_EQ(scan.OpenScan(), 0u);
    unsigned int rc = 1;
    std::thread writer([&] {
        TextRegistry file{reg(), REG_FEATURE_ALLOW_DUPLICATES};
        rc = file.add("b", "2");
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(content(), "a = 1\n");
    EXPECT_EQ(scan.scanned(), "a ");
    ASSERT_EQ(scan.CloseScan(), 0u);
    writer.join();
    EXPECT_EQ(rc, 0u);
    EXPECT_EQ(content(), "a = 1\nb = 2\n");
}

}  // namespace
