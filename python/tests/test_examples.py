"""The examples do what they say."""

import os
import subprocess
import sys
from pathlib import Path

EXAMPLES = Path(__file__).parents[2] / "examples"


def run(name, *arguments, given="", status=0, **environment):
    done = subprocess.run(
        [sys.executable, "-B", EXAMPLES / name, *arguments],
        input=given,
        capture_output=True,
        text=True,
        env=os.environ | environment,
    )
    assert done.returncode == status, done.stderr
    return done.stdout.splitlines() or done.stderr.splitlines()


def test_settings(folder):
    path = folder.write(b"port = 6000\n")
    assert run("settings.py", path) == ["port 6000, debug False", "port is 6001", "debug is on (until the next release)"]
    assert run("settings.py", path)[0] == "port 6001, debug True"
    folder.write(b"port = many\n")
    assert run("settings.py", path, status=1) == [f"{path}: port is no integer: many"]


def test_services(folder):
    assert run("services.py", folder.path(), "one") == ["one 50000/tcp", "one 50000/udp"]
    assert run("services.py", folder.path(), "two")[2:] == ["two 50001/tcp", "two 50001/udp"]
    assert len(run("services.py", folder.path(), "two")) == 4


def test_inittab(folder):
    path = folder.write(b"fm:35:respawn:/opt/fm   # why\n")
    assert run("inittab.py", path, "fm") == ["fm: off in 35 run levels: /opt/fm"]
    assert folder.bytes() == b"fm:35:off:/opt/fm   # why\n"
    assert run("inittab.py", path, "rc", status=1) == [f"{path}: there is no 'rc'"]


def test_counters(folder):
    run("counters.py", folder.path(), "a", "b")
    assert run("counters.py", folder.path(), "b", "b") == ["a 1", "b 3"]


def test_copies(folder):
    assert run("copies.py", RVN_GLOBAL_REG_PATHNAME=folder.path()) == [
        "inst1 of RVN 9.7.0.2 at /home/inst1/rvnhome, started at boot",
        "inst2 of RVN 9.7.0.2 at /home/inst2/rvnhome",
        "0 records are left",
    ]


def test_daemon(folder):
    assert run("daemon.py", folder.path(), given="a\n") == ["-"]
    folder.write(b"a = 1\n")
    assert run("daemon.py", folder.path(), given="a\nb\na\n") == ["1", "-", "1"]
