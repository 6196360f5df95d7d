// Adding, changing and deleting records.
#include <sys/resource.h>

#include <csignal>

#include "support/BinRegistry.h"

namespace {

class BinUpdates : public BinRegistry {
protected:
    const BinItem a_ = binItem("a", 1), b_ = binItem("b", 2), c_ = binItem("c", 3), d_ = binItem("d", 4);
    const BinItem changed_ = binItem("b", 9, "changed");

    // The operations on copies of the records, which must come back as they went in.
    static unsigned int run(BinItems& items, unsigned long operation, unsigned long mask, const BinItem& key,
                            const BinItem& record) {
        BinItem keyGiven = key;
        BinItem recordGiven = record;
        unsigned int rc = 0;
        switch (operation) {
            case REG_OP_ADD:
                rc = items.Add(mask, &recordGiven);
                break;
            case REG_OP_CHANGE:
                rc = items.Change(mask, &keyGiven, &recordGiven);
                break;
            default:
                rc = items.Delete(mask, &keyGiven);
        }
        EXPECT_EQ(std::memcmp(&keyGiven, &key, sizeof key), 0);
        EXPECT_EQ(std::memcmp(&recordGiven, &record, sizeof record), 0);
        return rc;
    }
};

TEST_F(BinUpdates, EveryOutcomeLeavesTheFileThatItTellsOf) {
    struct Case {
        const char* what;
        unsigned long operation, mask;
        BinItem key, record;
        unsigned int code;
        std::vector<BinItem> after;
        unsigned int codeWithDuplicates;
        std::vector<BinItem> afterWithDuplicates;
    };
    const std::vector<BinItem> before = {a_, b_, c_};
    const BinItem none = {};
    const BinItem second = binItem("a", 5);
    const std::vector<Case> cases = {
        {"add", REG_OP_ADD, 1, none, d_, 0, {a_, b_, c_, d_}, 0, {a_, b_, c_, d_}},
        {"add again", REG_OP_ADD, 1, none, second, REG_DUPLICATE, before, 0, {a_, b_, c_, second}},
        {"change", REG_OP_CHANGE, 1, b_, changed_, 0, {a_, changed_, c_}, 0, {a_, changed_, c_}},
        {"change none", REG_OP_CHANGE, 1, d_, changed_, REG_NOT_FOUND, before, REG_NOT_FOUND, before},
        {"change to equal", REG_OP_CHANGE, 1, b_, b_, REG_UNCHANGED, before, REG_UNCHANGED, before},
        {"change all", REG_OP_CHANGE, 0, none, d_, REG_SEVERAL_MATCH, before, 0, {d_, d_, d_}},
        {"delete first", REG_OP_DELETE, 1, a_, none, 0, {b_, c_}, 0, {b_, c_}},
        {"delete last", REG_OP_DELETE, 1, c_, none, 0, {a_, b_}, 0, {a_, b_}},
        {"delete none", REG_OP_DELETE, 1, d_, none, REG_NOT_FOUND, before, REG_NOT_FOUND, before},
        {"delete all", REG_OP_DELETE, 0, none, none, REG_SEVERAL_MATCH, before, 0, {}},
    };
    eachWay([&](unsigned long features, BinItems::Slots slots) {
        const bool packed = (features & PACKED) != 0;
        const bool duplicates = (features & DUPLICATES) != 0;
        for (const Case& tried : cases) {
            SCOPED_TRACE(tried.what);
            contents(binFile(before, packed));
            BinItems items(file(), features, slots);
            const long descriptors = openDescriptors();
            const unsigned int code = duplicates ? tried.codeWithDuplicates : tried.code;
            EXPECT_EQ(run(items, tried.operation, tried.mask, tried.key, tried.record), code);
            EXPECT_EQ(contents(), binFile(duplicates ? tried.afterWithDuplicates : tried.after, packed));
            // An abandoned copy stays where nothing verifies; the next update sets it aside.
            const bool left = (features & DEFERRED) == 0 && code != 0 && code != REG_UNCHANGED;
            EXPECT_EQ(exists(".tmp"), left);
            expectAtRest(descriptors);
            std::filesystem::remove(file() + ".tmp");
        }
    });
}

TEST_F(BinUpdates, AnAddMakesTheFileAndItsFolder) {
    eachWay([&](unsigned long features, BinItems::Slots slots) {
        std::filesystem::remove_all(path("new"));
        BinItems items(path("new/items.reg"), features, slots);
        EXPECT_EQ(run(items, REG_OP_ADD, 1, a_, a_), 0U);
        EXPECT_EQ(read(path("new/items.reg")), binFile({a_}, (features & PACKED) != 0));
        EXPECT_EQ(run(items, REG_OP_ADD, 1, b_, b_), 0U);
        EXPECT_EQ(read(path("new/items.reg")), binFile({a_, b_}, (features & PACKED) != 0));
        EXPECT_FALSE(std::filesystem::exists(path("new/items.reg.tmp")));
    });
}

TEST_F(BinUpdates, FailuresSayWhatIsWrongAndLeaveTheFileUnlocked) {
    struct Case {
        unsigned int add, change, remove;
        std::function<void(BinItems&)> prepare;
    };
    const auto failedWrite = [](BinItems& items) { items.getPackedRecordSize = nullptr; };
    const std::vector<Case> cases = {
        {REG_CALLBACK_MISSING, REG_NO_VALIDATE_RECORD, REG_NO_VALIDATE_RECORD,
         [](BinItems& items) { items.validateRecord = nullptr; }},
        {REG_RECORD_REFUSED, REG_RECORD_REFUSED, REG_RECORD_REFUSED,
         [](BinItems& items) { items.knobs().validateResult = 9; }},
        {REG_CALLBACK_MISSING, REG_NO_GET_MAX_RECORD_SIZE, REG_NO_GET_MAX_RECORD_SIZE,
         [](BinItems& items) { items.getMaxRecordSize = nullptr; }},
        {REG_RECORD_TOO_SMALL, REG_RECORD_TOO_SMALL, REG_RECORD_TOO_SMALL,
         [](BinItems& items) { items.knobs().maxSize = 2; }},
        {REG_RECORD_SIZE_REFUSED, REG_RECORD_SIZE_REFUSED, REG_RECORD_SIZE_REFUSED,
         [](BinItems& items) { items.knobs().maxSize = REG_MAX_RECORD_SIZE + 1; }},
        {REG_CALLBACK_MISSING, REG_NO_PACK_RECORD, REG_NO_PACK_RECORD,
         [](BinItems& items) { items.packRecord = nullptr; }},
        {REG_CALLBACK_MISSING, REG_NO_UNPACK_RECORD, REG_NO_UNPACK_RECORD,
         [](BinItems& items) { items.unpackRecord = nullptr; }},
        {REG_UNPACK_FAILED, REG_UNPACK_FAILED, REG_UNPACK_FAILED,
         [](BinItems& items) { items.knobs().unpackResult = 9; }},
        {REG_NO_MATCH_RECORD, REG_NO_MATCH_RECORD, REG_NO_MATCH_RECORD,
         [](BinItems& items) { items.matchRecord = nullptr; }},
        {REG_COPY_WRITE_FAILED, REG_COPY_WRITE_FAILED, REG_COPY_WRITE_FAILED, failedWrite},
        {REG_LOCK_FAILED, REG_LOCK_FAILED, REG_LOCK_FAILED, [](BinItems& items) { items.state = REG_STATE_INITIAL; }},
        {REG_OPEN_FAILED, REG_OPEN_FAILED, REG_OPEN_FAILED,
         [this](BinItems&) { std::filesystem::create_directories(file() + ".cor/full"); }},
    };
    const std::string before = binFile({a_, b_, c_});
    for (std::size_t i = 0; i < cases.size(); ++i) {
        for (const unsigned long operation : {REG_OP_ADD, REG_OP_CHANGE, REG_OP_DELETE}) {
            for (const unsigned long features : {PACKED, PACKED | DEFERRED}) {
                SCOPED_TRACE(::testing::Message() << "case " << i << ", operation " << operation << ' ' << features);
                BinItems::knobs() = {};
                contents(before);
                BinItems items(file(), features);
                const long descriptors = openDescriptors();
                cases[i].prepare(items);
                const unsigned int code = operation == REG_OP_ADD      ? cases[i].add
                                          : operation == REG_OP_CHANGE ? cases[i].change
                                                                       : cases[i].remove;
                EXPECT_EQ(run(items, operation, 1, b_, operation == REG_OP_ADD ? d_ : changed_), code);
                EXPECT_EQ(contents(), before);
                EXPECT_TRUE((features & DEFERRED) == 0 || !exists(".tmp"));
                expectAtRest(descriptors);
                std::filesystem::remove_all(file() + ".cor");
                std::filesystem::remove(file() + ".tmp");
            }
        }
    }
}

// The verification compares records, so the slot is needed even where the copy is written without it.
TEST_F(BinUpdates, AnAddThatCouldNotBeVerifiedIsRefusedBeforeItIsWritten) {
    for (const unsigned long duplicates : {0UL, DUPLICATES}) {
        contents("");
        BinItems items(file(), PACKED | DEFERRED | duplicates);
        items.matchRecord = nullptr;
        EXPECT_EQ(run(items, REG_OP_ADD, 1, a_, a_), REG_NO_MATCH_RECORD);
        EXPECT_EQ(contents(), "");
        EXPECT_FALSE(exists(".tmp"));
    }
}

TEST_F(BinUpdates, ADamagedFileIsNotRewritten) {
    const std::string whole = binFile({a_, b_});
    for (const auto slots : {BinItems::Slots::Given, BinItems::Slots::All}) {
        for (const std::size_t cut : {whole.size() - 1, whole.size() / 2 + 2}) {
            for (const unsigned long operation : {REG_OP_ADD, REG_OP_CHANGE, REG_OP_DELETE}) {
                contents(whole.substr(0, cut));
                BinItems items(file(), PACKED, slots);
                EXPECT_EQ(run(items, operation, 1, a_, operation == REG_OP_ADD ? d_ : changed_), REG_READ_FAILED);
                EXPECT_EQ(contents(), whole.substr(0, cut));
            }
        }
    }
    std::string lying = whole;
    lying[4] = 60;
    contents(lying);
    BinItems items(file(), PACKED | DEFERRED, BinItems::Slots::All);
    for (const unsigned long operation : {REG_OP_ADD, REG_OP_CHANGE, REG_OP_DELETE}) {
        EXPECT_EQ(run(items, operation, 1, b_, operation == REG_OP_ADD ? d_ : changed_), REG_UNPACK_FAILED);
        EXPECT_EQ(contents(), lying);
    }
}

TEST_F(BinUpdates, FieldsOfLaterReleasesSurviveEveryRewrite) {
    const std::string tail(300, 'T');  // makes the image larger than the record
    const std::string oldTail = binFrame(binImage(a_, tail));
    for (const auto slots : {BinItems::Slots::Given, BinItems::Slots::All}) {
        contents(oldTail + binFrame(binImage(b_, "later")) + binFrame(binImage(c_)));
        BinItems items(file(), PACKED | DEFERRED, slots);
        ASSERT_EQ(run(items, REG_OP_CHANGE, 1, b_, changed_), 0U);
        EXPECT_EQ(contents(), oldTail + binFrame(binImage(changed_, "later")) + binFrame(binImage(c_)));
        ASSERT_EQ(run(items, REG_OP_DELETE, 1, c_, c_), 0U);
        ASSERT_EQ(run(items, REG_OP_ADD, 1, d_, d_), 0U);
        EXPECT_EQ(contents(), oldTail + binFrame(binImage(changed_, "later")) + binFrame(binImage(d_)));
    }
}

// A schema that knows nothing of images at odd places may look at the previous one as a structure.
TEST_F(BinUpdates, AGivenSchemaGetsThePreviousImageAlignedAndWithRoom) {
    contents(binFile({binItem("odd", 1), b_, c_}));
    BinItems items(file(), PACKED);
    items.packRecord = [](void** buffer, void* previousImage) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(previousImage) % alignof(std::max_align_t), 0U);
        const unsigned int rc = BinItems::PackRecord(buffer, previousImage);
        if (previousImage != nullptr) {
            std::memset(previousImage, 0xff, sizeof(BinItem));
        }
        return rc;
    };
    ASSERT_EQ(run(items, REG_OP_DELETE, 1, c_, c_), 0U);
    EXPECT_EQ(contents(), binFile({binItem("odd", 1), b_}));
}

// A schema of records that tell their own size, which a file can make lie.
TEST_F(BinUpdates, ARecordIsNeverWrittenFromBeyondItsBuffer) {
    const auto toldSize = [](void* record, unsigned long* size) {
        *size = static_cast<unsigned long>(static_cast<BinItem*>(record)->value);
        return 0U;
    };
    std::vector<BinItem> large(1000, binItem("large", 84000));
    contents("");
    BinItems items(file());
    items.getRecordSize = toldSize;
    // What the caller hands over is taken at the size that the schema tells for it,
    ASSERT_EQ(items.Add(ITEM_NAME, large.data()), 0U);
    EXPECT_TRUE(contents() == binFrame(std::string(reinterpret_cast<char*>(large.data()), 84000)));
    std::string brief(3, 's');
    items.getRecordSize = [](void*, unsigned long* size) {
        *size = 3;
        return 0U;
    };
    contents("");
    ASSERT_EQ(items.Add(0, brief.data()), 0U);
    EXPECT_EQ(contents(), binFrame("sss"));
    // but not what a file holds.
    items.getRecordSize = toldSize;
    const std::string lying = binFile({binItem("lying", 84000)}, false);
    contents(lying);
    EXPECT_EQ(run(items, REG_OP_DELETE, 1, a_, a_), REG_COPY_WRITE_FAILED);
    EXPECT_EQ(contents(), lying);
}

TEST_F(BinUpdates, AnAppendInPlaceIsWholeOrCutBack) {
    contents(binFile({a_}));
    BinItems items(file(), PACKED | DUPLICATES);
    const long descriptors = openDescriptors();
    const std::string before = contents();
    // Runs apart, for the limit and the signal are the process's.
    EXPECT_EQ(inChild([&] {
                  (void)std::signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit = {before.size() + 6, before.size() + 6};
                  (void)::setrlimit(RLIMIT_FSIZE, &limit);
                  BinItems full(file(), PACKED | DUPLICATES);
                  return run(full, REG_OP_ADD, 1, a_, d_) == REG_RECORD_WRITE_FAILED && read(file()) == before ? 0 : 1;
              }),
              0);
    EXPECT_EQ(contents(), before);
    ASSERT_EQ(run(items, REG_OP_ADD, 1, a_, a_), 0U);
    EXPECT_EQ(contents(), binFile({a_, a_}));
    BinItems::knobs().packResult = 9;
    EXPECT_EQ(run(items, REG_OP_ADD, 1, a_, a_), REG_PACK_FAILED);
    EXPECT_EQ(contents(), binFile({a_, a_}));
    EXPECT_FALSE(exists(".tmp"));
    expectAtRest(descriptors);
}

TEST_F(BinUpdates, ACopyThatFailedVerificationStaysForInspection) {
    const std::string before = binFile({a_, b_, c_});
    contents(before);
    BinItems items(file(), PACKED | DEFERRED);
    BinItems::knobs().tamper = [](std::string* image) {
        if (image->substr(1, 1) == "c") {
            *image = binImage(binItem("x", 1));
        }
    };
    EXPECT_EQ(run(items, REG_OP_CHANGE, 1, b_, changed_), REG_VERIFY_FAILED);
    EXPECT_EQ(contents(), before);
    EXPECT_TRUE(exists(".tmp"));
    EXPECT_EQ(run(items, REG_OP_DELETE, 1, b_, b_), REG_VERIFY_FAILED);
    EXPECT_TRUE(exists(".cor"));
    BinItems::knobs().tamper = nullptr;
    EXPECT_EQ(run(items, REG_OP_CHANGE, 1, b_, changed_), 0U);
    EXPECT_EQ(contents(), binFile({a_, changed_, c_}));
    EXPECT_FALSE(exists(".tmp"));
}

TEST_F(BinUpdates, AnAddWhoseCopyDiffersEarlyIsReportedAndCommittedAllTheSame) {
    contents(binFile({a_, b_}));
    BinItems items(file(), PACKED | DEFERRED);
    BinItems::knobs().tamper = [](std::string* image) {
        if (image->substr(1, 1) == "a") {
            *image = binImage(binItem("x", 1));
        }
    };
    EXPECT_EQ(run(items, REG_OP_ADD, 1, d_, d_), REG_VERIFY_FAILED);
    EXPECT_EQ(contents(), binFile({binItem("x", 1), b_, d_}));
    EXPECT_FALSE(exists(".tmp"));
}

TEST_F(BinUpdates, LogAndNotificationHearOfCommittedChangesOnly) {
    contents(binFile({a_, b_}));
    BinItems items(file(), PACKED | DEFERRED | REG_FEATURE_CHANGE_LOG | REG_FEATURE_NOTIFY);
    auto& heard = BinItems::knobs().heard;
    const auto hears = [&](unsigned long operation, const BinItem& key, const BinItem& record) {
        heard.clear();
        return run(items, operation, 1, key, record);
    };
    EXPECT_EQ(hears(REG_OP_ADD, a_, d_), 0U);
    EXPECT_EQ(heard, (std::vector<std::string>{"4 d -", "notified"}));
    EXPECT_EQ(hears(REG_OP_CHANGE, b_, changed_), 0U);
    EXPECT_EQ(heard, (std::vector<std::string>{"2 b b", "notified"}));
    EXPECT_EQ(hears(REG_OP_DELETE, d_, d_), 0U);
    EXPECT_EQ(heard, (std::vector<std::string>{"8 d -", "notified"}));
    EXPECT_EQ(hears(REG_OP_DELETE, d_, d_), REG_NOT_FOUND);
    EXPECT_EQ(hears(REG_OP_CHANGE, b_, changed_), REG_UNCHANGED);
    EXPECT_EQ(heard, std::vector<std::string>{});
    BinItems::knobs().notifyResult = 9;
    EXPECT_EQ(hears(REG_OP_ADD, d_, d_), 0U);
    EXPECT_EQ(heard.size(), 2U);
    BinItems::knobs().logResult = 9;
    EXPECT_EQ(hears(REG_OP_DELETE, d_, d_), 0U);
    EXPECT_EQ(heard, std::vector<std::string>{"8 d -"});
    items.notifyChange = nullptr;
    BinItems::knobs().logResult = 0;
    EXPECT_EQ(hears(REG_OP_ADD, d_, d_), REG_NO_NOTIFY);
    EXPECT_EQ(contents(), binFile({a_, changed_, d_}));
}

}  // namespace
