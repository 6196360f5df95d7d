// Registry objects whose slots and streams are open to the rig of refusals.
#pragma once

#include <genreg/genreg.h>

#include <string>

namespace prove {

// Where a constructor leaves its code: there before the object is.
struct ConstructorCode {
    unsigned int code = 0;
};

class Text : public ConstructorCode, public GenRegVarVal {
public:
    explicit Text(const std::string& path, unsigned long wanted = REG_FEATURE_DEFERRED_COMMIT)
        : GenRegVarVal(path.c_str(), &code) {
        features = wanted;
    }
    using GenRegBase::matchRecord;
    using GenRegFile::getMaxRecordSize;
    using GenRegFile::lockFile;
    using GenRegFile::regFp;
    using GenRegFile::tmpFp;
    using GenRegText::parseLine;
};

class Binary : public ConstructorCode, public GenRegBinVarVal {
public:
    explicit Binary(const std::string& path) : GenRegBinVarVal(path.c_str(), &code) {}
    using GenRegBase::features;
    using GenRegBase::logChange;
    using GenRegBase::matchRecord;
    using GenRegFile::getMaxRecordSize;
};

// Packed, but with images that are the records themselves, and that the schema does not look into.
class Plain : public Binary {
public:
    explicit Plain(const std::string& path) : Binary(path) {
        features = REG_FEATURE_PACKED;
        packRecord = [](void** /*buffer*/, void* /*previousImage*/) { return 0U; };
        unpackRecord = [](void** /*buffer*/) { return 0U; };
        getPackedRecordSize = [](void* /*packed*/, unsigned long* size) {
            *size = sizeof(GenRegBinVarValRecord);
            return 0U;
        };
    }
};

}  // namespace prove
