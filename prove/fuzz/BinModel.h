// A plain list that does what a registry of items does, and operations that run on either.
#pragma once

#include "tests/support/BinSchema.h"

// What a registry of items should answer and hold: the same operations on a plain list.
class BinModel {
public:
    struct Entry {
        BinItem item;
        std::string tail;
    };
    explicit BinModel(unsigned long features)
        : duplicates_((features & REG_FEATURE_ALLOW_DUPLICATES) != 0),
          deferred_((features & REG_FEATURE_DEFERRED_COMMIT) != 0) {}

    unsigned int Add(unsigned long mask, BinItem* item) {
        if (!duplicates_ && count(mask, *item) > 0) {
            return REG_DUPLICATE;
        }
        entries.push_back({*item, ""});
        return 0;
    }
    unsigned int Change(unsigned long mask, BinItem* key, BinItem* item) {
        std::vector<Entry> changed = entries;
        int different = 0;
        bool equal = false;
        for (Entry& entry : changed) {
            if (matches(mask, entry.item, *key)) {
                const bool same = matches(~0UL, entry.item, *item);
                different += same ? 0 : 1;
                equal = equal || same;
                entry.item = *item;
            }
        }
        if (different > 1 && !duplicates_) {
            return REG_SEVERAL_MATCH;
        }
        if (different == 0 && !equal) {
            return REG_NOT_FOUND;
        }
        if (!equal || !deferred_) {
            entries = changed;
        }
        if (equal) {
            return REG_UNCHANGED;
        }
        return 0;
    }
    unsigned int Delete(unsigned long mask, BinItem* key) {
        const std::size_t found = count(mask, *key);
        if (found == 0) {
            return REG_NOT_FOUND;
        }
        if (found > 1 && !duplicates_) {
            return REG_SEVERAL_MATCH;
        }
        std::erase_if(entries, [&](Entry& entry) { return matches(mask, entry.item, *key); });
        return 0;
    }
    unsigned int Get(unsigned long mask, BinItem* key, BinItem* result) {
        for (Entry& entry : entries) {
            if (matches(mask, entry.item, *key)) {
                *result = entry.item;
                return 0;
            }
        }
        *result = {};
        return REG_NOT_FOUND;
    }
    [[nodiscard]] std::string bytes(bool bigEndian) const {
        std::string file;
        for (const Entry& entry : entries) {
            file += binFrame(binImage(entry.item, entry.tail), bigEndian);
        }
        return file;
    }

    std::vector<Entry> entries;

private:
    static bool matches(unsigned long mask, BinItem& a, BinItem& b) { return BinItems::MatchRecord(mask, &a, &b) == 1; }
    std::size_t count(unsigned long mask, BinItem& key) {
        return static_cast<std::size_t>(std::count_if(entries.begin(), entries.end(),
                                                      [&](Entry& entry) { return matches(mask, entry.item, key); }));
    }

    bool duplicates_;
    bool deferred_;
};

struct BinOperation {
    unsigned int which;  // 0 add, 1 change, 2 delete, 3 get
    unsigned long mask;
    BinItem key, record;

    // On a registry or a model.
    template <typename Registry>
    unsigned int run(Registry& registry, BinItem* result) const {
        BinItem keyGiven = key;
        BinItem recordGiven = record;
        switch (which) {
            case 0:
                return registry.Add(mask, &recordGiven);
            case 1:
                return registry.Change(mask, &keyGiven, &recordGiven);
            case 2:
                return registry.Delete(mask, &keyGiven);
            default:
                return registry.Get(mask, &keyGiven, result);
        }
    }
};
