// What is found of the global registry in contents that are kept.
#include "global/GlobalRecords.h"
#include "support/KeptContents.h"

namespace {

using KeepGlobalContents = GlobalScratch;

std::string variableImage(const std::string& name, const std::string& text, const std::string& value) {
    GlobalRegRecord record = recordOf(GLOBALREG_VARIABLE, ~0UL);
    put(record.body.variable.variable, name);
    put(record.body.variable.variableText, text);
    put(record.body.variable.value, value);
    return pack(record);
}

std::string instanceImage(const std::string& name, const std::string& home, unsigned long version = VERSION_9_7_0_2) {
    GlobalRegRecord record = recordOf(GLOBALREG_INSTANCE, ~0UL);
    record.body.instance.versionCode = version;
    put(record.body.instance.instanceName, name);
    put(record.body.instance.instancePath, home);
    return pack(record);
}

std::string answer(GlobalReg& registry, unsigned long mask, GlobalRegRecord key) {
    GlobalRegRecord found;
    std::memset(static_cast<void*>(&found), 0xa5, sizeof found);
    const unsigned int rc = registry.Get(mask, &key, &found);
    return std::to_string(rc) + bytesOf(found);
}

// Each kind of key, for the first of its type, a later one, and none.
TEST_F(KeepGlobalContents, WhatIsFoundIsWhatTheFileHolds) {
    std::string later = instanceImage("later", "/later");
    later[4 + 6] = 1;  // an item of a later release, behind the others
    later.insert(later.size() - 4, little(3, 2) + "new");
    writeFrames({instanceImage("a", "/1"), instanceImage("a", "/2"), instanceImage("a", "/3", 1), later,
                 pack(recordOf(GLOBALREG_SERVICE, ~0UL)), variableImage("v", "", "1"), variableImage("v", "more", "2"),
                 pack(recordOf(GLOBALREG_INSTANCE, ~0UL, true)), instanceImage("last", "/4")});
    GlobalReg keeps;
    ASSERT_EQ(keeps.KeepContents(PLENTY), 0U);
    const GlobalRegRecord any = unpacked(instanceImage("a", "/1"));
    askUntilKept([&] { (void)answer(keeps, INSTANCE_NAME, any); });
    int found = 0;
    for (const std::string& image :
         {instanceImage("a", "/x"), instanceImage("a", "/x", 1), instanceImage("a", "/x", 2), later,
          instanceImage("last", "/4"), pack(recordOf(GLOBALREG_SERVICE, ~0UL)), variableImage("v", "", ""),
          variableImage("v", "more", "x"), variableImage("v", "less", "x"), variableImage("", "more", "x"),
          pack(recordOf(GLOBALREG_INSTANCE, ~0UL, true)), variableImage("other", "", "x")}) {
        for (const unsigned long mask : {0UL, 1UL, 3UL, 7UL, 15UL, ~0UL}) {
            for (const bool typed : {true, false}) {
                GlobalRegRecord key = unpacked(image);
                key.recordType = typed ? key.recordType : 0;
                GlobalReg reads;
                const std::string expected = answer(reads, mask, key);
                EXPECT_EQ(answer(keeps, mask, key), expected) << image << mask;
                found += expected[0] == '0' ? 1 : 0;
            }
        }
    }
    EXPECT_GT(found, 40) << "else hardly anything was compared";
}

TEST_F(KeepGlobalContents, ItAnswersFromMemoryAndSeesAChange) {
    writeFrames({instanceImage("a", "/1"), instanceImage("b", "/2")});
    GlobalReg keeps;
    ASSERT_EQ(keeps.KeepContents(PLENTY), 0U);
    Mapping mapping{registry()};
    GlobalRegRecord key = unpacked(instanceImage("b", "/x"));
    constexpr unsigned long KEY = INSTANCE_SERVICE | INSTANCE_VERSION_CODE | INSTANCE_NAME;
    const auto path = [&] {
        GlobalRegRecord found;
        const unsigned int rc = keeps.Get(KEY, &key, &found);
        return std::string(rc == 0 ? found.body.instance.instancePath : genregCodeName(rc));
    };
    askUntilKept([&] { (void)path(); });
    if (KEEPS_CONTENTS && mapping.store(bytes().rfind("/2") + 1, '9')) {
        EXPECT_EQ(path(), "/2");
    }
    GlobalReg other;
    GlobalRegRecord record = unpacked(instanceImage("b", "/3"));
    ASSERT_EQ(other.Change(KEY, &key, &record), 0U);
    EXPECT_EQ(path(), "/3");
    askUntilKept([&] { (void)path(); });
    ASSERT_EQ(other.Delete(KEY, &key), 0U);
    EXPECT_EQ(path(), genregCodeName(REG_NOT_FOUND));
    ASSERT_EQ(::unlink(registry().c_str()), 0);
    EXPECT_EQ(path(), genregCodeName(REG_MISSING));
}

}  // namespace
