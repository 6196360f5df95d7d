#!/usr/bin/env python3
"""Which failure points of the library were reached: every (function, probe) that its sources can log, against the
diagnostic logs of the tests and rigs.

usage: failure_points.py LOG...

A frame that logs under the name of whoever called it is one point for all its callers, named by its file. A point that
was not reached must have its reason in failure_points.reasons, a line each: "function probe: reason"; a reason for one
that was reached, or that is none, is a failure too."""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
REASONS = ROOT / "prove" / "failure_points.reasons"

# Whose names the failures of code without a function of its own are logged under.
UPDATES_AND_LOOKUPS = r"GenReg(Text|Bin)::(Add|Change|Delete|Get|GetNext|Verify)"
CALLERS = {
    "core/Transaction": UPDATES_AND_LOOKUPS,
    "core/Directory": r"Lock|OpenReg",
    "core/Paths": r"getRegistry\w+",
    "text": r"GenRegText::\w+|GetPortnumbers",
    "bin": r"GenRegBin::\w+|ReadRecord|WriteRecord",
    "global/ChangeLog": r"GlobalReg::Log",
    "global/Notification": r"GlobalReg::Notify|fmcNotify",
    "global/Path": r"GetGlobalRegPathname(Internal)?",
    "global/InfoTransaction": r"oss\w+",
    "global": r"GlobalReg::\w+|genregSyncGlobalRegFixpackNumber|\w*[Pp]ackRecord",
}
# Probes that a caller hands in, with the ten above them.
HANDED_IN = re.compile(r"ensureDirectoryOf\(trace, (\d+)")

POINT = re.compile(r"\btrace_?\.(?:fail|failMildly|ignore)\((\d+)")
OWN = re.compile(r"Trace trace\{Function::(\w+)[,}]")
BORROWED = re.compile(r"FunctionTrace& trace\b|Trace trace\{")
LOG_LINE = re.compile(r"\S+ \d+ \d+ (.+)\(0x[0-9A-F]+\) sev=.* probe=(\d+)")


def function_names():
    table = (ROOT / "genreg/core/FunctionTable.inc").read_text()
    return dict(re.findall(r'GENREG_FUNCTION\(\w+, (\w+), "([^"]+)"\)', table))


def callers_of(of):
    place = of
    while place and place not in CALLERS:
        place = place.rpartition("/")[0]
    if not place:
        sys.exit("nobody is known to lend its name to " + of)
    return CALLERS[place]


def points():
    """(label, probe) -> pattern of the function names that it is logged under."""
    names, found = function_names(), {}
    for path in sorted(ROOT.glob("genreg/**/*.cpp")):
        place = str(path.relative_to(ROOT / "genreg").with_suffix(""))
        owner = None
        for line in path.read_text().splitlines():
            if own := OWN.search(line):
                owner = names[own[1]]
            elif BORROWED.search(line):
                owner = None
            probes = [(m[1], "trace_" in m[0]) for m in POINT.finditer(line)]
            if handed := HANDED_IN.search(line):
                probes += [(handed[1], False), (str(int(handed[1]) + 10), False)]
            for probe, member in probes:
                borrowed = member or owner is None
                label = place if borrowed else owner
                found[label, int(probe)] = callers_of(place) if borrowed else re.escape(owner)
    return found


def logged(paths):
    seen = set()
    for path in paths:
        with open(path, errors="replace") as log:
            for line in log:
                if match := LOG_LINE.match(line):
                    seen.add((match[1], int(match[2])))
    return seen


def reasons():
    given = {}
    for line in REASONS.read_text().splitlines():
        if line and not line.startswith("#"):
            label, probe, reason = re.fullmatch(r"(.+?) (\d+): (.+)", line).groups()
            given[label, int(probe)] = reason
    return given


def main(logs):
    all_points, seen, given = points(), logged(logs), reasons()
    reached = {point for point, names in all_points.items()
               if any(probe == point[1] and re.fullmatch(names, name) for name, probe in seen)}
    failed = 0
    for point in sorted(set(all_points) - reached):
        if point not in given:
            failed += 1
            print(f"{point[0]} {point[1]}: not reached, and nothing says why")
        else:
            print(f"{point[0]} {point[1]}: not reached: {given[point]}")
    for point in sorted(given):
        if point not in all_points or point in reached:
            failed += 1
            print(f"{point[0]} {point[1]}: has a reason, but " + ("was reached" if point in reached else "is no point"))
    print(f"{len(reached)} of {len(all_points)} failure points reached, {len(given)} with a reason not to be")
    print(f"RIG failure_points {len(all_points)} {failed}")
    return 1 if failed else 0


if len(sys.argv) < 2:
    sys.exit(__doc__)
sys.exit(main(sys.argv[1:]))
