"""What every check of the tree needs: its files, and which file an include names."""
import functools
import hashlib
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
OWN_WAYS = "platform/posix/linux"  # the include path's, where this is checked
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)


def files(*suffixes):
    """The files of the tree that git knows or would take (nothing ignored, nothing removed), as relative paths."""
    listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT,
                            check=True, capture_output=True, text=True).stdout.split("\0")
    found = (pathlib.PurePosixPath(name) for name in sorted(set(listed)) if name)
    return [path for path in found if (not suffixes or path.suffix in suffixes) and (ROOT / path).is_file()]


@functools.cache
def text(path):
    return (ROOT / path).read_text(encoding="utf-8", errors="replace")


@functools.cache
def includes(path):
    """(name as written, file of the tree or None) for each include of the file."""
    found = []
    for quote, name in INCLUDE.findall(text(path)):
        places = ([path.parent] if quote == '"' else []) + [pathlib.PurePosixPath(p) for p in ("include", ".", "tests", "tool", "fleet", OWN_WAYS)]
        inside = next((place / name for place in places if (ROOT / place / name).is_file()), None)
        if inside is not None:
            inside = pathlib.PurePosixPath((ROOT / inside).resolve().relative_to(ROOT))
        found.append((name, inside))
    return found


def reached(paths):
    """The files and every file of the tree that they include, directly or not."""
    seen, todo = set(paths), list(paths)
    while todo:
        for _, inside in includes(todo.pop()):
            if inside is not None and inside not in seen:
                seen.add(inside)
                todo.append(inside)
    return sorted(seen)


def fingerprint(paths, *also):
    """Changes when one of the files, anything that they include or one of the other words changes."""
    digest = hashlib.sha256("\0".join(also).encode())
    for part in reached(paths):
        digest.update(f"\0{part}\0{text(part)}".encode())
    return digest.hexdigest()
