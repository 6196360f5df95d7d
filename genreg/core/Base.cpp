#include <genreg/GenRegBase.h>

#include "genreg/core/FunctionTrace.h"

using genreg::Function;
using genreg::FunctionTrace;

namespace {
bool isFeature(unsigned long feature) {
    return feature != 0 && feature <= REG_FEATURE_CHECKSUM_HEADER;
}
}  // namespace

GenRegBase::GenRegBase() noexcept {
    const FunctionTrace trace{Function::GenRegBase};
}

GenRegBase::~GenRegBase() noexcept {
    const FunctionTrace trace{Function::DestroyGenRegBase};
}

unsigned int GenRegBase::setFeature(unsigned long feature) noexcept {
    FunctionTrace trace{Function::SetFeature};
    if (!isFeature(feature)) {
        return trace.fail(10, REG_FEATURE_OUT_OF_RANGE);
    }
    features |= feature;
    return 0;
}

unsigned int GenRegBase::unsetFeature(unsigned long feature) noexcept {
    FunctionTrace trace{Function::UnsetFeature};
    if (!isFeature(feature)) {
        return trace.fail(10, REG_FEATURE_OUT_OF_RANGE);
    }
    if ((features & feature) == 0) {
        return trace.fail(20, REG_FEATURE_NOT_SET);
    }
    features &= ~feature;
    return 0;
}

bool GenRegBase::isFeatureSet(unsigned long feature) noexcept {
    FunctionTrace trace{Function::IsFeatureSet};
    return trace.exit((features & feature) != 0 ? 1 : 0) != 0;
}

void GenRegBase::SetChangeLoggingFuncID(unsigned int id) noexcept {
    changeLoggingFuncId = id;
}

unsigned int GenRegBase::GetChangeLoggingFuncID() noexcept {
    FunctionTrace trace{Function::GetChangeLoggingFuncID};
    return trace.exit((features & REG_FEATURE_CHANGE_LOG) != 0 ? changeLoggingFuncId : 0);
}
