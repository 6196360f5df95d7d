#!/usr/bin/env python3
"""Checks how the tree is laid out: includes point downward only and in no circles, only the platform knows the
operating system, no source file grows past 600 lines, and the project speaks of itself alone."""
import re
import sys

import tree

MOST_LINES = 600

# Folder -> folders of the tree that its files may include, its own among them. The longest folder that fits decides.
CLIENT = ("include/",)
PLATFORM = ("include/osse/", "include/install/", "platform/posix/", "platform/System.h")
CORE = CLIENT + ("platform/posix/", "genreg/core/")


def rooms(*names):
    return tuple(f"tool/{name}/" for name in names)


def of_fleet(*names):
    """Rooms of genreg-fleet, which stands on those of the tool up to the records and their registry."""
    return CLIENT + rooms("base", "system", "records", "global") + tuple(f"fleet/{name}/" for name in names)


FLOORS = {
    "include/osse/": ("include/osse/",),
    "include/install/": ("include/install/", "include/osse/"),
    "include/genreg/": CLIENT,
    "platform/System.h": ("platform/posix/",),
    "platform/osse/": PLATFORM + ("platform/osse/",),
    "platform/install/": PLATFORM + ("platform/install/",),
    "platform/posix/": PLATFORM,
    "genreg/core/": CORE,
    "genreg/text/": CORE + ("genreg/text/",),
    "genreg/bin/": CORE + ("genreg/bin/",),
    "genreg/global/": CORE + ("genreg/bin/", "genreg/global/"),
    "tool/system/": rooms("system"),
    "tool/base/": CLIENT + rooms("base", "system"),
    "tool/records/": CLIENT + rooms("base", "system", "records"),
    "tool/entries/": CLIENT + rooms("base", "system", "records", "entries"),
    "tool/global/": CLIENT + rooms("base", "system", "records", "global"),
    "tool/inspect/": CLIENT + rooms("base", "system", "records", "entries", "global", "inspect"),
    "tool/watch/": CLIENT + rooms("base", "system", "records", "entries", "global", "watch"),
    "tool/complete/": CLIENT + rooms("base", "system", "records", "entries", "global", "complete"),
    "tool/": CLIENT + ("tool/",),
    "fleet/store/": ("fleet/store/",),
    "fleet/mirror/": of_fleet("mirror"),
    "fleet/settings/": of_fleet("store", "mirror", "settings"),
    "fleet/publish/": of_fleet("store", "mirror", "settings", "publish"),
    "fleet/view/": of_fleet("store", "mirror", "settings", "view"),
    "fleet/": ("fleet/", "tool/base/", "tool/complete/", "tool/system/"),
    "python/": CLIENT + ("python/",),
    "examples/": CLIENT,
    "tests/": ("",),
    "bench/": ("",),
    "prove/": ("",),
}

# Where more than the language's own headers may be included. Those have neither a suffix nor a folder.
OUTSIDE = {
    "platform/": re.compile(r".*"),
    "tests/": re.compile(r".*"),
    "bench/": re.compile(r".*"),
    "prove/": re.compile(r".*"),
    "genreg/text/LineMasks.h": re.compile(r"emmintrin\.h"),
    "tool/": re.compile(r"fmt/.*"),
    "tool/system/": re.compile(r".*"),
    "fleet/": re.compile(r"fmt/.*"),
    "fleet/store/": re.compile(r"fmt/.*|grpcpp/.*|etcd(\.grpc)?\.pb\.h"),
    "fleet/mirror/": re.compile(r"fmt/.*|zlib\.h|openssl/evp\.h"),
    "python/": re.compile(r"pybind11/.*"),
    # Compiling these two takes longer than all the rest of a source: nobody else does.
    "tool/base/Command.cpp": re.compile(r"CLI/.*|fmt/.*"),
    "tool/base/Json.cpp": re.compile(r"nlohmann/.*"),
}

# Which system it is, or a path that only one has, is asked for in the rooms that know one from another. What stands
# outside of the product asks the system that it runs on.
ROOMS_OF_SYSTEMS = ("platform/", "tool/system/")
PRODUCT = ("include/", "genreg/", "tool/", "fleet/", "examples/")
SYSTEM_CHOICE = re.compile(r"\b(__linux(__)?|__APPLE__|__MACH__|__GLIBC__|__unix__|_WIN32|TARGET_OS_\w+)\b")
SYSTEM_PATH = re.compile(r'"/(proc|sys)/')

# Where somebody else's text would say it, this project says it in its own words.
FOREIGN_WORDS = re.compile(r"Part [1-6]\.[0-9]|spec\.md|[Ss]pecification")


def rule(rules, path):
    fitting = [folder for folder in rules if str(path).startswith(folder)]
    return rules[max(fitting, key=len)] if fitting else None


def floors(path):
    allowed, outside = rule(FLOORS, path), rule(OUTSIDE, path)
    if allowed is None:
        yield f"{path}: stands on no floor"
        return
    for name, inside in tree.includes(path):
        if inside is not None and not str(inside).startswith(allowed):
            yield f"{path}: may not include {inside}"
        if inside is None and ("." in name or "/" in name) and not (outside and outside.fullmatch(name)):
            yield f"{path}: may not include <{name}>, which belongs to the operating system or to another library"


def choices(path):
    if str(path).startswith(ROOMS_OF_SYSTEMS):
        return
    for number, line in enumerate(tree.text(path).splitlines(), 1):
        if SYSTEM_CHOICE.search(line) or (str(path).startswith(PRODUCT) and SYSTEM_PATH.search(line)):
            yield f"{path}:{number}: knows one system from another: {line.strip()}"


def circles(paths):
    """One complaint for each include that leads back to a file which is being followed."""
    done, trail = set(), []

    def follow(path):
        if path in trail:
            yield "includes go in a circle: " + " -> ".join(map(str, trail[trail.index(path):] + [path]))
        elif path not in done:
            trail.append(path)
            for _, inside in tree.includes(path):
                if inside is not None:
                    yield from follow(inside)
            done.add(trail.pop())

    for path in paths:
        yield from follow(path)


def complaints():
    sources = tree.files(".h", ".cpp")
    for path in sources:
        yield from floors(path)
    for path in tree.files(".h", ".cpp", ".inc"):
        yield from choices(path)
    yield from circles(sources)
    for path in sources + tree.files(".py", ".sh"):
        lines = tree.text(path).count("\n")
        if lines > MOST_LINES:
            yield f"{path}: {lines} lines; more than {MOST_LINES} want to be two files"
    for path in tree.files():
        for number, line in enumerate(tree.text(path).splitlines(), 1):
            if FOREIGN_WORDS.search(line):
                yield f"{path}:{number}: say it in the project's own words: {line.strip()}"


found = list(complaints())
print("\n".join(found), end="\n" if found else "", file=sys.stderr)
sys.exit(1 if found else 0)
