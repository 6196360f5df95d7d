"""Switches an entry of an inittab off, and keeps all else that its line says: inittab.py FILE ID"""

import sys
from dataclasses import replace

import genreg


def main(path, identity):
    table = genreg.InitTab(path, timeout=10)
    try:
        seen = table[identity]
        table.replace(replace(seen, action="off"), if_record=seen)
    except genreg.NotFound as error:
        print(error, file=sys.stderr)
        return 1
    for each in table.entries():
        print(f"{each.id}: {each.action} in {each.run_levels or 'no'} run levels: {each.command}")
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
