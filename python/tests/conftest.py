"""The package is that of PYTHONPATH, the tool that of GENREG_TOOL."""

import json
import os
import subprocess
import sys
import time

import pytest

TOOL = os.environ["GENREG_TOOL"]


class Folder:
    """A folder of registries, seen by the tool and as bytes."""

    def __init__(self, folder):
        self.folder = folder

    def path(self, name="registry"):
        return str(self.folder / name)

    def bytes(self, name="registry"):
        return (self.folder / name).read_bytes()

    def write(self, content, name="registry"):
        (self.folder / name).write_bytes(content)
        return self.path(name)

    def names(self):
        return sorted(os.listdir(self.folder))

    def tool(self, *arguments):
        """The objects that the tool prints."""
        run = subprocess.run([TOOL, *arguments, "--json"], capture_output=True, check=True)
        return [json.loads(line) for line in run.stdout.splitlines()]


@pytest.fixture
def folder(tmp_path):
    return Folder(tmp_path)


@pytest.fixture
def held(folder):
    """Starts a process that holds the lock of a registry, or what else is given, until it is ended."""
    started = []

    def hold(path, script="import sys, genreg\nwith genreg.Variables(sys.argv[1]).batch():"):
        script += "\n    print('held', flush=True)\n    sys.stdin.read()"
        process = subprocess.Popen(
            [sys.executable, "-c", script, path], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
        )
        started.append(process)
        assert process.stdout.readline() == "held\n"
        return process

    yield hold
    for process in started:
        process.kill()
        process.wait()
        process.stdin.close()
        process.stdout.close()


@pytest.fixture
def clock():
    start = time.monotonic()
    return lambda: time.monotonic() - start
