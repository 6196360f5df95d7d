// What the targets that hold quick ways against plain ones share: what was logged and what is read, as texts, and the
// schemas without a file.
//
// The functions that log stand in the place of the platform's: to be included once in a program.
#pragma once

#include <genreg/Cause.h>
#include <genreg/genreg.h>
#include <osse/Log.h>

#include <initializer_list>
#include <string>

// What was logged goes here, while there is a place for it.
inline std::string* logged = nullptr;

inline void keepLine(std::initializer_list<unsigned int> numbers, const char* text) {
    if (logged != nullptr) {
        for (const unsigned int number : numbers) {
            *logged += std::to_string(number) + " ";
        }
        *logged += std::string(text != nullptr ? text : "-") + "\n";
    }
}

extern "C" {
void ossLog(unsigned int functionId, unsigned int code, unsigned int probe, unsigned int severity, const char* text) {
    keepLine({functionId, code, probe, severity}, text);
}
void ossLogRC(unsigned int functionId, unsigned int code, unsigned int platformCode, unsigned int probe,
              unsigned int severity, const char* text) {
    keepLine({functionId, code, platformCode, probe, severity}, text);
}
}

inline std::string told(const char* text) {
    return text != nullptr ? "|" + std::string(text) + "|" : "(none)";
}

inline std::string bytesOf(const void* record, std::size_t size) {
    return {static_cast<const char*>(record), size};
}

// Of a text record what its fields say, of a binary one all bytes.
inline std::string told(const GenRegVarValRecord& record) {
    return std::to_string(record.contains) + told(record.comment) + told(record.variable) + told(record.value);
}
inline std::string told(const GenRegServicesRecord& record) {
    std::string all = std::to_string(record.flags) + told(record.comment) + told(record.name) +
                      std::to_string(record.port) + told(record.protocol);
    for (char** alias = record.aliases; alias != nullptr && *alias != nullptr; ++alias) {
        all += told(*alias);
    }
    return all;
}
inline std::string told(const GenRegInitTabRecord& record) {
    return std::to_string(record.flags) + told(record.comment) + told(record.id) + told(record.runLevel) +
           told(record.action) + told(record.command);
}
inline std::string told(const GenRegBinVarValRecord& record) {
    return bytesOf(&record, sizeof record);
}
inline std::string told(const GlobalRegRecord& record) {
    return bytesOf(&record, sizeof record);
}

// A call's code and the cause that is kept.
inline std::string told(unsigned int rc) {
    GenRegCause cause = {};
    genregLastCause(&cause);
    return std::to_string(rc) + " " + std::to_string(cause.code) + " " + std::to_string(cause.probe) + " " +
           std::to_string(cause.function);
}

inline unsigned int ignored = 0;
struct VarVal : GenRegVarVal {
    VarVal() : GenRegVarVal("x", &ignored) {}
};
struct Services : GenRegServices {
    Services() : GenRegServices("x", &ignored) {}
};
struct BinVarVal : GenRegBinVarVal {
    BinVarVal() : GenRegBinVarVal("x", &ignored) {}
};
