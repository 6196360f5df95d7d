// What the library's schemas say of many frames at a time, beyond their shortcuts (GenRegBin.h). As bound to the
// schema's functions as those, and off while the library is traced.
#pragma once

#include <genreg/GenRegFile.h>

#include <cstddef>

namespace genreg {

enum class Taken {
    No,    // the record surely does not match
    Yes,   // it does, and is the caller's now
    Doubt  // the frame is to be unpacked and asked about; nothing has been done
};

struct FrameWays {
    bool packed;  // of images; else of records as they lie in memory
    // How many bytes in front are frames that can be read and do not match the key (not null) under the mask.
    std::size_t (*passOver)(unsigned long mask, const char* frames, std::size_t length, bool bigEndian,
                            const void* key);
    // The same, of frames that unpacking and packing would write again as they stand. May be null.
    std::size_t (*carryOver)(unsigned long mask, const char* frames, std::size_t length, bool bigEndian,
                             const void* key);
    // Unpacks a record that matches the key, or any where the key is null, to where the caller has it. May be null.
    Taken (*take)(unsigned long mask, const char* payload, std::size_t length, const void* key, void* record);
    // What frames and keys are known by, told without unpacking: the identity of a record that matches a key (not null)
    // is the key's. False for a frame that is to be looked at, whatever the key; for a key that may match records of
    // another identity. Both may be null.
    bool (*identifyFrame)(const char* payload, std::size_t length, unsigned int* identity);
    bool (*identifyKey)(unsigned long mask, const void* key, unsigned int* identity);
    // Of records as they lie in memory: each is as long as the largest. May be null.
    GenRegGetRecordSize recordSize;
};

}  // namespace genreg
