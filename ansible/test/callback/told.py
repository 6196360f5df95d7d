"""Prints the result of each task as one JSON object, with the task's name."""

import json

from ansible.plugins.callback import CallbackBase

DOCUMENTATION = """
name: told
type: stdout
short_description: results as JSON lines
description: Results as JSON lines.
"""


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = "stdout"
    CALLBACK_NAME = "told"

    def v2_runner_on_ok(self, result):
        self.tell(result, False)

    def v2_runner_on_failed(self, result, ignore_errors=False):
        self.tell(result, True)

    def tell(self, result, failed):
        print(json.dumps(dict(result._result, task=result.task_name, failed=failed)), flush=True)
