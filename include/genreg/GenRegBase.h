// The root of every registry object: the record callbacks common to all registries, state and feature bits.
//
// A schema derives from an engine and fills the slots in its constructor; the engines call through the slots. There is
// no virtual dispatch. One thread uses an object at a time; objects are neither copied nor moved.
//
// What every function in a slot owes the engines (GenRegText.h and GenRegBin.h go on from here, docs/schemas.md has an
// example):
// - It does not throw, and does not use the object that it serves.
// - It keeps nothing of its arguments, which live for the call alone.
// - It depends on its arguments alone: the engines call it as often as they need, twice for one record too.
// A client hands a record in as void*; it is one of the schema's, of GetMaxRecordSize bytes. Null is no record:
// ValidateRecord is to refuse it, but for a key with mask 0, which means that nothing is compared.
#pragma once

#include <genreg/Codes.h>
#include <genreg/Constants.h>
#include <genreg/Export.h>

class GenRegBase;

// 1 when the record matches the key in the fields that the mask selects. With every bit set the engines ask whether two
// records are equal; any answer but 0 is yes then. A record that ParseLine refused comes here too: what it lacks equals
// nothing.
using GenRegMatchRecord = unsigned int (*)(unsigned long mask, void* record, void* key);
// 0 when the record is acceptable; the mask says which fields must be there. Asked about keys and about records that
// are to be written, before any file is touched; any other answer is REG_RECORD_REFUSED to the caller, and its cause.
using GenRegValidateRecord = unsigned int (*)(unsigned long mask, void* record);
// Prints a record to standard output, for diagnostics.
using GenRegPrintRecord = unsigned int (*)(void* record);
// Records a change that was committed: operation REG_OP_CHANGE (key, new record), REG_OP_ADD (record, null) or
// REG_OP_DELETE (key, null). An answer but 0 is logged, and nobody is notified.
using GenRegLogChange = unsigned int (*)(GenRegBase* object, unsigned long operation, void* first, void* second);
// Announces a change that was committed. An answer but 0 is logged; the change stands.
using GenRegNotifyChange = unsigned int (*)();

class GENREG_EXPORT GenRegBase {
public:
    GenRegBase() noexcept;
    ~GenRegBase() noexcept;
    GenRegBase(const GenRegBase&) = delete;
    GenRegBase& operator=(const GenRegBase&) = delete;

    // Sets feature bits; a value of 0 or above 256 is refused with REG_FEATURE_OUT_OF_RANGE.
    unsigned int setFeature(unsigned long feature) noexcept;
    // Clears feature bits. REG_FEATURE_OUT_OF_RANGE; REG_FEATURE_NOT_SET when none of them is set.
    unsigned int unsetFeature(unsigned long feature) noexcept;
    // Whether any of the bits is set.
    bool isFeatureSet(unsigned long feature) noexcept;

    // The function id that the change log names as caller; told only while REG_FEATURE_CHANGE_LOG is set, else 0.
    void SetChangeLoggingFuncID(unsigned int id) noexcept;
    unsigned int GetChangeLoggingFuncID() noexcept;

protected:
    GenRegMatchRecord matchRecord = nullptr;
    GenRegValidateRecord validateRecord = nullptr;
    GenRegPrintRecord printRecord = nullptr;
    GenRegLogChange logChange = nullptr;
    GenRegNotifyChange notifyChange = nullptr;
    unsigned long state = REG_STATE_INITIAL;
    unsigned long features = 0;
    unsigned long fileKind = 0;  // REG_KIND_*
    unsigned int changeLoggingFuncId = 0;

    static constexpr unsigned long REG_KIND_BINARY = 1;
    static constexpr unsigned long REG_KIND_TEXT = 2;
};
