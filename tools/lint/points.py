#!/usr/bin/env python3
"""The failure points of the library: each place that can log one, by function, probe and code. Run alone, checks that
no two places log the same three, so that a line of the diagnostic log leads to one place.

A place without a function of its own logs under the name of whoever called it; LENDERS tells whose those are. A code
that a place only passes on may be any: nothing else of its function may have its probe."""
import collections
import re
import sys

import tree

# label: the place's function, or its file where names are lent; names: every function that it is logged under.
Place = collections.namedtuple("Place", "label probe code names at")
ANY_CODE = "*"

UPDATE = r"GenReg(Text|Bin)::(Add|Change|Delete)"
# Who lends a name to which file, or to which class or function of it.
LENDERS = {
    "core/Directory": r"Lock|OpenReg",
    "core/Paths": r"getRegistry\w+",
    "core/Transaction Transaction::validate": UPDATE + r"|GenReg(Text|Bin)::(Get|GetNext)",
    "core/Transaction Transaction::recordSize": UPDATE + r"|GenReg(Text|Bin)::(Get|GetNext|Verify)|VerifyBatch",
    "core/Transaction Transaction::hold": UPDATE + r"|GenReg(Text|Bin)::Get",
    "core/Transaction Transaction::update": UPDATE + r"|CommitBatch",
    "core/Transaction Transaction::releaseAll": UPDATE + r"|CommitBatch",
    "core/Transaction Transaction::notify": UPDATE + r"|CommitBatch",
    "core/Transaction Transaction::notOpened": UPDATE + r"|CommitBatch",
    "core/Transaction Transaction::notClosed": UPDATE + r"|CommitBatch",
    "core/Transaction Transaction::verifyCopy": UPDATE + r"|CommitBatch",
    "core/Transaction Transaction::announce": UPDATE,
    "core/Transaction Transaction::verify": r"GenReg(Text|Bin)::Verify|VerifyBatch",
    "core/BatchFrames Transaction::updateInBatch": UPDATE,
    "core/BatchFrames Transaction::announce": r"CommitBatch",
    "core/BatchFrames BatchVerify": r"VerifyBatch",
    "core/BatchFrames BatchCommit": r"CommitBatch",
    "core/Lookup Transaction::Reading": r"GenReg(Text|Bin)::Get|BeginBatch",
    "core/Lookup Transaction::unopened": r"GenReg(Text|Bin)::Get|BeginBatch",
    "core/Lookup Transaction::readWhole": r"BeginBatch",
    "core/Lookup Transaction::findIn": r"GenReg(Text|Bin)::Get",
    "core/Lookup Transaction::get": r"GenReg(Text|Bin)::Get",
    "core/Lookup Transaction::getNext": r"GenReg(Text|Bin)::GetNext",
    "core/Lookup Transaction::checkScan": r"GenReg(Text|Bin)::GetNext",
    "core/Lookup handOut": r"GenReg(Text|Bin)::(Get|GetNext)",
    "core/UpdateWalk ChangeWalk": r"GenReg(Text|Bin)::Change",
    "core/UpdateWalk DeleteWalk": r"GenReg(Text|Bin)::Delete",
    "core/VerifyWalk": r"GenReg(Text|Bin)::Verify",
    "text/Schema TextSchema": r"GenRegVarVal|GenRegServices|GenRegInitTab",
    "text/Lines": r"GenRegText::(Add|Change|Delete|Get|GetNext|Verify)|GetPortnumbers",
    "text/Lookup TextSearch": r"GenRegText::(Get|GetNext)",
    "text/Lookup TextSearch::notFreed": r"GenRegText::Get",
    "text/Update TextUpdate": r"GenRegText::(Add|Change|Delete)",
    "text/Update TextAdd": r"GenRegText::Add",
    "text/Update TextChange": r"GenRegText::Change",
    "text/VarValValues": r"Get\w+Value",
    "text/Verify TextVerify": r"GenRegText::Verify",
    "bin/Frames": r"GenRegBin::(Add|Change|Delete|Get|GetNext|Verify)|WriteRecord",
    "bin/Lookup BinSearch": r"GenRegBin::(Get|GetNext)",
    "bin/Lookup BinSearch::notFreed": r"GenRegBin::Get",
    "bin/Update BinUpdate": r"GenRegBin::(Add|Change|Delete)",
    "bin/Update BinAdd": r"GenRegBin::Add",
    "bin/Verify BinVerify": r"GenRegBin::Verify",
    "global/ChangeLog": r"GlobalReg::Log",
    "global/Notification": r"GlobalReg::Notify|fmcNotify",
    "global/Path": r"GetGlobalRegPathnameInternal",
    "global/InfoTransaction setInfo": r"ossSet(Instance|Service)Info",
    "global/InfoTransaction getInfo": r"ossGet(Instance|Service)Info",
    "global/InfoTransaction removeInfo": r"ossRemove(Instance|Service)Info",
    "global/InfoTransaction nextInfo": r"ossGetNext(Instance|Service)",
    "global/InfoTransaction closeInfoList": r"ossClose(Instance|Service)List",
}

OUTERMOST = re.compile(r"(?:class|struct) (\w+)|(?!using|template|namespace|static_assert)\w[\w:<>,*& ]*?([\w:~]+)\(")
OWN = re.compile(r"Trace trace\{Function::(\w+)[,}]")
LENT = re.compile(r"FunctionTrace& trace\b|Trace trace\{")
CALL = re.compile(r"\btrace(_?)\.(?:fail|failMildly|ignore)\(\s*(\d+),\s*([^,;]*?)\s*(?:,|\)\s*[;:),])", re.DOTALL)
UNREAD = re.compile(r"\btrace_?\.(?:fail|failMildly|ignore)\(")
# A file's folder is made at a probe of the caller's, and the one ten above.
FOLDER = re.compile(r"ensureDirectoryOf\(trace, (\d+)")
FOLDER_FILE = "core/Directory"
CODES = re.compile(r"(?:.*\? )?(REG_\w+)(?: : (REG_\w+))?")


def function_names():
    table = tree.text("genreg/core/FunctionTable.inc")
    return dict(re.findall(r'GENREG_FUNCTION\(\w+, (\w+), "([^"]+)"\)', table))


def lenders_of(file, outermost):
    """(label, pattern of names)"""
    for label in (f"{file} {outermost}", f"{file} {str(outermost).rpartition('::')[0]}", file):
        if label in LENDERS:
            return label, LENDERS[label]
    sys.exit(f"{file}: nobody is known to lend a name to {outermost}; LENDERS in {__file__} wants to know")


def places_of(path, names):
    file = str(path.relative_to("genreg").with_suffix(""))
    text = re.sub(r"^ *//.*$", "", tree.text(path), flags=re.MULTILINE)
    outermost = owner = None
    at = 0
    for number, line in enumerate(text.splitlines(keepends=True), 1):
        if found := OUTERMOST.match(line):
            outermost, owner = found[1] or found[2], None
        if own := OWN.search(line):
            owner = names[own[1]]
        elif LENT.search(line):
            owner = None
        for start in (found.start() for found in UNREAD.finditer(line)):
            if not (call := CALL.match(text, at + start)):
                if file != FOLDER_FILE:
                    sys.exit(f"{path}:{number}: neither a probe nor a code can be told: {line.strip()}")
                continue
            lent = call[1] or owner is None
            label, pattern = lenders_of(file, outermost) if lent else (owner, re.escape(owner))
            codes = CODES.fullmatch(call[3])
            for code in filter(None, codes.groups()) if codes else [ANY_CODE]:
                yield Place(label, int(call[2]), code, logged_under(pattern, names), f"{path}:{number}")
        if handed := FOLDER.search(line):
            for probe, code in (int(handed[1]), ANY_CODE), (int(handed[1]) + 10, "REG_CREATE_DIRECTORY_FAILED"):
                yield Place(owner, probe, code, {owner}, f"{path}:{number}")
        at += len(line)


def logged_under(pattern, names):
    return {name for name in names.values() if re.fullmatch(pattern, name)}


def places():
    names = function_names()
    sources = sorted(path.relative_to(tree.ROOT) for path in (tree.ROOT / "genreg").rglob("*.[hc]*"))
    return [place for path in sources if path.stem != "FunctionTrace" for place in places_of(path, names)]


def complaints(all_places):
    taken = collections.defaultdict(list)
    for place in all_places:
        for name in sorted(place.names):
            for other in taken[name, place.probe]:
                if ANY_CODE in (place.code, other.code) or place.code == other.code:
                    yield f"{place.at}: {name} {place.probe} {place.code} is what {other.at} logs too ({other.code})"
            taken[name, place.probe].append(place)


def main():
    all_places = places()
    found = list(complaints(all_places))
    print("\n".join(found), end="\n" if found else "", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
