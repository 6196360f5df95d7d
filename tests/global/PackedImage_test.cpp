// Images that lie.
#include "global/GlobalRecords.h"

namespace {

using namespace std::string_literals;

// A copy on the heap without a byte to spare, so that a sanitizer sees each step outside.
unsigned int check(const std::string& image) {
    const std::unique_ptr<char[]> copy(new char[image.size()]);
    std::memcpy(copy.get(), image.data(), image.size());
    return slots().checkPacked(copy.get(), image.size());
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
    EXPECT_EQ(check(service("s\0x"s + std::string(61, 'y'))), 0U);

    // Unpacked all the same, without the check: cut, never beyond the member.
    const GlobalRegRecord cut = unpacked(service(std::string(200, 's')));
    EXPECT_EQ(std::strlen(cut.body.service.service), 63U);
    EXPECT_EQ(cut.body.service.versionCode, 0U);
}

}  // namespace
