#!/usr/bin/env python3
"""Lets the compilers check the sources: clang-tidy on every source file, and each public header alone with g++ and
clang++. What passed once is not checked again until it, something that it includes or the check itself changes.

usage: compile.py BUILD_DIR... (configured, with compile_commands.json; a source is checked as the first of them that
knows it compiles it; the marks of what passed are kept in the first)"""
import concurrent.futures
import json
import os
import pathlib
import subprocess
import sys

import tree

builds = [pathlib.Path(folder).resolve() for folder in sys.argv[1:]]
passed = builds[0] / "passed"
# What no compiler of this system compiles: the cross build does.
CROSS = ("platform/posix/macos/", "tool/system/macos/")
WARNINGS = ["-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror"]


def version(program):
    return subprocess.run([program, "--version"], check=True, capture_output=True, text=True).stdout


def checks():
    """(what is said when it fails, file, command, standard input, further words that the result depends on)"""
    commands = {}
    for build in reversed(builds):
        for entry in json.loads((build / "compile_commands.json").read_text()):
            commands[entry["file"]] = build, entry["command"]
    # Which of these a source includes depends on the build.
    ways = "".join(tree.text(path) for path in tree.files(".h") if str(path).startswith("platform/posix/"))
    tidy = version("clang-tidy") + "".join(tree.text(path) for path in tree.files() if path.name == ".clang-tidy")
    for path in tree.files(".cpp"):
        full = str(tree.ROOT / path)
        if full in commands:
            build, command = commands[full]
            also = tidy + command + (ways if build != builds[0] else "")
            yield path, ["clang-tidy", "--quiet", "-p", str(build), full], "", also
        elif not str(path).startswith(("tests/package/", *CROSS)):
            # Built by nothing, so nothing would notice what is wrong in it.
            yield path, ["sh", "-c", "echo 'no target of the build compiles this file'; exit 1"], "", ""
    for compiler in ("g++", "clang++"):
        of = version(compiler)
        for path in tree.files(".h"):
            if str(path).startswith("include/"):
                yield path, [compiler, *WARNINGS, "-I", str(tree.ROOT / "include"), "-fsyntax-only", "-x", "c++", "-"], \
                    f"#include <{path.relative_to('include')}>\n", of


def run(check):
    path, command, given, also = check
    mark = passed / tree.fingerprint(path, also, *command)
    if mark.exists():
        mark.touch()
        return True
    result = subprocess.run(command, input=given, capture_output=True, text=True, cwd=tree.ROOT)
    if result.returncode == 0:
        mark.touch()
        return True
    print(f"--- {path}: {command[0]}\n{result.stdout}{result.stderr}", file=sys.stderr)
    return False


passed.mkdir(parents=True, exist_ok=True)
with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
    results = list(pool.map(run, checks()))
print(f"{len(results)} checks of sources and headers, {results.count(False)} failed")
sys.exit(0 if all(results) else 1)
