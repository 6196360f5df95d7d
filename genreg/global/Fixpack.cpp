// The fixpack numbers of this copy's service records, brought up to the running level.

#include <genreg/GlobalReg.h>
#include <genreg/VersionCodes.h>
#include <install/Install.h>
#include <osse/Memory.h>

#include <new>
#include <string_view>

#include "genreg/core/FunctionTrace.h"
#include "genreg/global/Fields.h"

using genreg::boundedText;
using genreg::CauseMark;
using genreg::Function;
using genreg::OperationTrace;

namespace {

// The changes to make, in the order of the file: the scan must be over before the first is made.
class PendingChanges {
public:
    struct Pair {
        GlobalRegRecord found;
        GlobalRegRecord updated;
        Pair* next;
    };

    PendingChanges() noexcept = default;
    ~PendingChanges() noexcept {
        while (first_ != nullptr) {
            Pair* next = first_->next;
            (void)_ossMemFree(first_, "GlobalReg", __LINE__);
            first_ = next;
        }
    }
    PendingChanges(const PendingChanges&) = delete;
    PendingChanges& operator=(const PendingChanges&) = delete;

    [[nodiscard]] bool add(const GlobalRegRecord& found, int fixpackNumber) noexcept {
        void* memory = _ossMemAlloc(sizeof(Pair), "GlobalReg", __LINE__);
        if (memory == nullptr) {
            return false;
        }
        Pair* pair = ::new (memory) Pair{found, found, nullptr};
        pair->updated.body.service.fixpackNumber = fixpackNumber;
        *end_ = pair;
        end_ = &pair->next;
        ++count_;
        return true;
    }
    [[nodiscard]] Pair* first() noexcept { return first_; }
    [[nodiscard]] unsigned long count() const noexcept { return count_; }

private:
    Pair* first_ = nullptr;
    Pair** end_ = &first_;
    unsigned long count_ = 0;
};

// The product's own services; others are left to whoever recorded them.
bool isOwnService(const GlobalRegService& service) noexcept {
    const std::string_view name = boundedText(service.service, sizeof service.service);
    return name == "RVN" || name == "DAS";
}

bool isOutdated(const GlobalRegRecord& record, int fixpackNumber) noexcept {
    return (record.fieldMask & SERVICE_FIXPACK_NUMBER) != 0 && isOwnService(record.body.service) &&
           record.body.service.fixpackNumber != fixpackNumber;
}

// REG_NO_MORE_RECORDS when the scan came to its end.
unsigned int collect(GlobalReg* registry, unsigned long versionCode, int fixpackNumber,
                     PendingChanges* pending) noexcept {
    GlobalRegRecord key = {};
    key.recordType = GLOBALREG_SERVICE;
    key.fieldMask = SERVICE_VERSION_CODE;
    key.body.service.versionCode = versionCode;
    GlobalRegRecord found;
    while (true) {
        if (const unsigned int rc = registry->GetNext(SERVICE_VERSION_CODE, &key, &found)) {
            return rc;
        }
        if (isOutdated(found, fixpackNumber) && !pending->add(found, fixpackNumber)) {
            return REG_NO_MEMORY;
        }
    }
}

// The running level; a level without a sound version must not pass for version 0.
unsigned int runningLevel(unsigned long* versionCode, int* fixpackNumber) noexcept {
    SqleLevelInfo level = {};
    unsigned int rc = sqleGetLevelInfo(SQLE_LEVEL_INFO_VERSION, &level);
    if (rc == 0) {
        rc = ossVersionStringToCode(level.versionString, versionCode);
    }
    *fixpackNumber = static_cast<int>(level.fixpackNumber);
    return rc;
}

}  // namespace

unsigned int genregSyncGlobalRegFixpackNumber(GlobalReg* registry, unsigned long* updated) {
    OperationTrace trace{Function::GenregSyncGlobalRegFixpackNumber};
    if (registry == nullptr) {
        return trace.fail(10, REG_NULL_POINTER);
    }
    registry->SetChangeLoggingFuncID(static_cast<unsigned int>(Function::GenregSyncGlobalRegFixpackNumber));
    unsigned long versionCode = 0;
    int fixpackNumber = 0;
    if (const unsigned int rc = runningLevel(&versionCode, &fixpackNumber)) {
        return trace.fail(20, rc);
    }
    if (const unsigned int rc = registry->OpenScan()) {
        return trace.fail(30, rc);
    }
    PendingChanges pending;
    const CauseMark mark;
    const unsigned int collected = collect(registry, versionCode, fixpackNumber, &pending);
    const unsigned int closed = registry->CloseScan();
    if (collected != REG_NO_MORE_RECORDS) {
        return trace.fail(40, collected);
    }
    if (closed != 0) {
        return trace.fail(50, REG_OPEN_FAILED);
    }
    mark.restore();
    for (PendingChanges::Pair* pair = pending.first(); pair != nullptr; pair = pair->next) {
        if (const unsigned int rc = registry->Change(pair->found.fieldMask, &pair->found, &pair->updated)) {
            return trace.fail(60, rc);
        }
    }
    if (updated != nullptr) {
        *updated = pending.count();
    }
    return trace.exit(0);
}
