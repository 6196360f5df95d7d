#include <genreg/GenRegBin.h>

#include "genreg/core/FunctionTrace.h"

using genreg::Function;
using genreg::FunctionTrace;

GenRegBin::GenRegBin() noexcept {
    const FunctionTrace trace{Function::GenRegBin};
    fileKind = REG_KIND_BINARY;
}

GenRegBin::~GenRegBin() noexcept {
    const FunctionTrace trace{Function::DestroyGenRegBin};
}

unsigned int GenRegBin::CheckFuncPtrs() noexcept {
    FunctionTrace trace{Function::BinCheckFuncPtrs};
    if (validateRecord == nullptr) {
        return trace.fail(10, REG_NO_VALIDATE_RECORD);
    }
    if (getMaxRecordSize == nullptr) {
        return trace.fail(20, REG_NO_GET_MAX_RECORD_SIZE);
    }
    if ((features & REG_FEATURE_PACKED) == 0) {
        return 0;
    }
    if (packRecord == nullptr) {
        return trace.fail(60, REG_NO_PACK_RECORD);
    }
    if (unpackRecord == nullptr) {
        return trace.fail(70, REG_NO_UNPACK_RECORD);
    }
    return 0;
}

void GenRegBin::useShortcuts(GenRegCheckPacked check, GenRegPackedMayMatch mayMatch, GenRegPacksAlike alike) noexcept {
    const FunctionTrace trace{Function::BinUseShortcuts};
    checkPacked = check;
    packedMayMatch = mayMatch;
    packsAlike = alike;
    ways_ = nullptr;
    judgedMatch_ = matchRecord;
    judgedPack_ = packRecord;
    judgedUnpack_ = unpackRecord;
    judgedPackedSize_ = getPackedRecordSize;
    judgedMaxSize_ = getMaxRecordSize;
}
