#include <osse/Log.h>
#include <osse/Time.h>

#include <atomic>
#include <cstring>

#include "../System.h"
#include "DiagnosticFile.h"

namespace {

constexpr unsigned int MOST_TABLES = 16;

struct NameTable {
    std::atomic<const OSSFunctionName*> names = nullptr;  // set last
    unsigned long count = 0;
};

constinit NameTable nameTables[MOST_TABLES];
constinit std::atomic<unsigned int> tablesTaken = 0;

constinit osse::DiagnosticFile logFile;

void writeLine(unsigned int functionId, unsigned int code, const unsigned int* platformCode, unsigned int probe,
               unsigned int severity, const char* text) noexcept {
    const platform::ErrnoKeeper keeper;
    logFile.attach("RVN_DIAG_LOG");
    if (!logFile.isAttached()) {
        return;
    }
    osse::Line line(ossThreadID());
    line.add(" ");
    line.addFunction(functionId);
    line.add(" sev=%u code=0x%08x", severity, code);
    if (platformCode != nullptr) {
        line.add(" rc=0x%08x", *platformCode);
    }
    line.add(" probe=%u", probe);
    if (text != nullptr && *text != '\0') {
        line.add(" ");
        line.addText(text, std::strlen(text));
    }
    logFile.append(line);
}

}  // namespace

void ossLog(unsigned int functionId, unsigned int code, unsigned int probe, unsigned int severity, const char* text) {
    writeLine(functionId, code, nullptr, probe, severity, text);
}

void ossLogRC(unsigned int functionId, unsigned int code, unsigned int platformCode, unsigned int probe,
              unsigned int severity, const char* text) {
    writeLine(functionId, code, &platformCode, probe, severity, text);
}

const char* ecfGetFunctionName(unsigned int functionId) {
    for (const NameTable& table : nameTables) {
        const OSSFunctionName* names = table.names.load(std::memory_order_acquire);
        for (unsigned long i = 0; names != nullptr && i < table.count; ++i) {
            if (names[i].id == functionId) {
                return names[i].name;
            }
        }
    }
    return "UNKNOWN";
}

void ecfRegisterFunctionNames(const OSSFunctionName* table, unsigned long count) {
    if (table == nullptr || tablesTaken.load(std::memory_order_relaxed) >= MOST_TABLES) {
        return;
    }
    const unsigned int place = tablesTaken.fetch_add(1, std::memory_order_relaxed);
    if (place < MOST_TABLES) {
        nameTables[place].count = count;
        nameTables[place].names.store(table, std::memory_order_release);
    }
}
