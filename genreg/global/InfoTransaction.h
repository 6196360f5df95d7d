// The information functions, once for both families: a schema says what a family's structure holds and which codes its
// functions answer with; the exported functions name their schema.
#pragma once

#include <genreg/GlobalReg.h>

#include <span>
#include <string_view>

#include "genreg/core/Functions.h"
#include "genreg/global/FieldTable.h"

namespace genreg {

// The place of a field in the family's structure; line n of its table is that of the record's field n.
struct InfoMember {
    FieldMember member;
    unsigned long flag = 0;  // not 0: the member is a word of flags, this bit of it stands for a number of 1
    char absent = 0;         // what a flag character reads when the record has none
};

// Whether each field has its place, under its name and of its type and size.
consteval bool holdEach(std::span<const InfoMember> members, std::span<const GlobalRegField> fields) {
    for (unsigned long index = 0; index < members.size() && index < fields.size(); ++index) {
        const auto& [member, flag, absent] = members[index];
        const GlobalRegField& field = fields[index];
        const bool same = member.kind == field.kind && member.capacity == field.capacity &&
                          std::string_view(member.name) == field.name;
        const bool flagOfWord = flag != 0 && member.capacity == sizeof flag && field.kind == GLOBALREG_FIELD_NUMBER &&
                                field.refusedCode != 0;
        if (!same && !flagOfWord) {
            return false;
        }
    }
    return members.size() == fields.size();
}

struct InfoSchema {
    unsigned int recordType;
    unsigned long key;  // bits that name one record
    std::span<const GlobalRegField> fields;
    std::span<const InfoMember> members;
    unsigned int infoNull;
    unsigned int addFailed;
    unsigned int changeFailed;
    unsigned int getFailed;
    unsigned int removeFailed;
    unsigned int nextFailed;
    Function set;
    Function get;
    Function remove;
    Function next;
    Function close;
};

// Either family is found by service, version and one text more (bit 0x4 of its records).
struct InfoKey {
    const char* service;
    unsigned long versionCode;
    const char* third;
};

// `info` points to the schema's structure.
[[nodiscard]] unsigned int setInfo(const InfoSchema& schema, const void* info) noexcept;
[[nodiscard]] unsigned int getInfo(const InfoSchema& schema, const InfoKey& wanted, void* info) noexcept;
[[nodiscard]] unsigned int removeInfo(const InfoSchema& schema, const InfoKey& wanted) noexcept;
[[nodiscard]] unsigned int nextInfo(const InfoSchema& schema, void* handle, void* info) noexcept;
[[nodiscard]] unsigned int closeInfoList(const InfoSchema& schema, void* handle) noexcept;
[[nodiscard]] unsigned int openInstanceList(const char* service, void** handle, bool useDefaultPath) noexcept;
[[nodiscard]] unsigned int openServiceList(void** handle) noexcept;

// A list handle: a registry object with an open scan, and the service that it was opened for.
class GlobalRegList {
public:
    static void setService(GlobalReg* list, const char* service) noexcept { list->listService_ = service; }
    // Null when the list is of all services.
    [[nodiscard]] static const char* service(const GlobalReg* list) noexcept { return list->listService_; }
};

}  // namespace genreg
