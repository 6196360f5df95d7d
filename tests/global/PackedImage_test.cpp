// Images that lie, and the questions that are answered without unpacking.
#include <random>

#include "global/GlobalRecords.h"

namespace {

using namespace std::string_literals;

// What is read of an image that nobody has checked: its items one behind the other up to the damage, and their values.
void expectItems(const char* image, unsigned long length, unsigned int result, unsigned long damage) {
    GlobalRegRecord read;
    EXPECT_EQ(globalRegReadImage(image, length, &read), result);
    unsigned long seen = 0;
    unsigned long end = 20;
    GlobalRegItem item = {};
    unsigned int rc = 0;
    while ((rc = globalRegNextItem(image, length, &item)) == 0) {
        EXPECT_EQ(item.offset, end);
        EXPECT_EQ(item.bytes, image + item.offset + 2);
        EXPECT_EQ(item.field != nullptr, (item.bit & (read.recordType == GLOBALREG_VARIABLE ? 0x1f : 0x3ff)) != 0);
        EXPECT_GT(item.bit, seen);
        seen |= item.bit;
        end += 2 + item.length;
    }
    EXPECT_EQ(rc, result == 0 ? static_cast<unsigned int>(REG_NO_MORE_RECORDS) : result);
    if (result == 0) {
        EXPECT_EQ(seen, read.fieldMask & ~(1UL << 63));
        GlobalRegRecord whole = unpacked({image, length});
        whole.missingFieldMask = read.missingFieldMask;
        EXPECT_EQ(bytesOf(read), bytesOf(whole));
    } else {
        EXPECT_EQ(item.offset, damage);
    }
}

// A copy on the heap without a byte to spare, so that a sanitizer sees each step outside.
unsigned int check(const std::string& image) {
    const std::unique_ptr<char[]> copy(new char[image.size()]);
    std::memcpy(copy.get(), image.data(), image.size());
    const unsigned int result = slots().checkPacked(copy.get(), image.size());
    unsigned long damage = 0;
    EXPECT_EQ(globalRegCheckImage(copy.get(), image.size(), &damage), result);
    expectItems(copy.get(), image.size(), result, damage);
    return result;
}

// What passed the check may be unpacked, measured, matched and packed.
void use(const std::string& image) {
    GlobalRegRecord record = unpacked(image);
    unsigned long size = 0;
    std::string copy = image;
    EXPECT_EQ(GlobalReg::GetPackedRecordSize(copy.data(), &size), 0U);
    ASSERT_EQ(size, image.size());
    EXPECT_EQ(slots().packsAlike(image.data(), image.size()), pack(record, image) == image);
    EXPECT_TRUE(slots().packedMayMatch(~0UL, image.data(), image.size(), &record));
    EXPECT_EQ(GlobalReg::MatchRecord(~0UL, &record, &record), 1U);
}

std::string soundImage() {
    const std::string path(1023, 'p');
    RecordImage image(GLOBALREG_SERVICE, SERVICE_KNOWN_FIELDS | 1UL << 33);
    image.text("RVN").version().text(path).text("").text("some text");
    return image.number(2).number(0).item("F").number(0).number(1).item("of a later release").end();
}

TEST(PackedImage, EveryTruncationAndEveryTailIsRefused) {
    const std::string sound = soundImage();
    ASSERT_EQ(check(sound), 0U);
    use(sound);
    for (std::size_t length = 0; length < sound.size(); ++length) {
        EXPECT_NE(check(sound.substr(0, length)), 0U) << length;
    }
    EXPECT_EQ(check(sound + '\0'), REG_UNPACK_FAILED);
}

TEST(PackedImage, AMemberIsNeverOverrun) {
    const auto service = [](const std::string& item) { return RecordImage(GLOBALREG_SERVICE, 1).item(item).end(); };
    EXPECT_EQ(check(service(std::string(63, 's'))), 0U) << "the member has room for the NUL";
    EXPECT_EQ(check(service(std::string(63, 's') + '\0')), 0U);
    EXPECT_EQ(check(service(std::string(64, 's'))), REG_UNPACK_FAILED);
    EXPECT_EQ(check(service(std::string(64, 's') + '\0')), REG_UNPACK_FAILED);
    EXPECT_EQ(check(RecordImage(GLOBALREG_SERVICE, SERVICE_FLAG).item("ab").end()), REG_UNPACK_FAILED);
    EXPECT_EQ(check(RecordImage(GLOBALREG_SERVICE, SERVICE_NUMBER1).item("12345").end()), REG_UNPACK_FAILED);
    const std::string endsInside = service("s\0x"s + std::string(61, 'y'));
    EXPECT_EQ(check(endsInside), 0U);
    use(endsInside);

    // Unpacked all the same, without the check: cut, never beyond the member.
    const GlobalRegRecord cut = unpacked(service(std::string(200, 's')));
    EXPECT_EQ(std::strlen(cut.body.service.service), 63U);
    EXPECT_EQ(cut.body.service.versionCode, 0U);
}

// Few enough texts and numbers that keys match often enough.
class Dice {
public:
    explicit Dice(unsigned int seed) : engine_(seed) {}
    unsigned long operator()(unsigned long below) { return engine_() % below; }

    std::string image() {
        const unsigned int type = 1U << (*this)(3);
        unsigned long count = 0;
        const GlobalRegField* fields = globalRegFields(type, &count);
        unsigned long mask = (*this)(1UL << count);
        mask |= (*this)(3) == 0 ? 1UL << (20 + (*this)(44)) : 0;
        RecordImage image(type, mask, (*this)(2) == 0 ? ~0UL : (*this)(0x400));
        for (unsigned long bit = 0; bit < 63; ++bit) {
            if ((mask & 1UL << bit) != 0) {
                const bool text = bit >= count || fields[bit].kind == GLOBALREG_FIELD_TEXT;
                item(text, bit < count ? fields[bit].capacity : 4, &image);
            }
        }
        return image.end(static_cast<unsigned int>((*this)(2)));
    }
    GlobalRegRecord key(const std::string& fileImage) {
        GlobalRegRecord key = unpacked((*this)(3) == 0 ? image() : fileImage);
        key.recordType = (*this)(4) == 0 ? 0 : key.recordType;
        if ((*this)(4) == 0) {
            key.body.variable.service[0] = 'q';
        }
        if ((*this)(4) == 0) {
            key.body.variable.variable[0] = '\0';
        }
        return key;
    }

private:
    void item(bool text, unsigned long capacity, RecordImage* image) {
        if (!text) {
            const unsigned long size = (*this)(8) == 0 ? (*this)(capacity + 1) : capacity;
            image->number((*this)(2), size);
            return;
        }
        static const std::string texts[] = {"a\0"s, "b\0"s, "\0"s, "a\0"s, "\0"s, "b\0"s, "a"s, ""s, "a\0b"s, "a\0\0"s};
        image->item(texts[(*this)((*this)(4) == 0 ? std::size(texts) : 6)]);
    }

    std::mt19937 engine_;
};

TEST(PackedImage, TheFastAnswersAreThoseOfTheRecord) {
    Dice dice(4711);
    int matches = 0;
    int alike = 0;
    for (int round = 0; round < 20000; ++round) {
        const std::string image = dice.image();
        ASSERT_EQ(check(image), 0U);
        GlobalRegRecord record = unpacked(image);
        GlobalRegRecord key = dice.key(image);
        const unsigned long mask = dice(8) == 0 ? ~0UL : dice(0x800);
        const bool match = GlobalReg::MatchRecord(mask, &record, &key) == 1;
        ASSERT_EQ(slots().packedMayMatch(mask, image.data(), image.size(), &key), match) << round;
        const bool same = pack(record, image) == image;
        ASSERT_EQ(slots().packsAlike(image.data(), image.size()), same) << round;
        matches += match ? 1 : 0;
        alike += same ? 1 : 0;
    }
    EXPECT_GT(matches, 2000);
    EXPECT_LT(matches, 18000);
    EXPECT_GT(alike, 2000);
    EXPECT_LT(alike, 18000);
}

}  // namespace
