// What the tests of the core and of the text engine share: a registry object whose slots and streams are open to the
// test, records, and files.
#pragma once

#include <genreg/GenRegVarVal.h>
#include <genreg/LineUtilities.h>

#include <cstring>

#include "support/Scratch.h"

// Where the constructor of the registry object leaves its code.
struct ConstructorCode {
    unsigned int code = 0;
};

class TextRegistry : public ConstructorCode, public GenRegVarVal {
public:
    explicit TextRegistry(const std::string& path) : GenRegVarVal(path.c_str(), &code) {}
    TextRegistry(const std::string& path, unsigned long wanted) : TextRegistry(path) { features = wanted; }

    using GenRegBase::features;
    using GenRegBase::matchRecord;
    using GenRegBase::notifyChange;
    using GenRegBase::state;
    using GenRegBase::validateRecord;
    using GenRegFile::getMaxRecordSize;
    using GenRegFile::lockPath;
    using GenRegFile::lockPermissions;
    using GenRegFile::regFp;
    using GenRegFile::regPath;
    using GenRegFile::tmpFp;
    using GenRegText::formatLine;
    using GenRegText::lineMayMatch;
    using GenRegText::parseLine;

    unsigned int add(const char* variable, const char* value) {
        GenRegVarValRecord record = pair(variable, value);
        return Add(VARVAL_MATCH_VARIABLE, &record);
    }
    unsigned int change(const char* variable, const char* value) {
        GenRegVarValRecord key = pair(variable, nullptr);
        GenRegVarValRecord record = pair(variable, value);
        return Change(VARVAL_MATCH_VARIABLE, &key, &record);
    }
    unsigned int remove(const char* variable) {
        GenRegVarValRecord key = pair(variable, nullptr);
        return Delete(VARVAL_MATCH_VARIABLE, &key);
    }
    unsigned int get(const char* variable, GenRegVarValRecord* record) {
        GenRegVarValRecord key = pair(variable, nullptr);
        return Get(VARVAL_MATCH_VARIABLE, &key, record);
    }
    // The variables that a scan yields from where it stands, or the code where it does not end well.
    std::string scanned() {
        std::string all;
        GenRegVarValRecord record;
        unsigned int rc = 0;
        while ((rc = GetNext(0, nullptr, &record)) == 0) {
            all += record.variable != nullptr ? record.variable : "-";
            all += ' ';
        }
        return rc == REG_NO_MORE_RECORDS ? all : all + genregCodeName(rc);
    }

    static GenRegVarValRecord pair(const char* variable, const char* value, const char* comment = nullptr) {
        GenRegVarValRecord record = {};
        record.contains = VARVAL_HAS_PAIR | (comment != nullptr ? VARVAL_HAS_COMMENT : 0);
        record.variable = const_cast<char*>(variable);
        record.value = const_cast<char*>(value);
        record.comment = const_cast<char*>(comment);
        return record;
    }
};

// The four ways of updating: deferred commit or not, duplicates allowed or not.
constexpr unsigned long UPDATE_WAYS[] = {0, REG_FEATURE_DEFERRED_COMMIT, REG_FEATURE_ALLOW_DUPLICATES,
                                         REG_FEATURE_DEFERRED_COMMIT | REG_FEATURE_ALLOW_DUPLICATES};

// A directory with the registry "reg" in it; what stands beside it is told by the suffix of the companion.
class RegistryTest : public Scratch {
protected:
    [[nodiscard]] std::string reg() const { return path("reg"); }
    [[nodiscard]] std::string content() const { return read("reg"); }
    // "reg reg.tmp": without the lock file, which is always there.
    [[nodiscard]] std::string names() const { return Scratch::names(".reg.lock"); }
};
