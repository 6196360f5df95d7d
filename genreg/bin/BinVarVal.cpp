// The binary variable/value schema: its record callbacks.
#include <genreg/GenRegBinVarVal.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "genreg/bin/Frames.h"

using genreg::Function;
using genreg::FunctionTrace;

namespace {

// A frame of another length than a record's is left in doubt.
std::size_t passRecords(unsigned long matchType, const char* frames, std::size_t length, bool bigEndian,
                        const void* key) noexcept {
    const auto& sought = *static_cast<const GenRegBinVarValRecord*>(key);
    if ((matchType & BINVARVAL_MATCH_VARIABLE) == 0) {
        return 0;
    }
    std::size_t at = 0;
    for (genreg::Frame frame = {}; genreg::frameAt(bigEndian, frames, length, at, &frame);) {
        const char* const variable = frame.payload + offsetof(GenRegBinVarValRecord, variable);
        if (frame.length != sizeof sought || std::strncmp(variable, sought.variable, sizeof sought.variable) == 0) {
            break;
        }
        at += genreg::FRAME_LENGTH_SIZE + frame.length;
    }
    return at;
}

// A frame that is too short for it has none of the name, as if zeros stood behind it.
bool identifyFrame(const char* payload, std::size_t length, unsigned int* identity) noexcept {
    constexpr std::size_t PLACE = offsetof(GenRegBinVarValRecord, variable);
    const std::size_t most = length < PLACE ? 0 : std::min(length - PLACE, sizeof GenRegBinVarValRecord::variable);
    *identity = genreg::mixIdentity(0, payload + PLACE, ::strnlen(payload + PLACE, most));
    return true;
}

bool identifyKey(unsigned long matchType, const void* key, unsigned int* identity) noexcept {
    const auto& sought = *static_cast<const GenRegBinVarValRecord*>(key);
    *identity = genreg::mixIdentity(0, sought.variable, ::strnlen(sought.variable, sizeof sought.variable));
    return (matchType & BINVARVAL_MATCH_VARIABLE) != 0;
}

constexpr genreg::FrameWays RECORD_WAYS = {
    false, passRecords, nullptr, nullptr, identifyFrame, identifyKey, GenRegBinVarVal::GetRecordSize};

}  // namespace

static_assert(sizeof(GenRegBinVarValRecord) == 36, "the record in memory is the payload of the frame");

GenRegBinVarVal::GenRegBinVarVal(const char* path, unsigned int* rc) noexcept {
    FunctionTrace trace{Function::GenRegBinVarVal};
    *rc = setRegistryPaths(path);
    if (*rc == REG_EMPTY_ARGUMENT || *rc == REG_PATH_TOO_LONG) {
        (void)trace.fail(10, *rc);
        return;
    }
    matchRecord = MatchRecord;
    validateRecord = ValidateRecord;
    printRecord = PrintRecord;
    getRecordSize = GetRecordSize;
    getMaxRecordSize = GetMaxRecordSize;
    useShortcuts(nullptr, nullptr, nullptr);
    genreg::BinFrames::useWays(*this, RECORD_WAYS);
    if (*rc != 0) {
        (void)trace.fail(20, *rc);
        return;
    }
    features |= REG_FEATURE_DEFERRED_COMMIT | REG_FEATURE_ALLOW_DUPLICATES;
}

GenRegBinVarVal::~GenRegBinVarVal() noexcept {
    const FunctionTrace trace{Function::DestroyGenRegBinVarVal};
}

unsigned int GenRegBinVarVal::MatchRecord(unsigned long matchType, void* fileRecord, void* keyRecord) noexcept {
    FunctionTrace trace{Function::BinVarValMatchRecord};
    if (fileRecord == nullptr || keyRecord == nullptr) {
        trace.ignore(10, REG_EMPTY_ARGUMENT);
        return trace.exit(0);
    }
    const auto& stored = *static_cast<const GenRegBinVarValRecord*>(fileRecord);
    const auto& sought = *static_cast<const GenRegBinVarValRecord*>(keyRecord);
    // A name from a file may lack its terminator.
    const bool matches = ((matchType & BINVARVAL_MATCH_VARIABLE) == 0 ||
                          std::strncmp(stored.variable, sought.variable, sizeof stored.variable) == 0) &&
                         ((matchType & BINVARVAL_MATCH_VALUE) == 0 || stored.value == sought.value);
    return trace.exit(matches ? 1 : 0);
}

unsigned int GenRegBinVarVal::ValidateRecord(unsigned long /*matchType*/, void* /*record*/) noexcept {
    FunctionTrace trace{Function::BinVarValValidateRecord};
    return trace.exit(0);
}

unsigned int GenRegBinVarVal::PrintRecord(void* record) noexcept {
    FunctionTrace trace{Function::BinVarValPrintRecord};
    if (record == nullptr) {
        (void)std::printf("   Variable = NULL\n");
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    const auto& printed = *static_cast<const GenRegBinVarValRecord*>(record);
    (void)std::printf("   Variable = |%.16s|\n", printed.variable);
    (void)std::printf("   Value    = %i\n", printed.value);
    (void)std::printf("   Comment  = |%.16s|\n", printed.comment);
    return 0;
}

unsigned int GenRegBinVarVal::GetRecordSize(void* /*record*/, unsigned long* size) noexcept {
    FunctionTrace trace{Function::BinVarValGetRecordSize};
    *size = sizeof(GenRegBinVarValRecord);
    return trace.exit(0);
}

unsigned int GenRegBinVarVal::GetMaxRecordSize(unsigned long* size) noexcept {
    FunctionTrace trace{Function::BinVarValGetMaxRecordSize};
    *size = sizeof(GenRegBinVarValRecord);
    return trace.exit(0);
}
