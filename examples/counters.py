"""Counts in a file of binary variables: counters.py FILE NAME..."""

import sys

import genreg


def main(path, *names):
    counters = genreg.BinVariables(path, timeout=10)
    # All of them, or none: an exception in the block leaves the file as it is.
    with counters.batch() as batch:
        for name in names:
            batch[name] = batch.get(name, 0) + 1
    for name, count in counters.items():
        print(name, count)


if __name__ == "__main__":
    main(*sys.argv[1:])
