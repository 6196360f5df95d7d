"""Threads, processes, and who waits for whom."""

import os
import signal
import subprocess
import sys
import threading

import pytest

import genreg

COUNT = """
import sys, genreg
registry = genreg.Variables(sys.argv[1])
for _ in range(50):
    with registry.batch() as batch:
        batch["n"] = str(batch.get_int("n") + 1)
"""
SET_IF = """
import sys, genreg
registry = genreg.Variables(sys.argv[1])
for _ in range(50):
    while True:
        seen = registry["n"]
        try:
            registry.set("n", str(int(seen) + 1), if_value=seen)
            break
        except genreg.Conflict:
            pass
"""


@pytest.mark.parametrize("script", [COUNT, SET_IF])
def test_no_change_of_processes_and_threads_is_lost(folder, script):
    path = folder.write(b"n = 0\n# stays\n")
    processes = [subprocess.Popen([sys.executable, "-c", script, path]) for _ in range(4)]
    shared = genreg.Variables(path)
    failures = []

    def count():
        try:
            for _ in range(50):
                with shared.batch() as batch:
                    batch["n"] = str(int(batch["n"]) + 1)
        except BaseException as error:
            failures.append(error)

    threads = [threading.Thread(target=count) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert [process.wait() for process in processes] == [0] * 4 and failures == []
    assert folder.bytes() == b"n = 400\n# stays\n"


def test_a_timeout_ends_a_wait(folder, held, clock):
    path = folder.write(b"a = 1\n")
    held(path)
    with pytest.raises(genreg.Locked) as caught:
        genreg.Variables(path, timeout=0.3)["a"] = "2"
    assert 0.3 <= clock() < 2 and caught.value.cause_name == "REG_LOCK_HELD"
    with pytest.raises(genreg.Locked):
        genreg.Variables(path, timeout=0)["a"] = "2"
    assert genreg.Variables(path)["a"] == "1"  # who reads does not wait


def test_an_interrupt_ends_a_wait(folder, held, clock):
    path = folder.write(b"a = 1\n")
    holder = held(path)
    registry = genreg.Variables(path)
    threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT)).start()
    with pytest.raises(KeyboardInterrupt):
        registry["a"] = "2"
    assert clock() < 2
    holder.stdin.close()
    registry["a"] = "3"
    assert folder.bytes() == b"a = 3\n"


def test_a_lock_on_the_file_itself_is_waited_for_as_well(folder, held, clock):
    path = folder.write(b"a = 1\n")
    holder = held(path, "import sys, fcntl\nwith open(sys.argv[1], 'r+') as file:\n    fcntl.lockf(file, fcntl.LOCK_EX)")
    for look in [lambda registry: registry["a"], list, lambda registry: registry.set("a", "2")]:
        with pytest.raises(genreg.Locked):
            look(genreg.Variables(path, timeout=0.2))
    threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT)).start()
    with pytest.raises(KeyboardInterrupt):
        genreg.Variables(path)["a"]
    threading.Timer(0.3, holder.stdin.close).start()
    assert genreg.Variables(path)["a"] == "1" and clock() < 5


def test_threads_go_on_while_one_waits(folder, held):
    path = folder.write(b"a = 1\n")
    registry = genreg.Variables(path)
    holder = held(path)
    done = []
    waiter = threading.Thread(target=lambda: (registry.set("a", "2"), done.append("waiter")))
    waiter.start()
    for _ in range(100):
        assert registry["a"] == "1"
    assert done == []
    other = genreg.Variables(folder.path("other"))
    other["b"] = "1"
    holder.stdin.close()
    waiter.join()
    assert registry["a"] == "2" and done == ["waiter"]


def test_a_batch_belongs_to_one_thread(folder):
    registry = genreg.Variables(folder.write(b"a = 1\n"))
    with registry.batch() as batch:
        with pytest.raises(genreg.Defect):
            registry["a"] = "2"  # would wait for itself
        with pytest.raises(genreg.Defect):
            with batch:
                pass
        batch["a"] = "3"
    with pytest.raises(genreg.Defect):
        batch["a"]
    registry["a"] = "4"
    assert folder.bytes() == b"a = 4\n"


def test_a_batch_that_is_forgotten_or_forked_leaves_the_file(folder):
    path = folder.write(b"a = 1\n")
    registry = genreg.Variables(path)
    native = registry._file.begin(None)
    native.change("a", ("a", "2", None))
    del native
    assert folder.bytes() == b"a = 1\n"
    with registry.batch() as batch:
        batch["a"] = "2"
        child = os.fork()
        if child == 0:
            try:
                batch._native.commit(None)
            except genreg.Error:
                os._exit(0)
            finally:
                os._exit(1)
        assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0
        assert folder.bytes() == b"a = 1\n"
    child = os.fork()
    if child == 0:
        registry["a"] += "3"
        os._exit(0)
    os.waitpid(child, 0)
    assert registry["a"] == "23"


def test_threads_that_the_interpreter_leaves_behind(folder, held):
    path = folder.write(b"a = 1\n")
    held(path)
    script = """
import sys, threading, time, genreg
registry = genreg.Variables(sys.argv[1])
for _ in range(4):
    threading.Thread(target=registry.set, args=("a", "2"), daemon=True).start()
time.sleep(0.2)
"""
    run = subprocess.run([sys.executable, "-c", script, path], capture_output=True, timeout=20)
    assert (run.returncode, run.stderr) == (0, b"")
    assert folder.bytes() == b"a = 1\n"
