"""Gives a service the next free port, under both protocols or none: services.py FILE NAME"""

import sys

import genreg

FIRST = 50000


def main(path, name):
    services = genreg.Services(path, timeout=10)
    with services.batch() as batch:
        if (name, "tcp") not in batch:
            # Nobody else changes the file while the batch is open, so what it lists is what the batch began with.
            try:
                taken = {each.port for each in services.entries()}
            except genreg.Missing:
                taken = set()
            port = next(port for port in range(FIRST, 2**16) if port not in taken)
            for protocol in ("tcp", "udp"):
                batch.add(genreg.Service(name, port, protocol, comment="by an example"))
    for each in services.entries():
        print(f"{each.name} {each.port}/{each.protocol}", *each.aliases)


if __name__ == "__main__":
    main(*sys.argv[1:])
