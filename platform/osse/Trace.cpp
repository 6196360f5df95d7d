#include <osse/Trace.h>

#include <algorithm>

#include "../System.h"
#include "DiagnosticFile.h"

int gtraceState = 0;

namespace {

constinit osse::DiagnosticFile traceFile;

[[gnu::constructor]] void attachTrace() {
    traceFile.attach("RVN_TRACE");
    if (traceFile.isAttached()) {
        gtraceState = GTRACE_ATTACHED | GTRACE_ENABLED;
    }
}

osse::Line begin(char mark, unsigned int functionId, unsigned long threadId) noexcept {
    osse::Line line(threadId);
    line.add(" %c ", mark);
    line.addFunction(functionId);
    return line;
}

// As text when it is nothing but text, with or without its NUL.
void addValue(osse::Line& line, const void* value, unsigned long size) noexcept {
    if (value == nullptr) {
        line.add(" null");
        return;
    }
    const char* text = static_cast<const char*>(value);
    const char* end = std::find(text, text + size, '\0');
    const bool terminated = static_cast<unsigned long>(end - text) + 1 >= size;
    line.add(" ");
    if (terminated && std::all_of(text, end, [](char byte) { return byte >= ' ' && byte <= '~'; })) {
        line.addText(text, static_cast<std::size_t>(end - text));
    } else {
        line.addHex(static_cast<const unsigned char*>(value), size);
    }
}

void writeValue(char mark, unsigned int functionId, unsigned long threadId, unsigned int probe, unsigned long size,
                const void* value) noexcept {
    if (!traceFile.isAttached()) {
        return;
    }
    const platform::ErrnoKeeper keeper;
    osse::Line line = begin(mark, functionId, threadId);
    line.add(" %u", probe);
    addValue(line, value, size);
    traceFile.append(line);
}

}  // namespace

void _gtraceEntry(unsigned int functionId, unsigned long threadId) {
    if (!traceFile.isAttached()) {
        return;
    }
    const platform::ErrnoKeeper keeper;
    osse::Line line = begin('>', functionId, threadId);
    traceFile.append(line);
}

void _gtraceExit(unsigned int functionId, unsigned long threadId, unsigned long result) {
    if (!traceFile.isAttached()) {
        return;
    }
    const platform::ErrnoKeeper keeper;
    osse::Line line = begin('<', functionId, threadId);
    line.add(" 0x%08lx", result);
    traceFile.append(line);
}

void _gtraceVar(unsigned int functionId, unsigned long threadId, unsigned int probe, unsigned long size,
                const void* value) {
    writeValue('=', functionId, threadId, probe, size, value);
}

void _gtraceErrorVar(unsigned int functionId, unsigned long threadId, unsigned int probe, unsigned long size,
                     const void* value) {
    writeValue('!', functionId, threadId, probe, size, value);
}
