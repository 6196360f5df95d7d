// The information functions, from call to file and back.
#include <thread>

#include "global/GlobalRecords.h"

namespace {

OSSInstanceInfo_t instance(const std::string& name, const char* service = "RVN") {
    OSSInstanceInfo_t info = {};
    info.versionCode = VERSION_9_7_0_2;
    name.copy(info.instanceName, sizeof info.instanceName);
    put(info.service, service);
    return info;
}
OSSServiceInfo_t service(const char* name) {
    OSSServiceInfo_t info = {};
    info.versionCode = VERSION_9_7_0_2;
    put(info.service, name);
    return info;
}
char* text(const char* constant) {
    return const_cast<char*>(constant);
}

// The names of a service's instances, in the order of the file: "a b ".
std::string listed(const char* ofService) {
    std::string names;
    void* handle = nullptr;
    EXPECT_EQ(ossOpenInstanceList(ofService, &handle, true), 0U);
    OSSInstanceInfo_t info = {};
    unsigned int result = 0;
    while ((result = ossGetNextInstance(handle, &info)) == 0) {
        names += std::string(info.instanceName) + " ";
    }
    EXPECT_EQ(result, 0x900001beU);
    EXPECT_EQ(ossGetNextInstance(handle, &info), 0x900001beU) << "and ever after";
    const auto inherited = [&] {
        return ossGetNextInstance(handle, &info) == 0x90000266U && ossCloseInstanceList(handle) == 0 ? 0 : 1;
    };
    EXPECT_EQ(inChild(inherited), 0) << "not a child's to end";
    EXPECT_EQ(ossCloseInstanceList(handle), 0U);
    return names;
}

using InstanceInfo = GlobalScratch;
using ServiceInfo = GlobalScratch;

TEST_F(InstanceInfo, WhatIsSetStandsInTheFileAndComesBack) {
    OSSInstanceInfo_t info = instance("one");
    ASSERT_EQ(ossSetInstanceInfo(&info), 0U);
    EXPECT_EQ(bytes(), frame(RecordImage(1, 0x7).text("RVN").version().text("one").end()))
        << "what is empty or not set is left out, not written as 0";

    OSSInstanceInfo_t whole = instance("one");
    whole.flags = INSTANCE_INFO_START_AT_BOOT | INSTANCE_INFO_MAINTENANCE;
    put(whole.instancePath, "/home/one");
    put(whole.usage, "usage");
    put(whole.extraPath, "/extra");
    put(whole.extraName, "extra");
    put(whole.comment, "comment");
    EXPECT_EQ(ossSetInstanceInfo(&whole), 0U) << "replaced whole, by way of a refused add";
    GenRegCause cause = {};
    genregLastCause(&cause);
    EXPECT_EQ(cause.code, 0U) << "which is no failure of this call";
    EXPECT_EQ(listed("RVN"), "one ");
    OSSInstanceInfo_t back = {};
    EXPECT_EQ(ossGetInstanceInfo(text("RVN"), VERSION_9_7_0_2, text("one"), &back), 0U);
    EXPECT_TRUE(bytesOf(back) == bytesOf(whole));
    EXPECT_EQ(ossSetInstanceInfo(&whole), 0x900001f7U) << "unchanged";

    EXPECT_EQ(ossSetInstanceInfo(&info), 0U);
    back.flags = 0x12;
    EXPECT_EQ(ossGetInstanceInfo(text("RVN"), VERSION_9_7_0_2, text("one"), text("ignored"), &back), 0U);
    EXPECT_EQ(back.flags, 0x12U) << "only ever set";
    EXPECT_STREQ(back.comment, "");
}

TEST_F(InstanceInfo, AnyPartOfTheKeyMayBeLeftOpen) {
    OSSInstanceInfo_t info = instance("one");
    ASSERT_EQ(ossSetInstanceInfo(&info), 0U);
    info = instance("two", "OTHER");
    info.versionCode = 5;
    ASSERT_EQ(ossSetInstanceInfo(&info), 0U);
    EXPECT_EQ(ossGetInstanceInfo(nullptr, 0, nullptr, &info), 0U);
    EXPECT_STREQ(info.instanceName, "one");
    EXPECT_EQ(ossGetInstanceInfo(nullptr, 5, nullptr, &info), 0U);
    EXPECT_STREQ(info.instanceName, "two");
    EXPECT_EQ(ossGetInstanceInfo(text("RVN"), 5, nullptr, &info), 0x900001f6U);
    EXPECT_EQ(ossGetInstanceInfo(text(""), 0, nullptr, &info), 0x90000268U) << "an empty service is no open one";
}

// A text longer than its member is cut the same way wherever it comes in.
TEST_F(InstanceInfo, AnOverLongNameIsFoundAgain) {
    const std::string name(200, 'n');
    OSSInstanceInfo_t info = instance(name.substr(0, 64));
    std::memset(info.comment, 'c', sizeof info.comment);
    ASSERT_EQ(ossSetInstanceInfo(&info), 0U);
    OSSInstanceInfo_t back = {};
    EXPECT_EQ(ossGetInstanceInfo(nullptr, 0, text(name.c_str()), &back), 0U);
    EXPECT_EQ(back.instanceName, name.substr(0, 63));
    EXPECT_EQ(std::strlen(back.comment), 255U);
    EXPECT_EQ(ossRemoveInstanceInfo(text("RVN"), VERSION_9_7_0_2, text(name.c_str())), 0U);
    EXPECT_EQ(bytes(), "");
}

TEST_F(InstanceInfo, AListShowsOneServiceInTheOrderOfTheFile) {
    for (const char* name : {"c", "a", "b"}) {
        for (const char* of : {"RVN", "DAS"}) {
            OSSInstanceInfo_t info = instance(name, of);
            ASSERT_EQ(ossSetInstanceInfo(&info), 0U);
        }
    }
    EXPECT_EQ(ossRemoveInstanceInfo(text("RVN"), VERSION_9_7_0_2, text("a")), 0U);
    EXPECT_EQ(ossRemoveInstanceInfo(text("RVN"), VERSION_9_7_0_2, text("a")), 0x900001f6U);
    EXPECT_EQ(listed("RVN"), "c b ");
    EXPECT_EQ(listed("DAS"), "c a b ");
    EXPECT_EQ(listed("NONE"), "");
    OSSServiceInfo_t info = service("RVN");
    ASSERT_EQ(ossSetServiceInfo(&info), 0U);
    void* handle = nullptr;
    ASSERT_EQ(ossOpenServiceList(&handle), 0U);
    EXPECT_EQ(ossGetNextService(handle, &info), 0U) << "the one service behind all instances";
    EXPECT_EQ(ossGetNextService(handle, &info), 0x900001beU);
    EXPECT_EQ(ossCloseServiceList(handle), 0U);
}

TEST_F(InstanceInfo, WithoutARegistryEveryCallFailsInItsOwnWords) {
    const Variable nowhere("RVN_GLOBAL_REG_PATHNAME", "");
    OSSInstanceInfo_t info = instance("one");
    OSSServiceInfo_t copy = service("RVN");
    void* handle = nullptr;
    EXPECT_EQ(ossSetInstanceInfo(&info), 0x9000026aU);
    EXPECT_EQ(ossGetInstanceInfo(nullptr, 0, nullptr, &info), 0x90000268U);
    EXPECT_EQ(ossRemoveInstanceInfo(text("s"), 1, text("n")), 0x9000026eU);
    EXPECT_EQ(ossOpenInstanceList(text("s"), &handle), 0x900001baU);
    EXPECT_EQ(ossSetServiceInfo(&copy), 0x90000269U);
    EXPECT_EQ(ossGetServiceInfo(nullptr, 0, nullptr, &copy), 0x90000267U);
    EXPECT_EQ(ossRemoveServiceInfo(text("s"), 1), 0x9000026dU);
    EXPECT_EQ(ossOpenServiceList(&handle), 0x90000263U);
    EXPECT_EQ(handle, nullptr);
}

TEST_F(InstanceInfo, ADamagedRecordIsReportedNotTrusted) {
    writeFrames({RecordImage(1, 0x7).item(std::string(64, 's')).text("v").text("n").end()});
    const std::string before = bytes();
    OSSInstanceInfo_t info = instance("one");
    EXPECT_EQ(ossGetInstanceInfo(text("RVN"), 0, nullptr, &info), 0x90000268U);
    GenRegCause cause = {};
    genregLastCause(&cause);
    EXPECT_EQ(cause.code, 0x90000254U);
    EXPECT_EQ(ossSetInstanceInfo(&info), 0x9000026aU);
    void* handle = nullptr;
    ASSERT_EQ(ossOpenInstanceList(text("RVN"), &handle), 0U);
    EXPECT_EQ(ossGetNextInstance(handle, &info), 0x90000266U);
    EXPECT_EQ(ossCloseInstanceList(handle), 0U);
    EXPECT_EQ(bytes(), before);
}

void setMany(const std::string& who, int count) {
    for (int index = 0; index < count; ++index) {
        OSSInstanceInfo_t info = instance(who + std::to_string(index));
        EXPECT_EQ(ossSetInstanceInfo(&info), 0U);
        EXPECT_EQ(ossGetInstanceInfo(nullptr, 0, info.instanceName, &info), 0U);
    }
}

TEST_F(InstanceInfo, ThreadsAndProcessesLoseNothing) {
    constexpr int EACH = 15;
    std::vector<pid_t> children;
    for (const char* who : {"p", "q"}) {
        children.push_back(::fork());
        if (children.back() == 0) {
            setMany(who, EACH);
            ::_exit(HasFailure() ? 1 : 0);
        }
    }
    std::thread first(setMany, "t", EACH);
    std::thread second(setMany, "u", EACH);
    first.join();
    second.join();
    for (const pid_t child : children) {
        EXPECT_EQ(waitFor(child), 0);
    }
    const std::string all = listed("RVN");
    EXPECT_EQ(std::count(all.begin(), all.end(), ' '), 4 * EACH);
}

TEST_F(ServiceInfo, WhatIsSetStandsInTheFileAndComesBack) {
    OSSServiceInfo_t info = service("RVN");
    ASSERT_EQ(ossSetServiceInfo(&info), 0U);
    EXPECT_EQ(bytes(), frame(RecordImage(2, 0x3).text("RVN").version().end()));
    OSSServiceInfo_t back;
    std::memset(static_cast<void*>(&back), 0x55, sizeof back);
    EXPECT_EQ(ossGetServiceInfo(text("RVN"), VERSION_9_7_0_2, nullptr, &back), 0U);
    EXPECT_EQ(back.serviceFlag, ' ');
    EXPECT_EQ(back.fixpackNumber + back.serviceNumber1 + back.serviceNumber2 + back.serviceNumber3, 0);
    EXPECT_STREQ(back.serviceText, "");
    EXPECT_EQ(back.reserved[7], 0x55) << "neither read nor written";

    put(info.servicePath, "/first");
    info.fixpackNumber = -2;
    info.serviceFlag = '\xe9';
    EXPECT_EQ(ossSetServiceInfo(&info), 0U);
    OSSServiceInfo_t whole = {};
    EXPECT_EQ(ossGetServiceInfo(nullptr, 0, text("/first"), text("ignored"), &whole), 0U);
    EXPECT_TRUE(bytesOf(whole) == bytesOf(info));
    EXPECT_EQ(ossSetServiceInfo(&info), 0x900001f7U);
    EXPECT_EQ(ossRemoveServiceInfo(text("RVN"), 1), 0x900001f6U);
    EXPECT_EQ(ossRemoveServiceInfo(text("RVN"), VERSION_9_7_0_2), 0U);
    EXPECT_EQ(ossGetServiceInfo(nullptr, 0, nullptr, &whole), 0x900001f6U);
}

// A set and a removal as the change log shows them.
using InfoInTheLog = InPrivateWorld<GlobalScratch>;
TEST_F(InfoInTheLog, OnlyASetNamesItsCaller) {
    write("/tmp/globalreg.debug", "");
    OSSInstanceInfo_t info = instance("one");
    ASSERT_EQ(ossSetInstanceInfo(&info), 0U);
    info.flags = 1;
    ASSERT_EQ(ossSetInstanceInfo(&info), 0U);
    ASSERT_EQ(ossSetInstanceInfo(&info), 0x900001f7U);
    ASSERT_EQ(ossRemoveInstanceInfo(text("RVN"), VERSION_9_7_0_2, text("one")), 0U);
    const auto log = lines("/tmp/globalreg.debug");
    ASSERT_EQ(log.size(), 3U);
    EXPECT_TRUE(log[0].ends_with(";ACT=Add;CL=N/A;REC=I,RVN,9.7.0.2,one,,,,,,,"));
    EXPECT_TRUE(log[1].ends_with(";REC=I,RVN,9.7.0.2,one,,,1,,,,!I,RVN,9.7.0.2,one,,,1,,,,"));
    EXPECT_TRUE(log[2].ends_with(";ACT=Delete;CL=N/A;REC=I,RVN,9.7.0.2,one,,,,,,,"));
    EXPECT_NE(log[1].find("CALLER=ossSetInstanceInfo"), std::string::npos);
    EXPECT_NE(log[2].find("CALLER=UNKNOWN"), std::string::npos);
}

}  // namespace
