// A binary variable/value file for editing: the library's engine with slots that keep the bytes of a record.
//
// The library compares name and value only, and writes one record in place of all that match. Here two records are
// equal only when their bytes are, and each is edited by itself. The file's bytes are treated as packed images, equal
// to the records, because the engine then checks each frame's length first and hands over the image that is replaced.
#pragma once

#include <genreg/GenRegBinVarVal.h>

#include "entries/EntrySchema.h"

namespace tool {

constexpr std::size_t BINVAR_TEXT_SIZE = sizeof GenRegBinVarValRecord::variable;

// A variable as it is asked for.
struct BinVar {
    std::string name;
    std::optional<int> value;            // none: as it stands
    std::optional<std::string> comment;  // none: as it stands; empty: none

    // The record's bytes with what is asked for.
    [[nodiscard]] std::string rewrite(std::string_view record) const;
};

// The bytes of a file as a line "name = value # comment" for each sound record.
[[nodiscard]] std::string binVarLines(std::string_view bytes);

// The entry of a record, but for its number and its bytes.
[[nodiscard]] Entry describeVariable(const GenRegBinVarValRecord& record);

class BinVarRegistry final : public GenRegBinVarVal, public EntryFile {
public:
    BinVarRegistry(const std::string& path, bool severalAllowed);

    std::vector<Entry> read(const std::string& doing) override;
    unsigned int add(unsigned long mask, EntryEdit& edit) override;
    unsigned int change(const EntryKey& key, const Entry& found, EntryEdit& edit) override;
    unsigned int remove(const EntryKey& key, const Entry& found) override;
    unsigned int begin() override;
    unsigned int commit() override { return CommitBatch(); }
    [[nodiscard]] Entry describe(const std::string& raw) const override;

private:
    BinVarRegistry(const std::string& path, bool severalAllowed, unsigned int code);

    void check(unsigned int code, const std::string& doing) const;
    void useOwnSlots();

    std::string path_;
    bool inBatch_ = false;
};

}  // namespace tool
