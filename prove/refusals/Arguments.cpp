// What a client must not hand in, to whichever area.

#include "prove/refusals/Refusals.h"

namespace prove {

void Refusals::nullArguments() {
    char line[REG_LINE_SIZE] = {};
    GenRegVarValRecord nameless = pair(nullptr, "value");
    GenRegVarValRecord valueless = pair("name", nullptr);
    unsigned long size = 0;
    void* buffer = nullptr;
    unsigned short length = 0;
    Binary binary(file_);
    unsigned int rc = 0;
    unsigned long version = 0;
    const auto refused = [&](const char* function, unsigned int code, const std::function<unsigned int()>& provoke) {
        expect({function, 10, code}, provoke);
    };
    refused("ExtractNextField", REG_INVALID_ARGUMENT, [] { return ExtractNextField(nullptr, nullptr); });
    refused("StripWhiteSpace", REG_EMPTY_ARGUMENT, [] { return StripWhiteSpace(nullptr); });
    refused("GenRegWriteLine", REG_INVALID_ARGUMENT, [] { return GenRegWriteLine(nullptr, 80, nullptr); });
    refused("GenRegReadLine", REG_INVALID_ARGUMENT, [&] {
        (void)GenRegReadLine(nullptr, nullptr, 0, nullptr, &rc, false);
        return rc;
    });
    using Callback = unsigned int (*)(void*);
    const std::pair<const char*, Callback> records[] = {
        {"GenRegVarVal::PrintRecord", GenRegVarVal::PrintRecord},
        {"GenRegServices::PrintRecord", GenRegServices::PrintRecord},
        {"GenRegInitTab::PrintRecord", GenRegInitTab::PrintRecord},
        {"GenRegBinVarVal::PrintRecord", GenRegBinVarVal::PrintRecord},
        {"GenRegVarVal::ValidateRecord", [](void* record) { return GenRegVarVal::ValidateRecord(0, record); }},
        {"GenRegServices::ValidateRecord", [](void* record) { return GenRegServices::ValidateRecord(0, record); }},
        {"GenRegInitTab::ValidateRecord", [](void* record) { return GenRegInitTab::ValidateRecord(0, record); }},
        {"GenRegVarVal::ParseLine", [](void* record) { return GenRegVarVal::ParseLine(record, ""); }},
        {"GenRegServices::ParseLine", [](void* record) { return GenRegServices::ParseLine(record, ""); }},
        {"GenRegInitTab::ParseLine", [](void* record) { return GenRegInitTab::ParseLine(record, ""); }},
        {"GenRegVarVal::FormatLine", [](void* record) { return GenRegVarVal::FormatLine(record, nullptr); }},
        {"GenRegServices::FormatLine", [](void* record) { return GenRegServices::FormatLine(record, nullptr); }},
        {"GenRegInitTab::FormatLine", [](void* record) { return GenRegInitTab::FormatLine(record, nullptr); }},
    };
    for (const auto& [function, callback] : records) {
        refused(function, REG_EMPTY_ARGUMENT, [callback = callback] { return callback(nullptr); });
    }
    expect({"GenRegBinVarVal::MatchRecord", 10, REG_EMPTY_ARGUMENT}, 0,
           [] { return GenRegBinVarVal::MatchRecord(0, nullptr, nullptr); });
    refused("fromBigEndianUint32", REG_NULL_POINTER, [] { return fromBigEndianUint32(nullptr, nullptr); });
    refused("toBigEndianUint32", REG_NULL_POINTER, [] { return toBigEndianUint32(nullptr, 0); });
    refused("genregLockStatus", REG_NULL_POINTER, [] { return genregLockStatus(nullptr, nullptr); });
    refused("genregSyncGlobalRegFixpackNumber", REG_NULL_POINTER,
            [] { return genregSyncGlobalRegFixpackNumber(nullptr, nullptr); });
    refused("ossVersionStringToCode", REG_VERSION_NULL, [&] { return ossVersionStringToCode(nullptr, &version); });
    refused("setPaths", REG_EMPTY_ARGUMENT, [] { return GenRegInitTab().setPaths(nullptr); });
    expect({"GenRegVarVal::FormatLine", 20, REG_NAME_MISSING},
           [&] { return GenRegVarVal::FormatLine(&nameless, line); });
    expect({"GenRegVarVal::FormatLine", 20, REG_VALUE_MISSING},
           [&] { return GenRegVarVal::FormatLine(&valueless, line); });
    expect({"ReadRecord", 5, REG_NULL_POINTER}, [&] { return binary.ReadRecord(nullptr, &buffer, &size); });
    expect({"WriteRecord", 5, REG_NULL_POINTER}, [&] { return binary.WriteRecord(nullptr, nullptr); });
    expect({"GetGlobalRegPathnameInternal", 20, REG_NULL_POINTER},
           [&] { return GetGlobalRegPathnameInternal(line, nullptr, true); });
    expect({"GetGlobalRegPathnameInternal", 10, REG_PATH_BUFFER_NULL},
           [&] { return GetGlobalRegPathnameInternal(nullptr, &length, true); });
}

// A schema whose records are too small to be handed out.
void Refusals::smallRecords() {
    lay("a = 1\n");
    Text text(file_);
    text.getMaxRecordSize = [](unsigned long* size) {
        *size = REG_MIN_RECORD_SIZE;
        return 0U;
    };
    text.parseLine = [](void* /*record*/, const char* /*line*/) { return 0U; };
    text.matchRecord = [](unsigned long /*mask*/, void* /*record*/, void* /*key*/) { return 1U; };
    GenRegVarValRecord key = pair("a", nullptr);
    GenRegVarValRecord found = {};
    expect({"GenRegText::Get", 120, REG_RECORD_SIZE_REFUSED},
           [&] { return text.Get(VARVAL_MATCH_VARIABLE, &key, &found); });
}

}  // namespace prove
