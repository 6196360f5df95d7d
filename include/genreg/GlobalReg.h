// The machine-wide registry of installed copies (services), their instances and settings (variables).
//
// Which file: RVN_GLOBAL_REG_PATHNAME when set; else, when the administration tool of the instance (RVNINSTANCE) or of
// the installation is a set-user-ID program of root under .../rvnhome/adm/rvntool, .../rvnhome/global.reg; else
// /var/rvn/global.reg. Features: deferred commit, packed, change log, notify; no duplicates.
#pragma once

#include <genreg/GenRegBin.h>
#include <genreg/GlobalRegRecord.h>

#include <cstddef>

namespace genreg {
class GlobalRegList;
}  // namespace genreg

class GENREG_EXPORT GlobalReg : public GenRegBin {
public:
    GlobalReg() noexcept;
    explicit GlobalReg(bool useDefaultPath) noexcept;
    ~GlobalReg() noexcept;

    // Fills the slots, resolves the path, sets the features. An object whose path could not be resolved, is empty or
    // too long has no file: its operations fail.
    void init(bool useDefaultPath) noexcept;

    // From the platform's memory, zero-filled; null when there is none.
    static void* operator new(std::size_t size) noexcept;
    static void operator delete(void* object) noexcept;

    // The command line that the change log shows. The pointers are kept, not copied.
    void SetCommandLine(int count, char** arguments) noexcept;

    static unsigned int MatchRecord(unsigned long mask, void* fileRecord, void* keyRecord) noexcept;
    static unsigned int ValidateRecord(unsigned long mask, void* record) noexcept;
    static unsigned int PrintRecord(void* record) noexcept;
    static unsigned int GetRecordSize(void* record, unsigned long* size) noexcept;
    static unsigned int GetMaxRecordSize(unsigned long* size) noexcept;
    static unsigned int PackRecord(void** buffer, void* previousImage) noexcept;
    static unsigned int UnpackRecord(void** buffer) noexcept;
    static unsigned int GetPackedRecordSize(void* packed, unsigned long* size) noexcept;
    // Appends a line to /tmp/globalreg.debug when somebody has created that file. Always 0.
    static unsigned int Log(GenRegBase* object, unsigned long action, void* first, void* second) noexcept;
    // SIGHUP to the monitor. 0, REG_NOTIFY_FAILED.
    static unsigned int Notify() noexcept;

private:
    friend class genreg::GlobalRegList;  // the lists of the information interface

    int argumentCount_ = 0;
    char** arguments_ = nullptr;
    const char* listService_ = nullptr;
};

extern "C" {

// Where the global registry lies. *length: the buffer's capacity on entry, the length that the path needs, its NUL
// included, on return. 0, REG_PATH_BUFFER_NULL, REG_PATH_BUFFER_TOO_SMALL, REG_NULL_POINTER (length), or
// the platform's code.
GENREG_EXPORT unsigned int GetGlobalRegPathname(char* buffer, unsigned short* length);
// useDefaultPath: nothing but RVN_GLOBAL_REG_PATHNAME wins over /var/rvn/global.reg.
GENREG_EXPORT unsigned int GetGlobalRegPathnameInternal(char* buffer, unsigned short* length, bool useDefaultPath);

// Brings the fixpack number of this copy's service records up to the running level; *updated: how many were changed.
// The first failed change is returned as it stands, and so is what the running level, OpenScan or GetNext failed with.
// REG_OPEN_FAILED when the scan could not be closed, REG_NO_MEMORY, REG_NULL_POINTER (registry; updated may be null).
GENREG_EXPORT unsigned int genregSyncGlobalRegFixpackNumber(GlobalReg* registry, unsigned long* updated);

// Wakes the monitor (SIGHUP to the process that holds the lock on /var/rvn/.fmcd.lock). 0, the platform's code of a
// failed query, REG_SIGNAL_FAILED.
GENREG_EXPORT unsigned int fmcNotify();
}
