// The same operations on a text registry, on two binary ones (with and without the slots that look into images) and on
// a plain list: the codes, the records found and the files agree after each.
// First byte: 1 deferred commit, 2 duplicates, 4 big-endian lengths, 8 the checksum header. Then two bytes each:
//   operation 0..1, mask 2..3   and   key 0..1 and its value 2..3, record 4..5 and its value 6..7
#include <genreg/GenRegVarVal.h>

#include <cstring>
#include <memory>

#include "BinModel.h"
#include "Fuzz.h"

namespace {

constexpr std::size_t MOST_OPERATIONS = 24;
constexpr const char* PREAMBLE = "# kept\n\n";

// A text registry with the face of one of items: a name and a value each.
class TextItems {
public:
    explicit TextItems(GenRegVarVal& registry) : registry_(registry) {}
    unsigned int Add(unsigned long mask, BinItem* item) {
        Line record(*item);
        return registry_.Add(mask, &record.record);
    }
    unsigned int Change(unsigned long mask, BinItem* key, BinItem* item) {
        Line sought(*key);
        Line record(*item);
        return registry_.Change(mask, &sought.record, &record.record);
    }
    unsigned int Delete(unsigned long mask, BinItem* key) {
        Line sought(*key);
        return registry_.Delete(mask, &sought.record);
    }
    unsigned int Get(unsigned long mask, BinItem* key, BinItem* result) {
        Line sought(*key);
        const auto found = std::make_unique<GenRegVarValRecord>();
        const unsigned int rc = registry_.Get(mask, &sought.record, found.get());
        *result = {};
        if (rc == 0) {
            *result = binItem(found->variable, std::atoi(found->value));
        }
        return rc;
    }

private:
    struct Line {
        explicit Line(const BinItem& item) : variable(item.name), value(std::to_string(item.value)) {
            record.contains = VARVAL_HAS_PAIR;
            record.variable = variable.data();
            record.value = value.data();
        }
        std::string variable, value;
        GenRegVarValRecord record = {};
    };
    GenRegVarVal& registry_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const FuzzFolder folder;
    const FuzzQuiet quiet;
    if (size == 0) {
        return 0;
    }
    const unsigned long both = bytes[0] & (REG_FEATURE_DEFERRED_COMMIT | REG_FEATURE_ALLOW_DUPLICATES);
    const bool bigEndian = (bytes[0] & 4) != 0;
    const bool stamped = (bytes[0] & 8) != 0;
    const unsigned long features = both | REG_FEATURE_PACKED | (bigEndian ? REG_FEATURE_BIG_ENDIAN : 0) |
                                   (stamped ? REG_FEATURE_CHECKSUM_HEADER : 0);
    BinItems plain(folder.write("plain.reg", ""), features);
    BinItems fast(folder.write("fast.reg", ""), features, BinItems::Slots::All);
    unsigned int rc = 0;
    GenRegVarVal text(folder.write("text.reg", PREAMBLE).c_str(), &rc);
    (void)text.unsetFeature(REG_FEATURE_DEFERRED_COMMIT | REG_FEATURE_ALLOW_DUPLICATES);
    (void)text.setFeature(both);
    TextItems textItems(text);
    BinModel model(features);
    for (std::size_t i = 1; i + 1 < size && i < 2 * MOST_OPERATIONS; i += 2) {
        const auto item = [&](unsigned int bits) {
            return binItem(std::string(1, static_cast<char>('a' + (bits & 3))), static_cast<int>(bits >> 2 & 3));
        };
        const BinOperation operation = {bytes[i] & 3U, bytes[i] >> 2 & 3U, item(bytes[i + 1] & 15U),
                                        item(bytes[i + 1] >> 4U)};
        BinItem results[4] = {};
        const unsigned int expected = operation.run(model, &results[0]);
        claim(operation.run(plain, &results[1]) == expected, "the plain way gives the code of the list");
        claim(operation.run(fast, &results[2]) == expected, "the fast way does");
        claim(operation.run(textItems, &results[3]) == expected, "the text registry does");
        for (const BinItem& result : results) {
            claim(std::memcmp(&result, &results[0], sizeof result) == 0, "all find the same record");
        }
        const std::string frames = model.bytes(bigEndian);
        const std::string written = folder.read("plain.reg");
        claim(written == folder.read("fast.reg"), "both ways write the same bytes");
        const bool headed = stamped && written.size() == frames.size() + 32;
        claim(written.substr(headed ? 32 : 0) == frames, "the file holds the list");
        std::string lines = PREAMBLE;
        for (const auto& entry : model.entries) {
            lines += std::string(entry.item.name) + " = " + std::to_string(entry.item.value) + "\n";
        }
        claim(folder.read("text.reg") == lines, "the text file holds the list");
    }
    for (const char* name :
         {"plain.reg.tmp", "fast.reg.tmp", "text.reg.tmp", "plain.reg.cor", "fast.reg.cor", "text.reg.cor"}) {
        (void)::unlink(folder.path(name).c_str());
    }
    return 0;
}
