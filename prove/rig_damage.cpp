// Damage: every bit of a small registry flipped in turn, and every bit of the temporary copy between its writing and
// its verification.
//
// At rest, whatever bit is flipped: no crash and no hang in look-ups, scans and updates; an update that fails leaves
// the file as it was, and one that succeeds changes just what it was asked to. Where a checksum header stands guard,
// what is read is what was written, or a failure. A checksum by exclusive or cannot see two flips in one bit column;
// how many it let pass is told. In the copy: the update reports REG_VERIFY_FAILED unless the records still read equal
// (or, of a binary change, one record more stands at the end, which passes). The registry stands then, but for the two
// cases in which a binary one is replaced although the failure is reported: an add whose copy differs before its end,
// and more than one record affected where duplicates are not allowed.
#include <genreg/Cause.h>
#include <genreg/Codes.h>
#include <genreg/Constants.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string_view>

#include "prove/support/Cases.h"
#include "prove/support/Folder.h"
#include "prove/support/Place.h"
#include "prove/support/SchemaFace.h"
#include "prove/support/Shared.h"

namespace {

using prove::bytesOf;
using prove::Cases;
using prove::Companions;
using prove::Folder;
using prove::hex;
using prove::Kind;
using prove::openSchema;
using prove::putBytes;
using prove::Row;
using prove::Rows;
using prove::SchemaRegistry;
using prove::Tally;

constexpr unsigned long VERIFIED = REG_FEATURE_DEFERRED_COMMIT;
constexpr unsigned long DUPLICATES = REG_FEATURE_ALLOW_DUPLICATES;
constexpr unsigned long STAMPED = REG_FEATURE_CHECKSUM_HEADER;
constexpr std::size_t HEADER = 32;
constexpr std::size_t FRAME = 40;
constexpr std::size_t RECORD = 36;

constexpr Kind KINDS[] = {{"text, verified", false, VERIFIED},
                          {"text, verified, duplicates", false, VERIFIED | DUPLICATES},
                          {"text", false, 0},
                          {"binary, verified", true, VERIFIED},
                          {"binary, verified, duplicates", true, VERIFIED | DUPLICATES},
                          {"binary", true, 0},
                          {"binary, verified, checksum", true, VERIFIED | STAMPED},
                          {"binary, checksum", true, STAMPED}};

const Rows ROWS = {{"alpha", 1, "one"}, {"beta", 22, "two"}, {"gamma", 333, ""}, {"delta", 4444, "four"}};
const Row ADDED = {"epsilon", 55555, "five"};
const Row CHANGED = {"beta", 2222, "two again"};
constexpr const char* TEXT = "# kept\nalpha = 1 # one\n\nbeta = 22 # two\ngamma=333\n  delta = 4444 # four\n";

bool stamped(const Kind& kind) {
    return (kind.features & STAMPED) != 0;
}

std::string flipped(std::string bytes, std::size_t bit) {
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ 1 << bit % 8);
    return bytes;
}

// What the rig reads from bytes by itself: the pairs of a text's lines, or the records of a binary file's frames.
// Nothing when the frames do not fill the file.
std::optional<Rows> readText(std::string_view bytes) {
    Rows rows;
    while (!bytes.empty()) {
        std::string_view line = bytes.substr(0, bytes.find('\n'));
        bytes.remove_prefix(std::min(bytes.size(), line.size() + 1));
        line = line.substr(0, line.find('\0'));
        line = line.substr(0, line.find('#'));
        const std::size_t equal = line.find('=');
        if (equal == std::string_view::npos) {
            continue;
        }
        const auto trimmed = [](std::string_view text) {
            const std::size_t from = text.find_first_not_of(" \t");
            const std::size_t to = text.find_last_not_of(" \t");
            return from == std::string_view::npos ? std::string() : std::string(text.substr(from, to - from + 1));
        };
        // The value stays text here; it is kept as the comment, so that any difference shows.
        rows.push_back({trimmed(line.substr(0, equal)), 0, trimmed(line.substr(equal + 1))});
    }
    return rows;
}

std::optional<Rows> readFrames(std::string_view bytes) {
    Rows rows;
    while (!bytes.empty()) {
        unsigned int length = 0;
        if (bytes.size() < sizeof length) {
            return std::nullopt;
        }
        std::memcpy(&length, bytes.data(), sizeof length);
        if (length > bytes.size() - sizeof length) {
            return std::nullopt;
        }
        std::string payload(bytes.substr(sizeof length, length));
        bytes.remove_prefix(sizeof length + length);
        payload.resize(RECORD);
        Row row;
        row.name = std::string(payload.data(), ::strnlen(payload.data(), 16));
        std::memcpy(&row.value, payload.data() + 16, sizeof row.value);
        rows.push_back(row);
    }
    return rows;
}

std::optional<Rows> read(const Kind& kind, std::string_view bytes) {
    if (!kind.binary) {
        return readText(bytes);
    }
    return readFrames(stamped(kind) && bytes.size() >= HEADER ? bytes.substr(HEADER) : bytes);
}

// A registry of the four rows.
std::string build(const Kind& kind, const std::string& path) {
    if (!kind.binary) {
        (void)putBytes(path, TEXT);
    } else {
        const auto registry = openSchema(kind, path);
        for (const Row& row : ROWS) {
            if (registry->add(row) != 0) {
                return {};
            }
        }
    }
    return bytesOf(path).value_or("");
}

struct Update {
    const char* name;
    unsigned int (*run)(SchemaRegistry& registry);
};

constexpr Update UPDATES[] = {{"add", [](SchemaRegistry& registry) { return registry.add(ADDED); }},
                              {"change", [](SchemaRegistry& registry) { return registry.change(CHANGED); }},
                              {"delete", [](SchemaRegistry& registry) { return registry.remove("beta"); }}};

// The pieces that an update keeps apart: lines with their newlines, or records. Carrying a frame of another length than
// the record's brings it to the record's, so records of one length are compared.
std::vector<std::string> pieces(const Kind& kind, std::string_view bytes) {
    std::vector<std::string> parts;
    if (stamped(kind)) {
        bytes.remove_prefix(std::min(bytes.size(), HEADER));
    }
    while (!bytes.empty()) {
        std::size_t size = bytes.size();
        if (!kind.binary) {
            size = std::min(size, bytes.find('\n')) + 1;
        } else if (unsigned int length = 0; size >= sizeof length) {
            std::memcpy(&length, bytes.data(), sizeof length);
            size = std::min<std::size_t>(size, length + sizeof length);
        }
        parts.emplace_back(bytes.substr(0, size));
        if (kind.binary) {
            parts.back().erase(0, FRAME - RECORD);
            parts.back().resize(RECORD);
        } else if (parts.back().back() != '\n') {
            parts.back() += '\n';
        }
        bytes.remove_prefix(std::min(bytes.size(), size));
    }
    return parts;
}

// Whether `after` is `before` with one piece more at its end, one other piece, or one piece less.
bool asAsked(const Kind& kind, std::size_t update, const std::string& before, const std::string& after) {
    std::vector<std::string> old = pieces(kind, before);
    std::vector<std::string> fresh = pieces(kind, after);
    std::size_t same = 0;
    while (same < old.size() && same < fresh.size() && old[same] == fresh[same]) {
        ++same;
    }
    if (update == 0) {
        return fresh.size() == old.size() + 1 && same == old.size();
    }
    const std::size_t skipped = same + 1;
    const std::size_t resumed = update == 1 ? skipped : same;
    return same < old.size() && old.size() - skipped == fresh.size() - resumed &&
           std::equal(old.begin() + static_cast<long>(skipped), old.end(), fresh.begin() + static_cast<long>(resumed));
}

// Whether the file is what an update with that code leaves of it.
bool rightlyLeft(const Kind& kind, std::size_t update, unsigned int rc, const std::string& before,
                 const std::string& after) {
    return rc == 0 ? asAsked(kind, update, before, after) : after == before;
}

// Updates that were done right, and the same with something else besides.
void controls(Cases& cases) {
    const Kind& text = KINDS[2];
    const std::string before = "a=1\nb=2\nc=3\n";
    const struct {
        std::size_t update;
        unsigned int rc;
        const char* right;
        const char* wrong;
    } shown[] = {{0, 0, "a=1\nb=2\nc=3\nd=4\n", "a=1\nb=2\nc=4\nd=4\n"},
                 {1, 0, "a=1\nb=3\nc=3\n", "a=1\nb=3\nc=4\n"},
                 {2, 0, "a=1\nc=3\n", "a=1\nc=4\n"},
                 {2, 0, "a=1\nc=3\n", "a=1\n"},
                 {1, 1, "a=1\nb=2\nc=3\n", "a=1\nb=3\nc=3\n"}};
    for (const auto& [update, rc, right, wrong] : shown) {
        (void)cases.check(rightlyLeft(text, update, rc, before, right), "what was asked for is taken for wrong");
        (void)cases.check(!rightlyLeft(text, update, rc, before, wrong), "what nobody asked for passes");
    }
    const Folder folder(true);
    const std::string bytes = build(KINDS[6], folder.file("whole"));
    (void)cases.check(read(KINDS[6], bytes) != read(KINDS[6], flipped(bytes, 8 * (HEADER + 5))),
                      "a flipped bit reads as before");
}

// --- at rest -------------------------------------------------------------------------------------------------------

// What a damaged registry may still tell: under a checksum the true records or a failure; else what stands there.
class AtRest {
public:
    AtRest(const Kind& kind, const Folder& folder, bool knowsHeader)
        : kind_(kind), path_(folder.file("damaged")), knowsHeader_(knowsHeader) {}

    void tryIt(const std::string& bytes, const std::string& what, Tally& tally) const {
        (void)putBytes(path_, bytes);
        lookUp(bytes, what, tally);
        for (std::size_t update = 0; update < std::size(UPDATES); ++update) {
            const auto registry = open();
            const unsigned int rc = UPDATES[update].run(*registry);
            const std::string after = bytesOf(path_).value_or("(gone)");
            const std::string did = what + ", " + UPDATES[update].name + " " + hex(rc);
            (void)tally.check(rightlyLeft(kind_, update, rc, bytes, after), did);
            if (stamped(kind_) && rc == 0) {
                (void)tally.check(read(kind_, bytes) == expected(), did + ": damage went unseen");
            }
            (void)tally.check(registry->lock(REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT) == 0, did + ": left locked");
            (void)registry->unlock();
            if (after != bytes) {
                (void)putBytes(path_, bytes);
            }
        }
    }

    // 0 when the scan gave just the true records, 1 when it failed, 2 when it lied.
    [[nodiscard]] int scan(const std::string& bytes) const {
        (void)putBytes(path_, bytes);
        Rows found;
        if (open()->read(&found) != 0) {
            return 1;
        }
        return found == ROWS ? 0 : 2;
    }

private:
    [[nodiscard]] std::unique_ptr<SchemaRegistry> open() const {
        auto registry = openSchema(kind_, path_);
        if (knowsHeader_) {
            registry->expectHeader();
        }
        return registry;
    }

    // Comments take no part: the checksum's promise holds for them too, but the rig's own reading leaves them out.
    [[nodiscard]] Rows expected() const {
        Rows rows = ROWS;
        for (Row& row : rows) {
            row.comment.clear();
        }
        return rows;
    }

    void lookUp(const std::string& bytes, const std::string& what, Tally& tally) const {
        Rows found;
        const auto registry = open();
        const unsigned int scanned = registry->read(&found);
        if (stamped(kind_)) {
            const bool prefix = found.size() <= ROWS.size() && std::equal(found.begin(), found.end(), ROWS.begin());
            (void)tally.check(prefix && (scanned != 0 || found.size() == ROWS.size()),
                              what + ": a scan gave a wrong record, " + hex(scanned));
        } else if (kind_.binary) {
            const auto own = read(kind_, bytes);
            (void)tally.check((scanned == 0) == own.has_value() && (!own || own->size() == found.size()),
                              what + ": a scan ended otherwise than the file, " + hex(scanned));
        } else {
            (void)tally.check(scanned == 0, what + ": the scan of a text failed, " + hex(scanned));
        }
        for (const Row& row : ROWS) {
            Row got;
            const unsigned int rc = open()->get(row.name, &got);
            const bool good = rc != 0 || (stamped(kind_) ? got == row : got.name == row.name);
            (void)tally.check(good, what + ": look-up of " + row.name + " gave a wrong record");
            if (stamped(kind_)) {
                (void)tally.check(rc != REG_NOT_FOUND, what + ": damage was taken for absence of " + row.name);
            }
        }
    }

    const Kind& kind_;
    std::string path_;
    bool knowsHeader_;
};

void damageAtRest(Cases& cases, const Kind& kind, bool knowsHeader) {
    const Folder folder(true);
    const std::string bytes = build(kind, folder.file("whole"));
    const std::string label = std::string(kind.name) + (knowsHeader ? ", header known" : "");
    if (!cases.check(!bytes.empty(), label + ": no registry to damage")) {
        return;
    }
    const AtRest rest(kind, folder, knowsHeader);
    const auto nameOf = [&](unsigned long bit) { return label + ", bit " + std::to_string(bit); };
    runIsolated(
        cases, 8 * bytes.size(),
        [&](unsigned long bit, Tally& tally) { rest.tryIt(flipped(bytes, bit), nameOf(bit), tally); }, nameOf);
}

// Pairs of flips: in different bit columns of the words all must be seen; in one column the checksum is blind.
void pairsUnderChecksum(Cases& cases, const Kind& kind) {
    const Folder folder(true);
    const std::string bytes = build(kind, folder.file("whole"));
    const AtRest rest(kind, folder, false);
    std::mt19937_64 random(cases.seed());
    const std::size_t bits = 8 * (bytes.size() - HEADER);
    const unsigned long pairs = cases.quick() ? 500 : 20'000;
    unsigned long tried = 0;
    unsigned long unseen = 0;
    for (unsigned long i = 0; i < 2 * pairs; ++i) {
        const bool oneColumn = i % 2 == 0;
        const std::size_t first = random() % bits;
        std::size_t second = random() % bits;
        while (second == first || (first % 32 == second % 32) != oneColumn) {
            second = random() % bits;
        }
        const int outcome = rest.scan(flipped(flipped(bytes, 8 * HEADER + first), 8 * HEADER + second));
        if (!oneColumn) {
            (void)cases.check(outcome == 1, "bits " + std::to_string(first) + " and " + std::to_string(second) +
                                                " of the body flipped unseen");
        } else {
            ++tried;
            unseen += outcome == 2 ? 1U : 0U;
        }
    }
    cases.note("what the checksum cannot see: " + std::to_string(unseen) + " of " + std::to_string(tried) +
               " pairs of flips in one bit column gave a wrong record without a word; of as many pairs in different "
               "columns none may");
}

// --- in the copy ---------------------------------------------------------------------------------------------------

// One update, with one bit of its copy flipped before the verification looks.
class InCopy {
public:
    InCopy(const Kind& kind, const Folder& folder, std::size_t update, std::string before)
        : kind_(kind), path_(folder.file("registry")), companions_(path_), update_(update), before_(std::move(before)) {
        restore();
        const auto registry = openSchema(kind_, path_);
        const std::string copy = companions_.copy;
        registry->beforeVerify([this, copy] { whole_ = bytesOf(copy).value_or(""); });
        (void)UPDATES[update_].run(*registry);
    }

    [[nodiscard]] unsigned long bits() const noexcept { return 8 * whole_.size(); }

    void flip(unsigned long bit, Tally& tally) const {
        restore();
        const std::string damaged = flipped(whole_, bit);
        const auto registry = openSchema(kind_, path_);
        registry->beforeVerify([&] { (void)putBytes(companions_.copy, damaged); });
        const unsigned int rc = UPDATES[update_].run(*registry);
        const std::string after = bytesOf(path_).value_or("(gone)");
        GenRegCause cause = {};
        genregLastCause(&cause);
        const std::string what = nameOf(bit) + ": " + hex(rc) + " for " + hex(cause.code);
        if (rc == 0) {
            (void)tally.check(after == damaged && readsAsMeant(damaged), what + ", a wrong copy was taken");
            return;
        }
        (void)tally.check(rc == REG_VERIFY_FAILED, what + ", not the code of a failed verification");
        const bool mayReplace = kind_.binary && ((update_ == 0 && cause.code == REG_VERIFY_DIFFERS_EARLY) ||
                                                 cause.code == REG_VERIFY_SEVERAL_CHANGED);
        (void)tally.check(after == before_ || (mayReplace && after == damaged), what + ", the registry was replaced");
        if (after == before_) {
            afterwards(damaged, what, tally);
        }
    }

    [[nodiscard]] std::string nameOf(unsigned long bit) const {
        return std::string(kind_.name) + ", " + UPDATES[update_].name + ", bit " + std::to_string(bit) + " of the copy";
    }

private:
    // Kept: of a binary change the verification reports a shorter new file only; a damaged length that makes one frame
    // more at the end passes.
    [[nodiscard]] bool readsAsMeant(const std::string& damaged) const {
        const auto meant = read(kind_, whole_);
        auto found = read(kind_, damaged);
        if (found && kind_.binary && update_ == 1 && found->size() > meant->size()) {
            found->resize(meant->size());
        }
        return found == meant;
    }

    void restore() const {
        (void)::remove(companions_.copy.c_str());
        (void)::remove(companions_.corrupt.c_str());
        (void)putBytes(path_, before_);
    }

    // The refused copy stays for inspection; the next update sets it aside and succeeds.
    void afterwards(const std::string& damaged, const std::string& what, Tally& tally) const {
        (void)tally.check(bytesOf(companions_.copy) == damaged, what + ", the refused copy is gone");
        const unsigned int rc = UPDATES[update_].run(*openSchema(kind_, path_));
        (void)tally.check(rc == 0 && bytesOf(path_) == whole_, what + ", the next update gave " + hex(rc));
        (void)tally.check(bytesOf(companions_.corrupt) == damaged, what + ", the refused copy was not set aside");
    }

    const Kind& kind_;
    std::string path_;
    Companions companions_;
    std::size_t update_;
    std::string before_;
    std::string whole_;
};

void damageInCopy(Cases& cases, const Kind& kind) {
    const Folder folder(true);
    const std::string before = build(kind, folder.file("whole"));
    for (std::size_t update = 0; update < std::size(UPDATES); ++update) {
        const InCopy copy(kind, folder, update, before);
        if (!cases.check(copy.bits() > 0, std::string(kind.name) + ": the copy was not seen before its verification")) {
            continue;
        }
        runIsolated(
            cases, copy.bits(), [&](unsigned long bit, Tally& tally) { copy.flip(bit, tally); },
            [&](unsigned long bit) { return copy.nameOf(bit); });
    }
}

}  // namespace

int main(int argc, char** argv) {
    Cases cases("damage", argc, argv);
    cases.expectAtLeast(cases.quick() ? 190'000 : 208'000);
    controls(cases);
    for (const Kind& kind : KINDS) {
        damageAtRest(cases, kind, false);
        if (stamped(kind)) {
            damageAtRest(cases, kind, true);
        }
        if ((kind.features & VERIFIED) != 0) {
            damageInCopy(cases, kind);
        }
    }
    pairsUnderChecksum(cases, KINDS[6]);
    return cases.finish();
}
