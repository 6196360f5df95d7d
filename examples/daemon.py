"""Answers the value of each name that it is asked for, a line each, for as long as it is asked: daemon.py FILE

It keeps the file's contents in memory: an answer costs one look at the path, and none is older than the file.
"""

import sys

import genreg

MOST_BYTES = 1 << 20


def main(path):
    settings = genreg.Variables(path, timeout=10, keep=MOST_BYTES)
    for line in sys.stdin:
        try:
            print(settings.get(line.rstrip("\n"), "-"), flush=True)
        except genreg.Missing:
            print("-", flush=True)


if __name__ == "__main__":
    main(*sys.argv[1:])
