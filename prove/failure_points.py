#!/usr/bin/env python3
"""Which failure points of the library were reached: every place that its sources can log from, by function, probe and
code, against the diagnostic logs of the tests and rigs.

usage: failure_points.py LOG...

A place that was not reached must have its reason in failure_points.reasons, a line each: "function probe code: reason",
the code "*" where the place passes one on; a reason for one that was reached, or that is none, is a failure too, and so
is a logged line that no place can have logged."""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
REASONS = ROOT / "prove" / "failure_points.reasons"
sys.path.insert(0, str(ROOT / "tools" / "lint"))
import points  # noqa: E402

LOG_LINE = re.compile(r"\S+ \d+ \d+ (.+)\(0x[0-9A-F]+\) sev=\d+ code=0x([0-9a-f]+) (?:rc=\S+ )?probe=(\d+)")


def code_names():
    table = (ROOT / "include/genreg/CodeTable.inc").read_text()
    return {int(value, 16): name for value, name in re.findall(r"GENREG_CODE\((0x[0-9A-Fa-f]+)u?, (REG_\w+)", table)}


def logged(paths):
    """(function, probe, code's name) of every line that a function of the library logged"""
    codes, functions, seen = code_names(), set(points.function_names().values()), set()
    for path in paths:
        with open(path, errors="replace") as log:
            for line in log:
                if (match := LOG_LINE.match(line)) and match[1] in functions:
                    seen.add((match[1], int(match[3]), codes.get(int(match[2], 16), match[2])))
    return seen


def reasons():
    given = {}
    for line in REASONS.read_text().splitlines():
        if line and not line.startswith("#"):
            label, probe, code, reason = re.fullmatch(r"(.+?) (\d+) (\S+): (.+)", line).groups()
            given[label, int(probe), code] = reason
    return given


def main(logs):
    places, seen, given = points.places(), logged(logs), reasons()
    reached, unexplained = set(), []
    for function, probe, code in sorted(seen):
        matching = {place[:3] for place in places
                    if probe == place.probe and place.code in (code, points.ANY_CODE) and function in place.names}
        reached |= matching
        if not matching:
            unexplained.append(f"{function} {probe} {code}: logged, but by no place that is known")
    known = {place[:3]: place.at for place in places}
    silent = [f"{label} {probe} {code}: not reached, and nothing says why ({known[label, probe, code]})"
              for label, probe, code in sorted(set(known) - reached - set(given))]
    needless = [f"{label} {probe} {code}: has a reason, but " +
                ("was reached" if (label, probe, code) in reached else "is no place")
                for label, probe, code in sorted(given) if (label, probe, code) not in set(known) - reached]
    for point in sorted(set(given) - reached):
        print(f"{point[0]} {point[1]} {point[2]}: not reached: {given[point]}")
    failures = silent + needless + unexplained
    print("\n".join(failures), end="\n" if failures else "")
    print(f"{len(reached)} of {len(known)} failure points reached, {len(given)} with a reason not to be")
    print(f"RIG failure_points {len(known)} {len(failures)}")
    return 1 if failures else 0


if len(sys.argv) < 2:
    sys.exit(__doc__)
sys.exit(main(sys.argv[1:]))
