#!/usr/bin/env python3
"""The collection as it is shipped, installed from its archive, on real files with the tool that is named:

    ansible/test/collection_test.py build/release/tool/genreg

Playbooks show what Ansible makes of it; the finer cases run a module as Ansible would, without its start-up."""

import base64
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
MODULES = ["varval", "services", "inittab", "binvar", "service", "instance", "variable"]
TOOL = ""
ROOM = ""
PYTHON = ""


def setUpModule():
    global ROOM, PYTHON
    ROOM = tempfile.mkdtemp()
    unittest.addModuleCleanup(shutil.rmtree, ROOM)
    os.environ.update(ANSIBLE_COLLECTIONS_PATH=ROOM, ANSIBLE_HOME=os.path.join(ROOM, "home"), ANSIBLE_LOCALHOST_WARNING="0",
                      ANSIBLE_CALLBACK_PLUGINS=os.path.join(HERE, "callback"), ANSIBLE_STDOUT_CALLBACK="told",
                      PYTHONDONTWRITEBYTECODE="1", LC_ALL="C.UTF-8")
    with open(shutil.which("ansible-playbook")) as script:
        PYTHON = script.readline().lstrip("#! ").strip()
    galaxy = ["ansible-galaxy", "collection"]
    collection = os.path.join(HERE, "..", "rvn", "genreg")
    subprocess.run(galaxy + ["build", collection, "--output-path", ROOM], check=True, stdout=subprocess.DEVNULL)
    archive = next(os.path.join(ROOM, name) for name in os.listdir(ROOM) if name.endswith(".tar.gz"))
    subprocess.run(galaxy + ["install", "--offline", archive, "-p", ROOM], check=True, stdout=subprocess.DEVNULL)


def python(*words, data=None):
    done = subprocess.run([PYTHON, *words], input=data, cwd=ROOM, capture_output=True, text=True)
    return done.stdout


class CollectionTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(dir=ROOM)

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, text):
        with open(self.path(name), "w") as file:
            file.write(text)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def genreg(self, *words):
        return subprocess.run([TOOL, *words], check=True, capture_output=True, text=True).stdout

    def state(self):
        """Everything in the folder, and when it was written; not the lock files, whose notes tell who had them."""
        found = {}
        for folder, _, names in os.walk(self.folder):
            for name in [each for each in names if not each.endswith(".lock")]:
                path = os.path.join(folder, name)
                with open(path, "rb") as file:
                    found[path] = (os.stat(path).st_mtime_ns, os.stat(path).st_ino, file.read())
        return found

    def play(self, name, *options, **more):
        given = json.dumps(dict(more, tool=TOOL, folder=self.folder, ansible_python_interpreter=PYTHON))
        done = subprocess.run(["ansible-playbook", "-i", "localhost,", os.path.join(HERE, name), "-e", given, *options],
                              cwd=self.folder, capture_output=True, text=True)
        told = {}
        for line in done.stdout.splitlines():
            result = json.loads(line)
            told[result["task"]] = result
        return told, done

    def run_module(self, name, /, diff=False, **given):
        arguments = dict(given, _ansible_diff=diff)
        arguments.setdefault("genreg", TOOL)
        if name in ("service", "instance", "variable"):
            arguments.setdefault("registry", self.path("global.reg"))
        else:
            arguments.setdefault("path", self.path(name))
        text = python("-m", "ansible_collections.rvn.genreg.plugins.modules." + name,
                      data=json.dumps({"ANSIBLE_MODULE_ARGS": arguments}))
        return json.loads(text)

    def changed(self, name, /, **given):
        result = self.run_module(name, **given)
        self.assertNotIn("failed", result, result.get("msg"))
        return result["changed"]

    def test_playbook_is_made_true_once(self):
        self.write("varval", "# head\nport =  1 # agreed\ngone = 1\n")
        before = self.state()
        told, done = self.play("state.yml", "--check", "--diff")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertEqual(list(told), MODULES)
        self.assertTrue(all(result["changed"] for result in told.values()), told)
        self.assertEqual(self.state(), before)
        self.assertEqual([(each["before"], each["after"]) for each in told["varval"]["diff"]],
                         [("port =  1 # agreed\n", "port =  7000 # agreed\n"),
                          ("", 'greeting = "a  b" # seen by all\n'), ("gone = 1\n", "")])
        self.assertEqual(told["service"]["diff"][0]["after"],
                         {"servicePath": "/opt/rvn", "fixpackNumber": 2, "serviceFlag": "A"})

        told, done = self.play("state.yml")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertTrue(all(result["changed"] for result in told.values()), told)
        self.assertEqual(self.read("varval"),
                         b'# head\nport =  7000 # agreed\ngreeting = "a  b" # seen by all\n')
        self.assertEqual(self.read("services"), b"rvnd\t\t7000/tcp\trvn registry\nrvnd\t\t7000/udp\n")
        self.assertEqual(self.read("inittab"), b"rvn:2345:respawn:/opt/rvn/bin/daemon -f\n")
        records = [json.loads(line) for line in
                   self.genreg("--json", "--registry", self.path("global.reg"), "export").splitlines()]
        self.assertEqual([each.get("startAtBoot") for each in records], [None, 1, 0, None])

        before = self.state()
        told, done = self.play("state.yml")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertEqual([name for name, result in told.items() if result["changed"]], [])
        self.assertEqual(self.state(), before)

    def test_playbook_that_is_refused(self):
        self.write("varval", "port = 7\n")
        self.write("held", "port = 7\n")
        holder = subprocess.Popen([TOOL, "lock", "run", self.path("held"), "--", "sh", "-c", "echo; exec sleep 600"],
                                  stdout=subprocess.PIPE, start_new_session=True)
        self.addCleanup(holder.communicate)
        self.addCleanup(os.killpg, holder.pid, signal.SIGKILL)
        holder.stdout.readline()
        told, done = self.play("refused.yml", secret="told to nobody")
        self.assertEqual(done.returncode, 2, done.stdout + done.stderr)
        self.assertTrue(told["conflict"]["failed"])
        self.assertEqual(told["conflict"]["rc"], 5)
        self.assertRegex(told["conflict"]["msg"], "varval: port is 7, not 8; nothing was changed$")
        self.assertEqual(told["locked"]["rc"], 4)
        self.assertEqual(told["locked"]["genreg_error"]["kind"], "locked")
        self.assertRegex(told["locked"]["msg"], "is locked by .*gave up after 0.2 s")
        self.assertEqual(self.read("varval"), b"port = 7\npassword = told to nobody\n")
        self.assertNotIn("nobody", done.stdout + done.stderr)

    def test_batch_is_one_commit_and_shows_nothing_to_others(self):
        self.write("varval", "kept = 1\n")
        self.write("genreg", "#!/bin/sh\necho \"$*\" >> '%s'\nexec strace -qqfo '%s' -e trace=/rename '%s' \"$@\"\n"
                   % (self.path("words"), self.path("calls"), TOOL))
        os.chmod(self.path("genreg"), 0o755)
        items = [dict(name="name%d" % at, value="hidden%d" % at) for at in range(10)]
        self.assertTrue(self.changed("varval", items=items, genreg=self.path("genreg")))
        self.assertEqual(self.read("varval").count(b"hidden"), 10)
        renamed = re.findall(rb'rename\w*\(.*"([^"]*)"', self.read("calls"))
        self.assertEqual(renamed, [self.path("varval").encode()])
        self.assertEqual(self.read("words").count(b"\n"), 1)
        self.assertNotIn(b"hidden", self.read("words"))

        self.assertTrue(self.run_module("varval", items=items + [dict(name="a=b", value=1)])["failed"])
        self.assertEqual(self.read("varval").count(b"\n"), 11)

    def test_absent(self):
        gone = dict(name="gone", state="absent")
        missing = self.run_module("varval", **gone)
        self.assertEqual((missing["changed"], len(missing["warnings"])), (False, 1), missing)
        self.assertFalse(os.path.exists(self.path("varval")))
        self.write("varval", "gone = 1\nkept = 2\n")
        self.assertTrue(self.changed("varval", **gone))
        self.assertFalse(self.changed("varval", **gone))
        self.assertTrue(self.changed("varval", items=[gone, dict(name="kept", value=3), gone]))
        self.assertFalse(self.changed("varval", items=[]))
        # What the same task has added is there.
        self.changed("varval", items=[gone, dict(name="gone", value=1), gone, dict(name="kept", value=4)])
        self.assertEqual(self.read("varval"), b"kept = 4\n")
        # An item that fails is named by its number, whatever is left out before it.
        failed = self.run_module("varval", items=[gone, dict(name="new", value=1, if_value=2)])
        self.assertRegex(failed["msg"], "^item 2: .*there is no variable new")

        self.write("services", "rvnd 1/tcp\nrvnd 1/udp\n")
        self.assertEqual(self.run_module("services", name="rvnd", state="absent")["genreg_error"]["kind"], "several")
        items = [dict(protocol="tcp"), dict(protocol="sctp")]
        self.assertTrue(self.changed("services", name="rvnd", state="absent", items=items))
        self.assertEqual(self.read("services"), b"rvnd 1/udp\n")

        key = dict(service="RVN", version_code="9.7.0.0")
        self.changed("service", **key)
        self.changed("variable", service="RVN", variable="x")
        items = [dict(version_code="9.07"), dict(version_code="9.8")]
        self.assertTrue(self.changed("service", service="RVN", state="absent", items=items))
        self.assertEqual(self.genreg("--registry", self.path("global.reg"), "service", "list", "--json"), "")
        self.assertFalse(self.changed("service", state="absent", **key))
        failed = self.run_module("service", service="RVN", version_code="new", state="absent")
        self.assertEqual(failed["genreg_error"]["kind"], "invalid")

    def test_what_is_expected(self):
        self.write("varval", "a = 1\nb = 1 # c\n")
        swap = [dict(name="a", value=2, if_value=1), dict(name="b", value=2, if_fields=dict(value=1, comment="c"))]
        self.assertTrue(self.changed("varval", items=swap))
        self.assertFalse(self.changed("varval", items=swap))
        self.write("varval", "a = 2\nb = 3 # c\n")
        before = self.state()
        failed = self.run_module("varval", items=swap)
        self.assertEqual((failed["rc"], failed["genreg_error"]["kind"]), (5, "changed"))
        self.assertTrue(self.run_module("varval", name="b", state="absent", if_value=7)["failed"])
        self.assertTrue(self.run_module("varval", name="b", state="absent", if_fields=dict(comment=None))["failed"])
        self.assertEqual(self.state(), before)

        key = dict(service="RVN", version_code="9.7", instance_name="i")
        self.changed("instance", start_at_boot=True, comment="x", **key)
        self.assertTrue(self.changed("instance", comment="", if_fields=dict(start_at_boot=True, usage=""), **key))
        record = json.loads(self.genreg("--registry", self.path("global.reg"), "--json", "export"))
        self.assertNotIn("comment", record)

    def test_bytes_that_are_no_text(self):
        raw = base64.b64encode(b"caf\xe9").decode()
        self.assertTrue(self.changed("varval", name=raw, value=raw, base64=["name", "value"]))
        self.assertEqual(self.read("varval"), b"caf\xe9 = caf\xe9\n")
        told = self.run_module("varval", name=raw, value=1, base64=["name"], diff=True)
        self.assertEqual(told["diff"][0]["after"], "caf\ufffd = 1\n")
        gone = dict(name=raw, base64=["name"], state="absent")
        self.assertTrue(self.changed("varval", **gone))
        self.assertFalse(self.changed("varval", **gone))

    def test_what_is_no_record(self):
        for given, words in (
            (dict(value=1), "missing required arguments: name"),
            (dict(items=[dict(name="a", value=1), dict(name="b", valeu=1)]), "item 2: .*valeu"),
            (dict(name="a", value=1, if_fields=dict(comments="x")), "if_fields: .*comments"),
            (dict(name="a", value=1, base64=["comment"]), "base64: no comment"),
            (dict(name="a", value=[1]), "neither a text nor a number"),
            (dict(name="a", value=1, genreg="/none"), "/none"),
        ):
            result = self.run_module("varval", **given)
            self.assertTrue(result["failed"])
            self.assertRegex(result["msg"], words)
        self.assertEqual(os.listdir(self.folder), [])
        self.write("global.reg", "no records")
        damaged = self.run_module("variable", service="a", variable="b", value="c")
        self.assertEqual((damaged["rc"], damaged["genreg_error"]["kind"]), (7, "damaged"))
        usage = self.run_module("varval", name="a", value=1, wait=-1)
        self.assertEqual((usage["rc"], usage["genreg_error"]["kind"]), (2, "usage"))
        died = self.run_module("varval", name="a", value=1, genreg="/bin/false")
        self.assertRegex(died["msg"], "exited with 1")

    def test_documents(self):
        version = self.genreg("--version").split()[-1]
        self.assertIn("rvn-genreg-%s.tar.gz" % version, os.listdir(ROOM))
        names = ["rvn.genreg." + name for name in MODULES]
        told = subprocess.run(["ansible-doc", "-t", "module", "--json", *names], check=True, capture_output=True, text=True)
        documents = json.loads(told.stdout)
        for name in MODULES:
            form = json.loads(python("-c", "import json; from ansible_collections.rvn.genreg.plugins.modules.%s import FORM;"
                                     "print(json.dumps([FORM.arguments(), list(FORM.fields)]))" % name))
            document = documents["rvn.genreg." + name]
            told = {option: {word: about[word] for word in ("type", "elements", "choices", "default", "required")
                             if about.get(word) not in (None, False)}
                    for option, about in document["doc"]["options"].items()}
            taken = {option: {word: value for word, value in about.items() if value is not False}
                     for option, about in form[0].items()}
            self.assertEqual(told, taken, name)
            self.assertIn("rvn.genreg.%s:" % name, document["examples"])
            self.assertIn("changes", document["return"])
            if "registry" in taken:
                fields = re.search("^Fields: (.*)$", self.genreg(name, "set", "--help"), re.M).group(1).split()
                snake = [re.sub("([A-Z])", lambda found: "_" + found.group(1).lower(), field) for field in fields]
                self.assertEqual(form[1], snake)


if __name__ == "__main__":
    TOOL = os.path.abspath(sys.argv.pop(1))
    unittest.main()
