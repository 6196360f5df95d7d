#include <genreg/GlobalReg.h>
#include <osse/Memory.h>

#include "genreg/bin/Frames.h"
#include "genreg/core/FunctionTrace.h"
#include "genreg/global/ImageWays.h"
#include "genreg/global/PackedImage.h"

using genreg::checkImage;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::imageMayMatch;
using genreg::imagePacksAlike;

GlobalReg::GlobalReg() noexcept : GlobalReg(false) {}

GlobalReg::GlobalReg(bool useDefaultPath) noexcept {
    FunctionTrace trace{Function::GlobalReg};
    init(useDefaultPath);
}

GlobalReg::~GlobalReg() noexcept {
    FunctionTrace trace{Function::DestroyGlobalReg};
}

void GlobalReg::init(bool useDefaultPath) noexcept {
    FunctionTrace trace{Function::GlobalInit};
    validateRecord = ValidateRecord;
    matchRecord = MatchRecord;
    printRecord = PrintRecord;
    getMaxRecordSize = GetMaxRecordSize;
    getRecordSize = GetRecordSize;
    packRecord = PackRecord;
    unpackRecord = UnpackRecord;
    getPackedRecordSize = GetPackedRecordSize;
    useShortcuts(checkImage, imageMayMatch, imagePacksAlike);
    genreg::BinFrames::useWays(*this, genreg::IMAGE_WAYS);
    logChange = Log;
    notifyChange = Notify;

    state &= ~REG_STATE_CONFIGURED;
    char path[REG_PATH_SIZE];
    unsigned short length = sizeof path;
    unsigned int rc = GetGlobalRegPathnameInternal(path, &length, useDefaultPath);
    if (rc == 0) {
        rc = setRegistryPaths(path);
    }
    if (rc != 0) {
        trace.ignore(10, rc);
        regPath[0] = bkpPath[0] = tmpPath[0] = corPath[0] = lockPath[0] = '\0';
    }

    features &= ~REG_FEATURE_ALLOW_DUPLICATES;
    features |= REG_FEATURE_DEFERRED_COMMIT | REG_FEATURE_PACKED | REG_FEATURE_CHANGE_LOG | REG_FEATURE_NOTIFY;
    SetChangeLoggingFuncID(0);
}

void* GlobalReg::operator new(std::size_t size) noexcept {
    FunctionTrace trace{Function::GlobalOperatorNew};
    void* object = _ossMemAlloc(size, "GlobalReg", __LINE__);
    if (object == nullptr) {
        (void)trace.fail(10, REG_NO_PACK_BUFFER);
    }
    return object;
}

void GlobalReg::operator delete(void* object) noexcept {
    FunctionTrace trace{Function::GlobalOperatorDelete};
    if (_ossMemFree(object, "GlobalReg", __LINE__) != 0) {
        trace.ignore(10, REG_FREE_PACK_BUFFER_FAILED);
    }
}

void GlobalReg::SetCommandLine(int count, char** arguments) noexcept {
    FunctionTrace trace{Function::SetCommandLine};
    argumentCount_ = count;
    arguments_ = arguments;
}
