"""A host's registry as the modules see it: through the program, one caller at a time."""

import fcntl
import json
import os
import shlex
import time

FOLDER = "/etc/ovt"
DEPOTCTL = "/opt/ovt/admin/sbin/depotctl"
# In the order in which they are given to the program.
FIELDS = ("displayname", "path", "clipath", "phpini", "type", "service", "poold")
FPM_FIELDS = ("service", "poold")
# A reread drops a custom handler with one of these.
RESERVED = ("module", "cgi", "fastcgi")

READING_OPTIONS = {
    "executable": {"type": "path", "default": "/opt/ovt/admin/sbin/tamrix"},
    "lock_timeout": {"type": "int", "default": 300},
}
CHANGING_OPTIONS = {**READING_OPTIONS, "set_dirty_flag": {"type": "bool", "default": True}}


class Registry:
    """Holds the lock from construction until this process ends. Every failure ends the task with its own text."""

    def __init__(self, module):
        self.module = module
        self.warned = set()
        self.program = module.get_bin_path(module.params["executable"])
        if not self.program:
            module.fail_json(msg=f"{module.params['executable']} is missing: install the package tamrix on this host")
        self.take_lock()
        self.load()

    def take_lock(self):
        """The lock is not inherited. Where the folder cannot be opened, the program has more to say."""
        try:
            descriptor = os.open(FOLDER, os.O_RDONLY)
        except OSError:
            return
        deadline = time.monotonic() + self.module.params["lock_timeout"]
        while True:
            try:
                return fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError:
                if time.monotonic() >= deadline:
                    self.module.fail_json(
                        msg=f"another caller has held the lock on {FOLDER} for {self.module.params['lock_timeout']} s; "
                            "lslocks shows which")
                time.sleep(0.1)

    def call(self, *words):
        # Without the expansion: "$version" is for the program, whatever the environment holds.
        return self.module.run_command([self.program, *words], expand_user_and_vars=False)

    def load(self):
        """Lists the handlers, `handlers` being the listing and `by_id` the same by identifier."""
        status, out, err = self.call("--list-json")
        if status != 0:
            self.fail("--list-json", status, out, err)
        self.warn(err)
        self.listing = out
        try:
            self.handlers = json.loads(out)["php"]
            self.by_id = {handler["id"]: handler for handler in self.handlers}
        except (ValueError, KeyError, TypeError) as problem:
            self.module.fail_json(msg=f"--list-json is not understood: {problem!r}", stdout=out)

    def change(self, words, mend):
        """Runs a changing command and lists again. `mend` is what to run when the command fails after the save."""
        if not self.module.params["set_dirty_flag"]:
            words = [*words, "--no-set-dirty-flag"]
        status, out, err = self.call(*words)
        if status != 0:
            changed = self.call("--list-json")[1] != self.listing
            advice = f"\nThe registry is changed all the same; mend the cause, then run: {mend}" if changed else ""
            self.fail(words[0], status, out, err, advice, changed=changed)
        self.warn(err)
        self.load()

    def fail(self, command, status, out, err, advice="", **more):
        ending = f"was killed by signal {-status}" if status < 0 else f"ended with status {status}"
        self.module.fail_json(msg=(err.strip() or f"{command} {ending}") + advice,
                              rc=status, stdout=out, stderr=err, **more)

    def warn(self, err):
        for line in err.splitlines():
            if line and line not in self.warned:
                self.warned.add(line)
                self.module.warn(line)

    def require(self, fulfilled, what):
        """A failed save is logged to syslog only; the exit status does not tell."""
        if not fulfilled:
            self.module.fail_json(msg=f"the program reported success, but {what}; see the system log of the host")


def command_line(*words):
    return " ".join(map(shlex.quote, words))


def expanded(name, version):
    return name.replace("$version", version or "")
