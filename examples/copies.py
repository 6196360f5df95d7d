"""Records an installed copy with its instances at once, lists them, and takes them out again.

Try it on a registry of your own: RVN_GLOBAL_REG_PATHNAME=/tmp/global.reg python3 copies.py
"""

import genreg

VERSION = "9.7.0.2"


def main():
    registry = genreg.GlobalRegistry(timeout=10)
    with registry.batch() as batch:
        batch.services.replace(genreg.InstalledService("RVN", VERSION, path="/opt/rvn/V9.7", fixpack_number=2))
        for name in ("inst1", "inst2"):
            batch.instances.replace(
                genreg.Instance("RVN", VERSION, name, path=f"/home/{name}/rvnhome", start_at_boot=name == "inst1")
            )

    for instance in registry.instances.values():
        boot = ", started at boot" if instance.start_at_boot else ""
        print(f"{instance.name} of {instance.service} {instance.version} at {instance.path}{boot}")

    with registry.batch() as batch:
        for name in ("inst1", "inst2"):
            del batch.instances["RVN", VERSION, name]
        del batch.services["RVN", VERSION]
    print(len(registry.entries()), "records are left")


if __name__ == "__main__":
    main()
