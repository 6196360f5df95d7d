// A copy of the product and its instances, registered with one commit.
#include "global/GlobalRecords.h"

namespace {

using GlobalBatch = GlobalScratch;

struct LoggedChange {
    unsigned int caller;
    unsigned long operation;
    std::string first;
    std::string second;
};
std::vector<LoggedChange> loggedChanges;
int notifications = 0;

class Registry : public GlobalReg {
public:
    Registry() {
        logChange = [](GenRegBase* object, unsigned long operation, void* first, void* second) {
            const auto name = [](void* record) {
                return record == nullptr ? "" : static_cast<GlobalRegRecord*>(record)->body.instance.instanceName;
            };
            loggedChanges.push_back({object->GetChangeLoggingFuncID(), operation, name(first), name(second)});
            return 0U;
        };
        notifyChange = [] {
            ++notifications;
            return 0U;
        };
        loggedChanges.clear();
        notifications = 0;
    }
};

constexpr unsigned long WHOLE_KEY = INSTANCE_SERVICE | INSTANCE_VERSION_CODE | INSTANCE_NAME;

GlobalRegRecord instanceOf(const std::string& name) {
    GlobalRegRecord record = recordOf(GLOBALREG_INSTANCE, INSTANCE_KNOWN_FIELDS);
    put(record.body.instance.instanceName, name);
    return record;
}

TEST_F(GlobalBatch, AServiceWithItsInstancesIsOneChange) {
    Registry registry;
    ASSERT_EQ(registry.BeginBatch(), 0U);
    registry.SetChangeLoggingFuncID(7);
    GlobalRegRecord service = recordOf(GLOBALREG_SERVICE, SERVICE_KNOWN_FIELDS);
    ASSERT_EQ(registry.Add(SERVICE_SERVICE | SERVICE_VERSION_CODE, &service), 0U);
    for (int i = 0; i < 5; ++i) {
        GlobalRegRecord instance = instanceOf("instance" + std::to_string(i));
        ASSERT_EQ(registry.Add(WHOLE_KEY, &instance), 0U);
        EXPECT_EQ(registry.Add(WHOLE_KEY, &instance), REG_DUPLICATE);
    }
    registry.SetChangeLoggingFuncID(8);
    GlobalRegRecord key = instanceOf("instance3");
    GlobalRegRecord other = key;
    put(other.body.instance.usage, "other");
    EXPECT_EQ(registry.Change(WHOLE_KEY, &key, &other), 0U);
    EXPECT_FALSE(exists("global.reg"));
    EXPECT_TRUE(loggedChanges.empty());
    ASSERT_EQ(registry.CommitBatch(), 0U);
    EXPECT_EQ(notifications, 1);
    ASSERT_EQ(loggedChanges.size(), 7U);
    EXPECT_EQ(loggedChanges[5].first, "instance4");
    EXPECT_EQ(loggedChanges[5].caller, 7U);
    EXPECT_EQ(loggedChanges[6].operation, REG_OP_CHANGE);
    EXPECT_EQ(loggedChanges[6].second, "instance3");
    EXPECT_EQ(loggedChanges[6].caller, 8U);
    EXPECT_EQ(registry.GetChangeLoggingFuncID(), 8U);
    GlobalReg reader;
    GlobalRegRecord found;
    ASSERT_EQ(reader.Get(WHOLE_KEY, &key, &found), 0U);
    EXPECT_STREQ(found.body.instance.usage, "other");
}

// What any update sets right about the records that it carries, the second of a batch does too.
TEST_F(GlobalBatch, RecordsAreCarriedAsByASingleUpdate) {
    std::string odd = pack(instanceOf("odd"));
    odd.insert(odd.size() - 4, little(3, 2) + "new");  // of a later release
    odd[4 + 6] = 1;
    std::string expected;
    for (const bool together : {false, true}) {
        writeFrames({pack(instanceOf("a")), odd, pack(recordOf(GLOBALREG_INSTANCE, WHOLE_KEY | INSTANCE_PATH)),
                     pack(recordOf(GLOBALREG_VARIABLE, VARIABLE_KNOWN_FIELDS))});
        Registry registry;
        ASSERT_EQ(together ? registry.BeginBatch() : 0U, 0U);
        for (const char* name : {"x", "y", "z"}) {
            GlobalRegRecord record = recordOf(GLOBALREG_INSTANCE, WHOLE_KEY | INSTANCE_USAGE);
            put(record.body.instance.instanceName, name);
            ASSERT_EQ(registry.Add(WHOLE_KEY, &record), 0U);
        }
        GlobalRegRecord gone = instanceOf("y");
        ASSERT_EQ(registry.Delete(WHOLE_KEY, &gone), 0U);
        ASSERT_EQ(together ? registry.CommitBatch() : 0U, 0U);
        expected = together ? expected : bytes();
    }
    EXPECT_EQ(bytes(), expected);
}

TEST_F(GlobalBatch, ADamagedRegistryIsNotMadeWorse) {
    writeFrames({pack(instanceOf("a"))});
    const std::string whole = bytes();
    const std::string damaged = whole + std::string("\x07\x00\x00", 3);
    write("global.reg", damaged);
    Registry registry;
    ASSERT_EQ(registry.BeginBatch(), 0U);
    GlobalRegRecord record = instanceOf("b");
    EXPECT_EQ(registry.Add(WHOLE_KEY, &record), REG_READ_FAILED);
    EXPECT_EQ(registry.CommitBatch(), REG_UNCHANGED);
    EXPECT_EQ(bytes(), damaged);
}

}  // namespace
