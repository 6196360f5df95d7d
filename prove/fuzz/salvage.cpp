// A damaged registry, or any bytes: the finder of sound frames tells a stretch of the file once, in order, and finds
// every frame that the damage did not touch; what it saves is a sound registry of just these records.
// First byte: 1 binary variables in place of records of the global registry, 2 the checksum header, 4 big-endian
// lengths, 8 to 32 the number of frames less one, 64 a file of many such pieces, whose time counts, 128 the bytes as
// they are. Then a byte for the length of each frame's text, and the damage: what, where (two bytes), how much, and
// with what.
#include "records/Salvage.h"

#include <genreg/Checksum.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "Fuzz.h"

namespace {

constexpr std::size_t SMALLEST_FRAME = 28;  // of any record

// The input, byte by byte; zeros behind its end.
class Supply {
public:
    Supply(const std::uint8_t* bytes, std::size_t size) : bytes_(bytes), size_(size) {}
    [[nodiscard]] bool isEmpty() const { return at_ >= size_; }
    unsigned int next() { return isEmpty() ? 0 : bytes_[at_++]; }
    std::string take(std::size_t count) {
        std::string taken;
        while (taken.size() < count && !isEmpty()) {
            taken += static_cast<char>(next());
        }
        return taken;
    }

private:
    const std::uint8_t* bytes_;
    std::size_t size_;
    std::size_t at_ = 0;
};

// A byte of the damaged file, and where it stood in the sound one; -1 where the damage put it.
struct Cell {
    char byte;
    long origin;
};

struct Made {
    std::vector<Cell> cells;
    std::vector<std::pair<std::size_t, std::size_t>> frames;  // offset and size in the sound file
};

std::string little(unsigned long value, unsigned int size) {
    std::string bytes;
    for (; size > 0; --size, value >>= 8U) {
        bytes += static_cast<char>(value & 0xffU);
    }
    return bytes;
}

std::string item(const std::string& bytes) {
    return little(bytes.size(), 2) + bytes;
}

std::string imageOf(bool variables, unsigned int text) {
    if (variables) {
        std::string image(36, '\0');
        image.replace(0, 1 + text % 15, 1 + text % 15, 'v');
        image[16] = static_cast<char>(text);
        return image;
    }
    const bool setting = text % 2 != 0;  // of two texts; else an instance, with a version between
    const std::string name(1 + text % 60, 'n');
    return little(setting ? 4 : 1, 4) + little(setting ? 0x3 : 0x7, 8) + little(0, 8) + item(std::string("S\0", 2)) +
           (setting ? "" : item(little(0x0009000700000002, 8))) + item(name + '\0') + little(0, 4);
}

Made make(unsigned int form, Supply& supply) {
    const bool stamped = (form & 2) != 0;
    Made made;
    std::string bytes;
    for (unsigned int left = 1 + (form >> 3 & 7); left > 0; --left) {
        const std::string image = imageOf((form & 1) != 0, supply.next());
        std::string whole = little(image.size(), 4) + image;
        if ((form & 4) != 0) {
            std::reverse(whole.begin(), whole.begin() + 4);
        }
        made.frames.emplace_back(bytes.size() + (stamped ? REG_CHECKSUM_HEADER_SIZE : 0), whole.size());
        bytes += whole;
    }
    if (stamped) {
        std::string header = std::to_string(static_cast<int>(sqlzChecksumXOR(bytes.data(), bytes.size())));
        header.resize(REG_CHECKSUM_HEADER_SIZE);
        bytes.insert(0, header);
    }
    for (const char byte : bytes) {
        made.cells.push_back({byte, static_cast<long>(made.cells.size())});
    }
    return made;
}

void damage(std::vector<Cell>& cells, Supply& supply) {
    const unsigned int what = supply.next() % 3;
    const std::size_t place = (supply.next() | supply.next() << 8U) % (cells.size() + 1);
    const auto at = cells.begin() + static_cast<long>(place);
    const std::size_t count = supply.next() % 64;
    const auto covered = static_cast<long>(std::min(count, cells.size() - place));
    std::vector<Cell> put;
    for (const char byte : what == 2 ? std::string() : supply.take(count)) {
        put.push_back({byte, -1});
    }
    if (what == 0) {
        cells.insert(at, put.begin(), put.end());
    } else if (what == 1) {
        std::copy_n(put.begin(), std::min<long>(covered, static_cast<long>(put.size())), at);
    } else {
        cells.erase(at, at + covered);
    }
}

// Where the frame stands now as it was; none when the damage touched it.
std::optional<std::size_t> placeOf(const std::vector<Cell>& cells, std::size_t offset, std::size_t size) {
    const auto first = std::find_if(cells.begin(), cells.end(),
                                    [&](const Cell& cell) { return cell.origin == static_cast<long>(offset); });
    for (std::size_t i = 0; i < size; ++i) {
        if (cells.end() - first <= static_cast<long>(i) ||
            first[static_cast<long>(i)].origin != static_cast<long>(offset + i)) {
            return std::nullopt;
        }
    }
    return static_cast<std::size_t>(first - cells.begin());
}

std::string bytesOf(const std::vector<Cell>& cells) {
    std::string bytes;
    for (const Cell& cell : cells) {
        bytes += cell.byte;
    }
    return bytes;
}

// What holds of any bytes.
tool::SalvagedRegistry takeApart(const std::string& bytes) {
    tool::SalvagedRegistry found = tool::salvage(bytes, tool::RegistryContent::OTHER);
    std::size_t at = found.layout.records;
    for (const tool::RegistryPart& part : found.parts) {
        claim(part.offset == at && part.size > 0, "the parts follow one another");
        claim(part.framed || !part.damage.empty(), "what is no frame is damage");
        at += part.size;
    }
    claim(at == bytes.size() || (found.parts.empty() && bytes.size() <= at), "the parts are the whole file");
    if (found.content == tool::RegistryContent::OTHER || found.sound().empty()) {
        return found;
    }
    const std::string saved = found.rescued(bytes);
    const tool::SalvagedRegistry again = tool::salvage(saved, tool::RegistryContent::OTHER);
    claim(again.isSound() && again.content == found.content, "what is saved is sound");
    const auto before = found.sound();
    const auto after = again.sound();
    claim(std::equal(before.begin(), before.end(), after.begin(), after.end(),
                     [](const auto* a, const auto* b) { return a->payload == b->payload; }),
          "just the sound records are saved, in their order");
    return found;
}

void claimFound(const Made& made, unsigned int form) {
    const std::string bytes = bytesOf(made.cells);
    const tool::SalvagedRegistry found = takeApart(bytes);
    std::vector<bool> untouched(bytes.size(), false);
    std::vector<std::pair<std::size_t, std::size_t>> expected;
    for (const auto& [offset, size] : made.frames) {
        if (const auto place = placeOf(made.cells, offset, size)) {
            expected.emplace_back(*place, size);
            std::fill_n(untouched.begin() + static_cast<long>(*place), size, true);
        }
    }
    if (expected.empty()) {
        return;
    }
    const auto kind = (form & 1) != 0 ? tool::RegistryContent::VARIABLES : tool::RegistryContent::GLOBAL;
    const bool bigEndian = (found.layout.features & REG_FEATURE_BIG_ENDIAN) != 0;
    if (found.content != kind || bigEndian != ((form & 4) != 0)) {
        const auto others = static_cast<std::size_t>(std::count(untouched.begin(), untouched.end(), false));
        claim(others >= SMALLEST_FRAME, "a record of another kind or order takes its bytes");
        return;
    }
    const auto sound = found.sound();
    for (const auto& [place, size] : expected) {
        // What begins in the damage may be a record that reaches into the next one.
        const bool there =
            std::any_of(sound.begin(), sound.end(), [&, place = place, size = size](const tool::RegistryPart* part) {
                return (part->offset == place && part->size == size) ||
                       (!untouched[part->offset] && part->offset < place && part->offset + part->size > place);
            });
        claim(there, "a frame that the damage did not touch is found");
    }
}

// Pieces of it, one behind the other: the time that they take is no more than theirs together.
void claimSwift(const std::string& piece) {
    constexpr std::size_t LARGE = 1U << 15U;
    constexpr std::chrono::seconds LONGEST{5};
    std::string bytes;
    while (!piece.empty() && bytes.size() < LARGE) {
        bytes += piece;
    }
    const auto start = std::chrono::steady_clock::now();
    (void)tool::salvage(bytes, tool::RegistryContent::OTHER);
    claim(std::chrono::steady_clock::now() - start < LONGEST, "the time grows with the bytes alone");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Supply supply(bytes, size);
    const unsigned int form = supply.next();
    Made made;
    if ((form & 128) != 0) {
        const std::string any = supply.take(size);
        (void)takeApart(any);
        if ((form & 64) != 0) {
            claimSwift(any);
        }
        return 0;
    }
    made = make(form, supply);
    while (!supply.isEmpty()) {
        damage(made.cells, supply);
    }
    claimFound(made, form);
    if ((form & 64) != 0) {
        claimSwift(bytesOf(made.cells));
    }
    return 0;
}
