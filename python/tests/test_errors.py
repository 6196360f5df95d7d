"""Failures are of the kinds that the tool tells, and look as Python's own do."""

import errno
import os
import pickle
import shutil
import tempfile
from pathlib import Path

import pytest

import genreg
from genreg import _errors

KINDS = {
    "done": None,
    "unchanged": None,
    "not-found": genreg.NotFound,
    "missing": genreg.Missing,
    "unreadable": genreg.Unreadable,
    "locked": genreg.Locked,
    "exists": genreg.Exists,
    "several": genreg.Several,
    "invalid": genreg.Invalid,
    "damaged": genreg.Damaged,
    "write-failed": genreg.WriteFailed,
    "no-memory": genreg.NoMemory,
    "defect": genreg.Defect,
}


def test_every_code_is_of_the_kind_that_the_tool_tells(folder):
    told = folder.tool("explain")
    assert len(told) > 150
    for code in told:
        number = int(code["code"], 16)
        expected = KINDS[code["kind"]]
        if expected is not None:
            assert _errors.kind_of(number) is expected, code["name"]
            assert (code["name"] in _errors._WRAPPERS) == code["innerDecides"], code["name"]


def test_failures_are_pythons_own_kinds_too():
    for kind, base in [
        (genreg.NotFound, KeyError),
        (genreg.Missing, FileNotFoundError),
        (genreg.Locked, TimeoutError),
        (genreg.Unreadable, OSError),
        (genreg.WriteFailed, OSError),
        (genreg.Invalid, ValueError),
        (genreg.NoMemory, MemoryError),
        (genreg.Exists, genreg.Conflict),
        (genreg.Several, genreg.Conflict),
    ]:
        assert issubclass(kind, base) and issubclass(kind, genreg.Error)


def test_a_failure_tells_code_cause_and_path_and_travels(folder):
    with pytest.raises(genreg.Missing) as caught:
        genreg.Variables(folder.path())["a"]
    error = pickle.loads(pickle.dumps(caught.value))
    assert type(error) is genreg.Missing
    assert (error.code_name, error.cause_name) == ("REG_OPEN_FAILED", "REG_MISSING")
    assert error.path == error.filename == folder.path() and error.errno == errno.ENOENT
    assert str(error) == f"{folder.path()}: The registry file does not exist"
    assert folder.names() == []  # a look makes nothing


def test_refused_paths():
    for path in ["", "x" * 1018]:
        with pytest.raises(genreg.Invalid):
            genreg.Variables(path)
    with pytest.raises(ValueError):
        genreg.Variables("a\0b")


@pytest.fixture
def locked_folder():
    """One that everybody may read and nobody but root may write."""
    path = tempfile.mkdtemp()
    Path(path, "registry").write_bytes(b"a = 1\n")
    os.chmod(path, 0o555)
    yield path
    os.chmod(path, 0o755)
    shutil.rmtree(path)


def test_a_folder_that_may_not_be_written(locked_folder):
    registry = genreg.Variables(f"{locked_folder}/registry")
    child = os.fork()
    if child == 0:
        try:
            if os.getuid() == 0:
                os.setgid(65534)
                os.setuid(65534)
            assert registry["a"] == "1"
            registry["a"] = "2"
        except genreg.Unreadable as error:
            os._exit(error.errno)
        finally:
            os._exit(99)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == errno.EACCES
    assert registry["a"] == "1" and os.listdir(locked_folder) == ["registry"]


def test_damaged_files(folder):
    registry = genreg.BinVariables(folder.path())
    registry["x"] = 1
    folder.write(folder.bytes()[:-3])
    for look in [lambda: registry["x"], lambda: list(registry), lambda: registry.set("y", 1)]:
        with pytest.raises(genreg.Damaged) as caught:
            look()
        assert caught.value.path == folder.path()
    everything = genreg.GlobalRegistry(folder.write(b"\x24\0\0\0" + b"\xff" * 36, "global.reg"))
    with pytest.raises(genreg.Damaged):
        everything.entries()
