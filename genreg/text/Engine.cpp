#include <genreg/GenRegText.h>

#include "genreg/core/FunctionTrace.h"

using genreg::Function;
using genreg::FunctionTrace;

GenRegText::GenRegText() noexcept {
    const FunctionTrace trace{Function::GenRegText};
    fileKind = REG_KIND_TEXT;
}

GenRegText::~GenRegText() noexcept {
    const FunctionTrace trace{Function::DestroyGenRegText};
}

unsigned int GenRegText::CheckFuncPtrs() noexcept {
    FunctionTrace trace{Function::TextCheckFuncPtrs};
    if (validateRecord == nullptr) {
        return trace.fail(10, REG_NO_VALIDATE_RECORD);
    }
    if (getMaxRecordSize == nullptr) {
        return trace.fail(20, REG_NO_GET_MAX_RECORD_SIZE);
    }
    if (parseLine == nullptr) {
        return trace.fail(30, REG_NO_PARSE_LINE);
    }
    if (matchRecord == nullptr) {
        return trace.fail(40, REG_NO_MATCH_RECORD);
    }
    if (formatLine == nullptr) {
        return trace.fail(50, REG_NO_FORMAT_LINE);
    }
    return 0;
}

void GenRegText::useShortcuts(GenRegLineMayMatch mayMatch) noexcept {
    const FunctionTrace trace{Function::TextUseShortcuts};
    lineMayMatch = mayMatch;
    ways_ = nullptr;
    judgedParse_ = parseLine;
    judgedMatch_ = matchRecord;
}

unsigned int GenRegText::OpenReg(unsigned long mode) noexcept {
    FunctionTrace trace{Function::TextOpenReg};
    return trace.exit(GenRegFile::OpenReg(mode));
}

unsigned int GenRegText::CloseReg(unsigned long mode) noexcept {
    FunctionTrace trace{Function::TextCloseReg};
    return trace.exit(GenRegFile::CloseReg(mode));
}

unsigned int GenRegText::KeepLines(bool keep) noexcept {
    FunctionTrace trace{Function::TextKeepLines};
    if (keptSlots_.format == nullptr) {
        return trace.fail(10, REG_NO_FORMAT_LINE);
    }
    const LineSlots& from = keep ? ownSlots_ : keptSlots_;
    const LineSlots& to = keep ? keptSlots_ : ownSlots_;
    parseLine = parseLine == from.parse ? to.parse : parseLine;
    matchRecord = matchRecord == from.match ? to.match : matchRecord;
    formatLine = formatLine == from.format ? to.format : formatLine;
    // What is said of the one is true of the other: both take the same lines, and MatchWhole matches nothing that
    // MatchRecord does not.
    judgedParse_ = judgedParse_ == from.parse ? to.parse : judgedParse_;
    judgedMatch_ = judgedMatch_ == from.match ? to.match : judgedMatch_;
    keepsLines_ = keep;
    return 0;
}
