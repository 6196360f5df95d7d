#include "global/GlobalRegistry.h"

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>

#include "base/DiskFiles.h"
#include "base/Failure.h"
#include "base/LockPatience.h"
#include "global/GlobalPath.h"
#include "records/Salvage.h"

namespace tool {
namespace {

constexpr char PATH_VARIABLE[] = "RVN_GLOBAL_REG_PATHNAME";
constexpr unsigned long EVERY_FIELD = ~0UL;

unsigned int match(unsigned long mask, void* record, void* key) {
    if (mask == 0) {
        return 1;
    }
    const auto& found = *static_cast<const GlobalRegRecord*>(record);
    const auto& wanted = *static_cast<const GlobalRegRecord*>(key);
    if (found.recordType != wanted.recordType) {
        return 0;
    }
    // The key's own fields must be there; where all are asked for, no other may.
    const unsigned long compared = mask & kindOf(found.recordType).known;
    const unsigned long presence =
        mask == EVERY_FIELD ? found.fieldMask ^ wanted.fieldMask : wanted.fieldMask & ~found.fieldMask;
    return (presence & compared) == 0 && sameValues(found, wanted, compared) ? 1 : 0;
}

// Asks for the fields of the key alone: a field that is to be removed is in the mask and not in the record.
unsigned int validate(unsigned long mask, void* record) {
    if (mask == 0 || record == nullptr) {
        return 0;
    }
    const RecordKind* kind = findKind(static_cast<const GlobalRegRecord*>(record)->recordType);
    return kind == nullptr ? static_cast<unsigned int>(REG_RECORD_TYPE_INVALID)
                           : GlobalReg::ValidateRecord(mask & kind->keyFields, record);
}

// Of the record that was unpacked last: the library leaves them out.
thread_local LaterItems laterOfLast;

unsigned int unpack(void** buffer) noexcept {
    unsigned long size = 0;
    try {
        (void)GlobalReg::GetPackedRecordSize(*buffer, &size);
        laterOfLast = laterItems({static_cast<const char*>(*buffer), size});
    } catch (const std::bad_alloc&) {
        return REG_NO_UNPACK_BUFFER;
    }
    return GlobalReg::UnpackRecord(buffer);
}

// The images are as little to be trusted whoever unpacks them. Of an unknown type the library's unpacking says so.
unsigned int checkKnown(const void* image, unsigned long length) {
    const unsigned int code = globalRegCheckImage(image, length, nullptr);
    return code == REG_UNKNOWN_RECORD_TYPE ? 0 : code;
}

// What the packing of a record that is added takes for its image before: one with these items alone. A record that is
// carried has one.
thread_local std::string laterImage;

unsigned int packLater(void** buffer, void* previousImage) {
    return GlobalReg::PackRecord(buffer, previousImage == nullptr ? laterImage.data() : previousImage);
}

std::string little(unsigned long number, std::size_t size) {
    std::string bytes;
    for (std::size_t i = 0; i < size; ++i) {
        bytes += static_cast<char>(number >> (8 * i));
    }
    return bytes;
}

std::string imageOf(unsigned int type, const LaterItems& later) {
    unsigned long mask = 0;
    std::string items;
    for (const auto& [bit, bytes] : later) {
        mask |= bit;
        items += little(bytes.size(), 2) + bytes;
    }
    return little(type, 4) + little(mask, 8) + little(0, 8) + items + little(0, 4);
}

}  // namespace

std::string globalRegistryPath(const Context& context) {
    std::string path = globalPath(context).path;
    // The change log names the path by the library's rules, which know nothing of the options.
    if (setenv(PATH_VARIABLE, path.c_str(), 1) != 0) {
        throw systemFailure(ENOMEM, path, "use it as the global registry");
    }
    return path;
}

bool isGlobalRegistry(const Context& context, const std::string& path) {
    if (context.options.registry) {
        return false;
    }
    try {
        return isSameFile(path, globalRegistryPath(context));
    } catch (const Failure&) {
        return false;  // it cannot be told where the global registry lies, and a file was named
    }
}

GlobalRegistry::GlobalRegistry(const Context& context, const std::string& path, bool rehearsal) : path_(path) {
    const unsigned int code = setRegistryPaths(path.c_str());
    if (code != 0) {
        throw libraryFailure(code, path, "use the registry");
    }
    waitPatiently(*this, path);
    matchRecord = match;
    validateRecord = validate;
    features |= layoutFeatures(path);
    SetCommandLine(context.argumentCount, context.arguments);
    if (rehearsal) {
        (void)unsetFeature(REG_FEATURE_CHANGE_LOG | REG_FEATURE_NOTIFY);
    }
}

std::vector<FoundRecord> GlobalRegistry::read(const std::string& doing) {
    std::vector<FoundRecord> records;
    readEach(doing, [&](const FoundRecord& record) { records.push_back(record); });
    return records;
}

void GlobalRegistry::readEach(const std::string& doing, const std::function<void(const FoundRecord& record)>& take) {
    const GenRegCheckPacked check = checkPacked;
    const GenRegPacksAlike alike = packsAlike;
    unpackRecord = unpack;
    useShortcuts(checkKnown, nullptr, nullptr);
    unsigned int code = OpenScan();
    if (code != 0) {
        throw libraryFailure(code, path_, doing);
    }
    const auto record = std::make_unique<FoundRecord>();
    while ((code = GetNext(0, nullptr, static_cast<GlobalRegRecord*>(record.get()))) == 0) {
        record->later = laterOfLast;
        take(*record);
    }
    if (code != REG_NO_MORE_RECORDS) {
        throw libraryFailure(code, path_, doing);
    }
    code = CloseScan();
    if (code != 0) {
        throw libraryFailure(code, path_, doing);
    }
    unpackRecord = UnpackRecord;
    useShortcuts(check, nullptr, alike);
}

unsigned int GlobalRegistry::add(GlobalRegRecord record) {
    return Add(kindOf(record.recordType).keyFields, &record);
}

unsigned int GlobalRegistry::change(GlobalRegRecord found, GlobalRegRecord record) {
    return Change(EVERY_FIELD, &found, &record);
}

unsigned int GlobalRegistry::remove(GlobalRegRecord found) {
    return Delete(EVERY_FIELD, &found);
}

unsigned int GlobalRegistry::removeMatching(GlobalRegRecord key, bool severalAllowed) {
    if (severalAllowed) {
        (void)setFeature(REG_FEATURE_ALLOW_DUPLICATES);
    }
    return Delete(key.fieldMask, &key);
}

unsigned int GlobalRegistry::add(const GlobalRegRecord& record, const LaterItems& later) {
    laterImage = imageOf(record.recordType, later);
    packRecord = later.empty() ? PackRecord : packLater;
    // Quick as below; where an absent field is taken for an empty one, the slot of this class has the last word.
    matchRecord = MatchRecord;
    unsigned int code = add(record);
    matchRecord = match;
    code = code == REG_DUPLICATE ? add(record) : code;
    packRecord = PackRecord;
    return code;
}

// The library's own functions find and compare it, which is quick; they take an absent field for an empty one, and
// where they would see no difference the slots of this class are asked.
unsigned int GlobalRegistry::replace(const FoundRecord& found, const FoundRecord& record) {
    GlobalRegRecord key = found;
    GlobalRegRecord wanted = record;
    if (found.later != record.later) {
        const unsigned int removed = remove(found);
        return removed == 0 ? add(record, record.later) : removed;
    }
    const unsigned long keyFields = kindOf(found.recordType).keyFields;
    if ((keyFields & ~found.fieldMask) != 0 || MatchRecord(EVERY_FIELD, &key, &wanted) != 0) {
        return change(found, record);
    }
    matchRecord = MatchRecord;
    validateRecord = ValidateRecord;
    const unsigned int code = Change(keyFields, &key, &wanted);
    matchRecord = match;
    validateRecord = validate;
    return code;
}

}  // namespace tool
