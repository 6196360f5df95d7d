#!/usr/bin/env python3
"""Lets the compilers check the sources: clang-tidy the source files, several of a folder as one unit, and g++ and clang++
each public header alone, as a client has it. What passed once is not checked again until it, something that it includes
or the check itself changes.

Most of clang-tidy's work on one small file is the language's headers, which a unit reads once. A unit is the text of its
files and not includes of them: in an included file the analyzer looks into no function, and unused names are not told.
Files that give one name to different things of their own are in different units.

usage: compile.py BUILD_DIR... (configured, with compile_commands.json; a source is checked as the first of them that
knows it compiles it; the units and the marks of what passed are kept in the first)"""
import collections
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

import tree

builds = [pathlib.Path(folder).resolve() for folder in sys.argv[1:]]
passed = builds[0] / "passed"
# What no compiler of this system compiles: the cross build does.
CROSS = ("platform/posix/macos/", "tool/system/macos/")
# A client may be content with an older language than the sources.
WARNINGS = ["-std=c++17", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror"]
# What a file defines at the beginning of a line: a function, a value, a type.
DEFINED = re.compile(r"^(?:(?!namespace|using)[a-z][^\n;{}()=:]*(?:::[^\n;{}()=:]*)*[ &*](\w+)(?:\(|\[| = |\{)|"
                     r"(?:struct|class|enum class) (\w+)(?: :| \{)|using (\w+) =)", re.MULTILINE)
Check = collections.namedtuple("Check", "name paths command given also")


def version(program):
    return subprocess.run([program, "--version"], check=True, capture_output=True, text=True).stdout


def units():
    """(folder, flags, files, further words that the result depends on) of each. A file that nothing builds is a unit
    without flags."""
    commands = {}
    for build in reversed(builds):
        for entry in json.loads((build / "compile_commands.json").read_text()):
            words = shlex.split(entry["command"])
            commands[entry["file"]] = build, tuple(words[1:words.index("-o")])
    # Which of these a source includes depends on the build.
    ways = "".join(tree.text(path) for path in tree.files(".h") if str(path).startswith("platform/posix/"))
    folders = collections.defaultdict(list)
    for path in tree.files(".cpp"):
        full = str(tree.ROOT / path)
        if full in commands:
            build, flags = commands[full]
            folders[path.parent, flags, ways if build != builds[0] else ""].append(path)
        elif not str(path).startswith(("tests/package/", *CROSS)):
            yield path.parent, None, [path], ""
    for (folder, flags, also), paths in folders.items():
        for unit in apart(paths):
            yield folder, flags, unit, also


def apart(paths):
    """The files in units, each in the first one where nothing has a name of its own already."""
    found = []
    for path in paths:
        text = tree.text(path).replace("\nBENCHMARK_MAIN(", "\nint main(")
        names = {name for words in DEFINED.findall(text) for name in words if name}
        unit = next((unit for unit in found if not unit[1] & names), None)
        if unit is None:
            found.append(unit := ([], set()))
        unit[0].append(path)
        unit[1].update(names)
    return [members for members, _ in found]


def folder_of_units(folder):
    """Lies as the folder does in the tree, below the same configurations."""
    made = builds[0] / "units" / folder
    made.mkdir(parents=True, exist_ok=True)
    for above in (folder, *folder.parents):
        own = tree.ROOT / above / ".clang-tidy"
        if own.exists():
            (builds[0] / "units" / above / ".clang-tidy").write_text(own.read_text())
    return made


def of_unit(number, tidy, folder, flags, paths, also):
    if flags is None:
        return Check(paths[0], paths, ["sh", "-c", "echo 'no target of the build compiles this file'; exit 1"], "", "")
    unit = folder_of_units(folder) / f"{number}.cpp"
    unit.write_text("".join(tree.text(path) for path in paths))
    command = ["clang-tidy", "--quiet", str(unit), "--", *flags, "-iquote", str(tree.ROOT / folder)]
    return Check(folder, paths, command, "", tidy + also)


def of_headers():
    for compiler in ("g++", "clang++"):
        of = version(compiler)
        for path in tree.files(".h"):
            if str(path).startswith("include/"):
                yield Check(path, [path], [compiler, *WARNINGS, "-I", str(tree.ROOT / "include"), "-fsyntax-only", "-x",
                                           "c++", "-"], f"#include <{path.relative_to('include')}>\n", of)


def checks():
    tidy = version("clang-tidy") + "".join(tree.text(path) for path in tree.files() if path.name == ".clang-tidy")
    largest = sorted(units(), key=lambda unit: -sum(len(tree.text(path)) for path in unit[2]))  # they do not come last
    return [of_unit(number, tidy, *unit) for number, unit in enumerate(largest)] + list(of_headers())


def said(check, output):
    """What a compiler said, of lines of the files instead of the unit's."""
    owners = [f"{path}:{number}" for path in check.paths for number in range(1, len(tree.text(path).splitlines()) + 1)]
    unit = re.compile(re.escape(str(builds[0] / "units")) + r"/[\w/]*\.cpp:(\d+)")
    return unit.sub(lambda found: owners[min(int(found[1]), len(owners)) - 1], output)


def run(check):
    mark = passed / tree.fingerprint(check.paths, check.also, *check.command)
    if mark.exists():
        mark.touch()
        return True
    result = subprocess.run(check.command, input=check.given, capture_output=True, text=True, cwd=tree.ROOT)
    if result.returncode == 0:
        mark.touch()
        return True
    print(f"--- {check.name}: {check.command[0]}\n{said(check, result.stdout + result.stderr)}", file=sys.stderr)
    return False


passed.mkdir(parents=True, exist_ok=True)
with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
    results = list(pool.map(run, checks()))
print(f"{len(results)} checks of sources and headers, {results.count(False)} failed")
sys.exit(0 if all(results) else 1)
