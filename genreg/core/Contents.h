// The records of a registry in memory, and an index of them by identity.
//
// A search or an update is answered by the very steps that read a file. The index only leaves out records that those
// steps would pass by without a word: the candidates of a key, and every record of which the schema cannot tell without
// parsing it, are shown to them, in the order of the file.
#pragma once

#include "genreg/core/Identity.h"
#include "genreg/core/Input.h"

namespace genreg {

// What an engine tells of records without parsing them.
class PlaceSteps {
public:
    // The identity of a record that matches the key under the mask; false when it may have any.
    [[nodiscard]] virtual bool identityOf(unsigned long mask, const void* key, unsigned int* identity) noexcept = 0;
    // Goes on to the next record. What stands in front of where the input is then belongs to it.
    [[nodiscard]] virtual Place nextPlace(Input& input, unsigned int* identity) noexcept = 0;

protected:
    ~PlaceSteps() = default;
};

class Contents {
public:
    static constexpr unsigned long LARGEST = 0x7fff0000;  // in bytes
    static constexpr unsigned long MOST = ~0UL;           // that an index and the bytes may take: any

    Contents() noexcept = default;
    ~Contents() noexcept { drop(); }
    Contents(const Contents&) = delete;
    Contents& operator=(const Contents&) = delete;

    // Room for so many bytes, which the caller fills; null without memory for it, or beyond the largest.
    [[nodiscard]] char* make(unsigned long size) noexcept;
    // Bytes of malloc's, which are the contents from now on.
    void adopt(char* bytes, unsigned long size) noexcept;
    void drop() noexcept;

    // All of them, in one piece: what was put or left out since has to be packed first.
    [[nodiscard]] const char* bytes() const noexcept { return bytes_; }
    [[nodiscard]] unsigned long size() const noexcept { return size_; }
    [[nodiscard]] bool pack() noexcept;

    // Whether there is an index that was made for these features of the object. All that it and the bytes take is no
    // more than so much.
    [[nodiscard]] bool index(PlaceSteps& steps, unsigned long features, unsigned long mostBytes) noexcept;

    [[nodiscard]] bool isIndexed() const noexcept { return entries_ != nullptr; }
    [[nodiscard]] bool hasIndex(unsigned long features) const noexcept {
        return isIndexed() && indexFeatures_ == features;
    }

    // Bytes of the contents: a record that is Known, or any that are to be looked through.
    struct Part {
        const char* bytes;
        unsigned long length;
        bool known;
        unsigned int place;  // among the records, in the order of the file
    };
    class Candidates;

    // A record that takes the place of another one, or comes behind all of them.
    struct Record {
        const char* bytes;
        unsigned long length;
        bool known;
        unsigned int identity;
    };
    // Changes of the records behind an index, after a call that has made room for their bytes and for one record more;
    // false without memory.
    [[nodiscard]] bool makeRoom(unsigned long bytes) noexcept;
    void put(unsigned int place, const Record& record) noexcept;
    void append(const Record& record) noexcept;
    void leaveOut(unsigned int place) noexcept;
    // Behind them: gives room back where they have used up much, and the index anew where it has become short.
    void tidy() noexcept;
    // The same, of bytes behind all of them, where there is no index.
    void extend(const char* bytes, unsigned long length) noexcept;
    // The last of the records, or, where there is no index, all of them in one; its length is 0 where there is none.
    [[nodiscard]] Part last() const noexcept;

private:
    struct Entry {
        unsigned int offset;
        unsigned int length : 31;  // 0: it is left out
        unsigned int known : 1;
        unsigned int identity;
        unsigned int next;  // of the same list, behind this one in the file; NONE
    };
    static constexpr unsigned int NONE = ~0U;

    void dropIndex() noexcept;
    [[nodiscard]] bool fillIndex(PlaceSteps& steps, unsigned int records) noexcept;
    [[nodiscard]] unsigned int& headOf(const Entry& entry) noexcept {
        return entry.known != 0 ? heads_[entry.identity & headsMask_] : doubtful_;
    }
    [[nodiscard]] unsigned int after(unsigned int at, unsigned int identity) const noexcept;
    void link(unsigned int place) noexcept;
    void unlink(unsigned int place) noexcept;
    void fill(Entry& entry, const Record& record) noexcept;
    [[nodiscard]] Part partOf(unsigned int place) const noexcept;

    char* bytes_ = nullptr;
    unsigned long size_ = 0;      // of the records
    unsigned long used_ = 0;      // of the bytes: what was replaced is among them
    unsigned long capacity_ = 0;  // of the bytes
    bool packed_ = true;          // the bytes are the records, in their order

    bool indexTried_ = false;
    unsigned long indexFeatures_ = 0;  // of the object when it was made
    Entry* entries_ = nullptr;         // null: there is no index
    unsigned int count_ = 0;
    unsigned int entryRoom_ = 0;
    unsigned int* heads_ = nullptr;  // of the lists, by identity
    unsigned int headsMask_ = 0;
    unsigned int doubtful_ = NONE;  // the head of their list
};

// What may be what is looked for, in the order of the file: all of it where the index does not speak for the search.
class Contents::Candidates {
public:
    explicit Candidates(const Contents& contents) noexcept : contents_(contents), all_(true) {}
    // Of this identity, by the index.
    Candidates(const Contents& contents, unsigned int identity) noexcept;
    // False when there is no other.
    [[nodiscard]] bool next(Part* part) noexcept;

private:
    const Contents& contents_;
    bool all_;
    unsigned int identity_ = 0;
    unsigned int known_ = NONE;
    unsigned int doubtful_ = NONE;
};

}  // namespace genreg
