"""Services and inittabs."""

import pytest

import genreg

SERVICES = b"""\
# local services
rvn_main 50000/tcp rvndb  rvn\t# main port
rvn_main\t50000/udp
alone
"""
INITTAB = b"""\
:old layout
rc:3:wait:/etc/rc \\
  3
fm:35:respawn:/opt/bin/fm a:b  # \xe9
"""


def test_services(folder):
    services = genreg.Services(folder.write(SERVICES))
    main = genreg.Service("rvn_main", 50000, "tcp", ("rvndb", "rvn"), "main port")
    assert services["rvn_main", "tcp"] == main
    assert list(services) == [("rvn_main", "tcp"), ("rvn_main", "udp")] and ("alone", "tcp") not in services
    services["rvn_main", "tcp"] = genreg.Service("rvn_main", 50001, "tcp", ("rvndb", "rvn"), "main port")
    assert folder.bytes() == SERVICES.replace(b"50000/tcp", b"50001/tcp")
    with pytest.raises(genreg.Conflict):
        services.replace(main, if_record=main)
    services.add(genreg.Service("new", 1, "sctp", comment="caf\udce9"))
    assert folder.bytes().splitlines()[-1].endswith(b"# caf\xe9")
    assert [each["port"] for each in folder.tool("services", "list", folder.path())] == [50001, 50000, 1]
    del services["rvn_main", "udp"]
    assert ("rvn_main", "udp") not in services
    before = folder.bytes()
    for record in [
        genreg.Service("x", 0, "tcp"),
        genreg.Service("x", 65536, "tcp"),
        genreg.Service("a b", 1, "tcp"),
        genreg.Service("x", 1, "tcp", ("a b",)),
        genreg.Service("x", 1, "dccp", ("alias",)),
        genreg.Service("x", 1, "tcp", tuple(map(str, range(128)))),
        genreg.Service("x", 1, "tcp", (), "two\nlines"),
        genreg.Service("", 1, "tcp"),
    ]:
        with pytest.raises(genreg.Invalid):
            services.add(record)
    with pytest.raises(genreg.Invalid):
        services["other", "tcp"] = main
    assert folder.bytes() == before


def test_inittab(folder):
    table = genreg.InitTab(folder.write(INITTAB))
    assert [entry.id for entry in table.entries()] == ["rc", "fm"]
    entry = table["fm"]
    assert entry == genreg.InitEntry("fm", "35", "respawn", "/opt/bin/fm a:b", " \udce9")
    table["fm"] = genreg.InitEntry("fm", "35", "off", entry.command, entry.comment)
    assert folder.bytes() == INITTAB.replace(b"respawn", b"off")
    table.replace(genreg.InitEntry("fm", "35", "off", entry.command), if_record=table["fm"])
    assert b"#" not in folder.bytes()
    table.add(genreg.InitEntry("x", "", "once", "/bin/x"))
    assert table["x"].run_levels == ""
    assert folder.tool("inittab", "get", folder.path(), "x")[0]["command"] == "/bin/x"
    for refused in [
        genreg.InitEntry("y", "3", "once", "/bin/y #"),
        genreg.InitEntry("y", "3", "once", "/bin/y\n"),
        genreg.InitEntry("y:z", "3", "once", "/bin/y"),
    ]:
        with pytest.raises(genreg.Invalid):
            table.add(refused)
    with pytest.raises(genreg.Exists):
        table.add(genreg.InitEntry("x", "1", "once", "/bin/x"))
    del table["x"]
    assert len(table) == 2
