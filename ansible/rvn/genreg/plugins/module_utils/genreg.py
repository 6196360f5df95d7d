"""What the modules share: the records that a task asks for become one batch of the tool genreg, on its standard
input, and what the tool tells becomes the task's result.

A module says with a Form what its records are, and calls run()."""

import base64
import json
import re
import subprocess

from ansible.module_utils.basic import AnsibleModule
from ansible.module_utils.common.arg_spec import ArgumentSpecValidator

# Remarks of the tool that say what the result says anyway; of others the user is warned.
EXPECTED_REMARKS = ("created", "unchanged", "dry-run", "waiting")


class Form:
    """The records of one kind: `keys` find one, `fields` are all that it may have besides, each with its argument. The
    keys that are no `needed` ones only tell twins apart."""

    def __init__(self, name, keys, fields, needed=None, is_global=False, has_value=True):
        self.name = name
        self.keys = keys
        self.fields = fields
        self.needed = needed or keys
        self.is_global = is_global
        self.has_value = has_value

    def record_arguments(self):
        """What a task gives for one record, and each of its `items`."""
        arguments = {name: dict(type="str") for name in self.keys}
        arguments.update(self.fields)
        arguments.update(
            state=dict(type="str", choices=["present", "absent"], default="present"),
            if_fields=dict(type="dict"),
            base64=dict(type="list", elements="str", default=[]),
        )
        if self.has_value:
            arguments.update(if_value=dict(type="raw"))
        return arguments

    def arguments(self):
        arguments = self.record_arguments()
        arguments.update(
            items=dict(type="list", elements="dict"),
            wait=dict(type="float"),
            genreg=dict(type="path", default="genreg"),
        )
        if self.is_global:
            arguments.update(registry=dict(type="path"))
        else:
            arguments.update(path=dict(type="path", required=True), parents=dict(type="bool", default=False))
        return arguments


class Refused(Exception):
    """A record that is not what the form says."""


def member_of(name):
    """The tool's name of an argument: instance_name is its instanceName."""
    return re.sub("_(.)", lambda found: found.group(1).upper(), name)


def expected_of(form, name, value):
    if name not in form.keys and name not in form.fields:
        raise Refused("if_fields: a record has no %s, but %s" % (name, ", ".join(form.keys + list(form.fields))))
    if form.is_global and isinstance(value, bool):
        return int(value)
    return None if form.is_global and value == "" else value


def item_of(form, record):
    """The line of a batch that asks for a record."""
    item = {"op": "set" if record["state"] == "present" else "delete"}
    if form.is_global:
        item["type"] = form.name
    for name in form.keys + (list(form.fields) if item["op"] == "set" else []):
        value = record[name]
        if value is None:
            continue
        if name in record["base64"]:
            item[member_of(name) + "Base64"] = value
        else:
            # A field of the global registry is never empty: that takes it away.
            item[member_of(name)] = None if form.is_global and value == "" else value
    for name in record["base64"]:
        if record.get(name) is None or (name not in form.keys and name not in form.fields):
            raise Refused("base64: no %s is given" % name)
    if record.get("if_value") is not None:
        item["ifValue"] = record["if_value"]
    if record["if_fields"]:
        item["ifFields"] = {
            member_of(name): expected_of(form, name, value) for name, value in record["if_fields"].items()
        }
    return item


def records_of(form, params):
    """The items of the task's records: of the one that it names, or of its `items`, for which what stands beside them
    holds as well."""
    arguments = form.record_arguments()
    beside = {name: params[name] for name in arguments if params[name] is not None}
    items = [{}] if params["items"] is None else params["items"]
    for number, item in enumerate(items, 1):
        try:
            checked = ArgumentSpecValidator(arguments).validate(dict(beside, **item))
            record = checked.validated_parameters
            lacking = [name for name in form.needed if record.get(name) is None]
            if checked.error_messages or lacking:
                raise Refused("; ".join(checked.error_messages) or
                              "missing required arguments: " + ", ".join(lacking))
            yield item_of(form, record)
        except Refused as refused:
            raise Refused(str(refused) if params["items"] is None else "item %d: %s" % (number, refused))


def bytes_of(members, name):
    if name + "Base64" in members:
        return base64.b64decode(members[name + "Base64"])
    text = members.get(name)
    return None if text is None else str(text).encode("utf-8", "surrogateescape")


def key_of(form, members):
    """What finds a record, as bytes; None for what was not given."""
    key = [bytes_of(members, member_of(name)) for name in form.keys]
    for at, name in enumerate(form.keys):
        if name == "version_code":
            parts = [part.lstrip(b"0") or b"0" for part in key[at].split(b".")]
            key[at] = b".".join(parts + [b"0"] * (4 - len(parts)))
    return key


def finds(key, other):
    return all(one is None or two is None or one == two for one, two in zip(key, other))


class Answer:
    """What a run of the tool said: results by line, remarks, and the failure, None where there is none."""

    def __init__(self, status=0, output="", errors=""):
        self.status = status
        self.changes, unread = objects_of(output)
        told, more = objects_of(errors)
        self.remarks = [each for each in told if "exit" not in each]
        self.error = next((each for each in told if "exit" in each), None)
        if self.error is None and (status != 0 or unread):
            words = "\n".join(more + unread) or "it said nothing"
            self.error = dict(kind="defect", exit=status, code=None, hint="",
                              message="genreg exited with %d: %s" % (status, words))

    def failed_with(self, kind):
        return self.error is not None and self.error.get("kind") == kind

    def changed(self):
        return any(each.get("changed") for each in self.changes)


def objects_of(text):
    """The objects, one a line, and the lines that are none."""
    objects, others = [], []
    for line in text.split("\n"):
        try:
            each = json.loads(line)
        except ValueError:
            each = None
        if isinstance(each, dict):
            objects.append(each)
        elif line:
            others.append(line)
    return objects, others


class Tool:
    """The tool, on one registry."""

    def __init__(self, module, form):
        self.module = module
        self.form = form
        params = module.params
        self.command = [module.get_bin_path(params["genreg"], required=True), "--json"]
        if params["wait"] is not None:
            self.command += ["--wait", "%g" % params["wait"]]
        self.parents = ["--parents"] if params.get("parents") else []
        if form.is_global:
            self.place = ["--registry", params["registry"]] if params["registry"] else []
        else:
            self.place = [form.name, params["path"]]

    def call(self, words, data=""):
        # Not by run_command: of a tool that ends before it has read the batch its words are wanted, not a broken pipe.
        try:
            running = subprocess.Popen(self.command + words, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                       stderr=subprocess.PIPE)
            output, errors = running.communicate(data.encode("utf-8"))
        except OSError as error:
            self.module.fail_json(msg="%s cannot be run: %s" % (self.command[0], error))
        return Answer(running.returncode, output.decode("utf-8", "replace"), errors.decode("utf-8", "replace"))

    def apply(self, items, check):
        """One batch. Lines of items that are None stay empty, so that the others keep their numbers."""
        if not any(items):
            return Answer()
        data = "".join((json.dumps(item) if item else "") + "\n" for item in items)
        words = self.place + ["apply"] if self.form.is_global else [self.form.name, "apply", self.place[1]]
        return self.call(words + self.parents + (["--dry-run"] if check else []), data)

    def list(self):
        if self.form.is_global:
            return self.call(self.place + ["export"])
        return self.call([self.form.name, "list", self.place[1]])

    def without_absent(self, items):
        """The items, with None in the place of each that would delete what is not there."""
        listed = self.list()
        if listed.error and not listed.failed_with("missing"):
            return items
        there = [key_of(self.form, each) for each in listed.changes
                 if not self.form.is_global or each.get("type") == self.form.name]
        left = []
        for item in items:
            key = key_of(self.form, item) if item else None
            if item and item["op"] == "set":
                there.append(key)
            elif item:
                found = [each for each in there if finds(key, each)]
                there = [each for each in there if each not in found]
                item = item if found else None
            left.append(item)
        if listed.error and not any(left):
            # Nothing is in no file; but the path may be mistyped.
            self.module.warn(listed.error["message"])
        return left

    def settle(self, items, check):
        """Applies them; that there is nothing to delete is no failure."""
        while True:
            answer = self.apply(items, check)
            if not answer.failed_with("not-found"):
                return answer
            left = self.without_absent(items)
            if left == items:
                return answer
            items = left

    def carry_out(self, items, check):
        """That a value is another than expected is no conflict where all is as asked for already."""
        answer = self.settle(items, check)
        if answer.failed_with("changed"):
            free = [{name: value for name, value in item.items() if name not in ("ifValue", "ifFields")}
                    for item in items]
            rehearsed = self.settle(free, True)
            if rehearsed.error is None and not rehearsed.changed():
                return rehearsed
        return answer


def shown(side):
    """One side of a change: its line as it stands, or its fields."""
    if side is None:
        return ""
    if "text" in side:
        return side["text"] + "\n"
    if "textBase64" in side:
        return base64.b64decode(side["textBase64"]).decode("utf-8", "replace") + "\n"
    return {name: value for name, value in side.items() if name not in ("line", "record")}


def difference_of(form, change):
    words = [str(change.get(member_of(name), change.get(member_of(name) + "Base64", ""))) for name in form.keys]
    header = "%s: %s %s" % (change.get("path"), form.name, " ".join(words))
    return dict(before_header=header, after_header=header, before=shown(change["before"]), after=shown(change["after"]))


def fail(module, answer):
    """With the tool's words; a line of its standard input is an item of the task."""
    place = "item \\1: " if module.params["items"] is not None else ""
    message = re.sub("^standard input: line ([0-9]+): ", place, answer.error["message"])
    module.fail_json(msg=message, rc=answer.status, genreg_error=answer.error, remarks=answer.remarks)


def run(form):
    module = AnsibleModule(argument_spec=form.arguments(), supports_check_mode=True)
    try:
        items = list(records_of(form, module.params))
    except Refused as refused:
        module.fail_json(msg=str(refused))
    answer = Tool(module, form).carry_out(items, module.check_mode)
    if answer.error:
        fail(module, answer)
    for remark in answer.remarks:
        if remark.get("kind") not in EXPECTED_REMARKS:
            module.warn("%s: %s" % (remark.get("path"), remark.get("message")))
    result = dict(changed=answer.changed(), changes=answer.changes, remarks=answer.remarks)
    if module._diff:
        result["diff"] = [difference_of(form, each) for each in answer.changes if each.get("changed")]
    module.exit_json(**result)
