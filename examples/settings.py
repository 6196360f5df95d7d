"""Reads typed settings, and changes one only while it is what was seen: settings.py FILE"""

import sys

import genreg


def main(path):
    settings = genreg.Variables(path, timeout=10)
    try:
        port = settings.get_int("port", 5000)
    except genreg.Invalid as error:
        print(error, file=sys.stderr)
        return 1
    print(f"port {port}, debug {settings.get_bool('debug', False)}")

    # Where somebody else is faster, look again.
    while True:
        seen = settings.get("port")
        try:
            settings.set("port", str(int(seen or 5000) + 1), if_value=seen)
            break
        except genreg.Conflict:
            continue

    settings.set("debug", "on", comment="until the next release")
    for each in settings.entries():
        print(f"{each.name} is {each.value}" + (f" ({each.comment})" if each.comment else ""))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
