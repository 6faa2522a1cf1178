"""Callback plugin: every result of every host as one JSON line in the file that FLEET_RESULTS names."""

import json
import os

from ansible.plugins.callback import CallbackBase

DOCUMENTATION = """
name: results
type: notification
short_description: results as JSON lines
description: Appends each result to the file that FLEET_RESULTS names.
"""


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = "notification"
    CALLBACK_NAME = "results"
    CALLBACK_NEEDS_ENABLED = True

    def keep(self, outcome, result):
        line = {"host": result._host.get_name(), "task": result._task.get_name(), "outcome": outcome,
                "result": result._result}
        with open(os.environ["FLEET_RESULTS"], "a", encoding="utf-8") as file:
            file.write(json.dumps(line) + "\n")

    def v2_runner_on_ok(self, result):
        self.keep("ok", result)

    def v2_runner_on_failed(self, result, ignore_errors=False):
        self.keep("failed", result)

    def v2_runner_on_unreachable(self, result):
        self.keep("unreachable", result)
