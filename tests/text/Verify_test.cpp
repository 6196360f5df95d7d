// The check between an update and its commit.
#include "support/TextRegistry.h"

namespace {

constexpr unsigned long DEFERRED = REG_FEATURE_DEFERRED_COMMIT;
constexpr unsigned long BOTH = REG_FEATURE_DEFERRED_COMMIT | REG_FEATURE_ALLOW_DUPLICATES;

using VerifyTest = RegistryTest;

// The key is the variable a; the new record is a = 9.
TEST_F(VerifyTest, EveryDifferenceButTheOneAskedForHasItsCode) {
    const std::string abc = "a = 1\nb = 2\nc = 3\n";
    const struct {
        unsigned long operation;
        unsigned long features;
        std::string before;
        std::string after;
        unsigned int code;
    } cases[] = {
        {REG_OP_CHANGE, DEFERRED, abc, "a = 9\nb = 2\nc = 3\n", 0},
        {REG_OP_CHANGE, DEFERRED, "a = 1\nb = 2", "a = 9\nb = 2\n", 0},
        {REG_OP_CHANGE, DEFERRED, abc, abc, REG_VERIFY_NO_DIFFERENCE},
        {REG_OP_CHANGE, DEFERRED, abc, "a=1\nb = 2\nc = 3\n", REG_VERIFY_NO_DIFFERENCE},
        {REG_OP_CHANGE, DEFERRED, abc, "a = 8\nb = 2\nc = 3\n", REG_VERIFY_WRONG_RECORD},
        {REG_OP_CHANGE, DEFERRED, abc, "a = 1\na = 9\nc = 3\n", REG_VERIFY_KEY_DIFFERS},
        {REG_OP_CHANGE, DEFERRED, "# c\na = 1\n", "# d\na = 9\n", REG_VERIFY_KEY_DIFFERS},
        {REG_OP_CHANGE, DEFERRED, abc, "a = 9\nb = 2\n", REG_VERIFY_LENGTH_DIFFERS},
        {REG_OP_CHANGE, DEFERRED, abc, "a = 9\nb = 2\nc = 3\nd = 4\n", REG_VERIFY_LENGTH_DIFFERS},
        {REG_OP_CHANGE, DEFERRED, abc, "", REG_VERIFY_LENGTH_DIFFERS},
        {REG_OP_CHANGE, DEFERRED, "a = 1\na = 2\n", "a = 9\na = 9\n", REG_VERIFY_SEVERAL_CHANGED},
        {REG_OP_CHANGE, BOTH, "a = 1\na = 2\n", "a = 9\na = 9\n", 0},
        {REG_OP_ADD, DEFERRED, abc, abc + "a = 9\n", 0},
        {REG_OP_ADD, DEFERRED, "", "a = 9\n", 0},
        {REG_OP_ADD, DEFERRED, "b = 1", "b = 1\na = 9\n", 0},
        {REG_OP_ADD, DEFERRED, abc, abc, REG_VERIFY_NOTHING_ADDED},
        {REG_OP_ADD, DEFERRED, abc, "a = 1\n", REG_VERIFY_NOTHING_ADDED},
        {REG_OP_ADD, DEFERRED, abc, abc + "a = 8\n", REG_VERIFY_OTHER_ADDED},
        {REG_OP_ADD, DEFERRED, abc, abc + "# a = 9\n", REG_VERIFY_OTHER_ADDED},
        {REG_OP_ADD, DEFERRED, abc, abc + "a = 9\n\n", REG_VERIFY_SEVERAL_ADDED},
        {REG_OP_ADD, DEFERRED, abc, "a = 2\nb = 2\nc = 3\na = 9\n", REG_VERIFY_DIFFERS_EARLY},
        {REG_OP_DELETE, DEFERRED, abc, "b = 2\nc = 3\n", 0},
        {REG_OP_DELETE, DEFERRED, "b = 2\na = 1\n", "b = 2\n", 0},
        {REG_OP_DELETE, DEFERRED, "b = 2\na = 1\nc = 3", "b = 2\nc = 3", 0},
        {REG_OP_DELETE, BOTH, "b = 2\na = 1\na = 3\n", "b = 2\n", 0},
        {REG_OP_DELETE, BOTH, "a = 1\na = 3\nb = 2\na = 4\n", "b = 2\n", 0},
        {REG_OP_DELETE, DEFERRED, "b = 2\na = 1\na = 3\n", "b = 2\n", REG_VERIFY_SEVERAL_CHANGED},
        {REG_OP_DELETE, DEFERRED, abc, abc, REG_VERIFY_NO_DIFFERENCE},
        {REG_OP_DELETE, DEFERRED, abc, "a = 1\nc = 3\n", REG_VERIFY_LOST_RECORD},
        {REG_OP_DELETE, DEFERRED, "# c\na = 1\nb = 2\n", "b = 2\n", REG_VERIFY_LOST_RECORD},
        {REG_OP_DELETE, DEFERRED, abc, "b = 2\n", REG_VERIFY_WRONG_RECORD},
        {REG_OP_DELETE, BOTH, "a = 1\na = 2\n", "x = 1\n", REG_VERIFY_OLD_ENDED},
        {REG_OP_DELETE, DEFERRED, "b = 2\n", "b = 2\nx = 1\n", REG_VERIFY_OLD_ENDED},
        {REG_OP_DELETE, DEFERRED, "a = 1\nb = 2\n", "b = 2\nx = 1\n", REG_VERIFY_WRONG_RECORD},
        {REG_OP_READ, DEFERRED, abc, "a = 9\nb = 2\nc = 3\n", REG_VERIFY_DIFFERS_EARLY},
        {REG_OP_READ, DEFERRED, abc, abc, REG_VERIFY_NO_DIFFERENCE},
    };
    for (const auto& sample : cases) {
        SCOPED_TRACE(std::to_string(sample.operation) + ": " + sample.before + "-> " + sample.after);
        remove("reg.tmp");
        write("reg", sample.before);
        write("reg.tmp", sample.after);
        TextRegistry file{reg(), sample.features};
        GenRegVarValRecord key = TextRegistry::pair("a", nullptr);
        GenRegVarValRecord record = TextRegistry::pair("a", "9");
        EXPECT_EQ(file.Verify(sample.operation, VARVAL_MATCH_VARIABLE, &record, &key), sample.code);
        const bool commits = sample.code == 0 || sample.code == REG_VERIFY_SEVERAL_CHANGED;
        EXPECT_EQ(content(), commits ? sample.after : sample.before);
        EXPECT_EQ(names(), commits ? "reg" : "reg reg.tmp");
        EXPECT_EQ(file.regFp, nullptr);
    }
}

}  // namespace
