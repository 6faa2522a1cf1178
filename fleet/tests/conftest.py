"""Private hosts, on which a module runs by itself, and the real ansible-playbook, which reaches many of them."""

import ctypes
import json
import os
import pathlib
import subprocess
import sys

import pytest

FOLDER = pathlib.Path(__file__).resolve().parent
ROOT = FOLDER.parents[1]
# The collection as it is installed: built from the tree by the first who asks.
COLLECTION = "ansible_collections.ovt.tamrix"
sys.path.insert(0, str(ROOT / "tests/support"))

import private_host  # noqa: E402
from registry_text import CGI, CLI, INI  # noqa: E402

RECORDER = "/opt/ovt/fleet/tamrix"
WORDS = "/opt/ovt/fleet/words"


def pytest_addoption(parser):
    parser.addoption("--binary", default=str(ROOT / "build/release/tamrix"), help="the program under test")
    parser.addoption("--collections", required=True, help="where the built collection is installed")


def pytest_configure(config):
    """What bubblewrap leaves to be waited for comes to us instead of to the machine's first process."""
    set_child_subreaper = 36
    ctypes.CDLL(None).prctl(set_child_subreaper, 1, 0, 0, 0)
    sys.path.insert(0, config.getoption("--collections"))


def reap_orphans():
    try:
        while os.waitpid(-1, os.WNOHANG)[0]:
            pass
    except ChildProcessError:
        pass


class Host(private_host.PrivateHost):
    """Interpreters and sibling tools that record their calls; the program's calls are recorded, too, word by word."""

    def furnish(self):
        self.record_tools()
        self.php(CGI)
        self.php(CLI, "PHP 8.1.2 (cli)\n")
        self.write(INI)
        self.write(RECORDER, f'#!/bin/sh\nprintf "%s|" "$@" >>{WORDS}\necho >>{WORDS}\n'
                             f'exec {private_host.TAMRIX} "$@"\n', 0o755)
        return self

    def program(self, script):
        """A program that does something else."""
        self.write(RECORDER, f"#!/bin/sh\n{script}\n", 0o755)

    @property
    def words(self):
        """The commands that reached the program since the last look."""
        lines = self.read(WORDS).splitlines() if self.exists(WORDS) else []
        self.write(WORDS)
        return lines

    def module(self, name, *, check=False, diff=False, env=None, **arguments):
        """The module's result, without Ansible around it."""
        # Nothing is logged on the host: the logging of newer releases refuses a NUL before the module sees it.
        arguments = {"executable": RECORDER, **arguments, "_ansible_check_mode": check, "_ansible_diff": diff,
                     "_ansible_no_log": True}
        done = self.run("/usr/bin/python3", "-B", "-m", f"{COLLECTION}.plugins.modules.{name}",
                        stdin=json.dumps({"ANSIBLE_MODULE_ARGS": arguments}),
                        env={"PYTHONPATH": os.path.realpath(self.folder / "shared"), **(env or {})})
        assert done.out, done.err
        result = json.loads(done.out)
        if "warnings" in result:
            # Newer releases return more than the text.
            result["warnings"] = [one if isinstance(one, str) else one["event"]["msg"] for one in result["warnings"]]
        return result

    def handler(self, **arguments):
        return self.module("php_handler", **arguments)


@pytest.fixture
def host(request, tmp_path):
    options = request.config.option
    yield Host(tmp_path / "host", options.binary, options.collections).furnish()
    reap_orphans()


class Run:
    """What one ansible-playbook did: its status, what it printed, and per host the results of the tasks, by name."""

    def __init__(self, done, lines):
        self.status = done.returncode
        self.text = done.stdout + done.stderr
        self.lines = lines

    def results(self, task=""):
        """By host, the results of the tasks whose name contains `task`, with the outcome among them."""
        found = {}
        for line in self.lines:
            if task in line["task"]:
                found.setdefault(line["host"], []).append({**line["result"], "outcome": line["outcome"]})
        return found

    def changed(self, task=""):
        """The hosts where such a task made a change."""
        return {host for host, results in self.results(task).items() if any(one.get("changed") for one in results)}

    def failures(self):
        """By host, the outcome and the message of what failed."""
        return {host: (one["outcome"], one["msg"]) for host, results in self.results().items() for one in results
                if one["outcome"] != "ok"}


class Fleet:
    def __init__(self, folder, binary, names):
        self.folder = folder
        subprocess.run([FOLDER / "hosts", "lay", folder, binary, *names], check=True)
        self.hosts = {name: Host(folder / "hosts" / name, binary).furnish() for name in names}

    def __getitem__(self, name):
        return self.hosts[name]

    def registries(self):
        return {name: host.registry for name, host in self.hosts.items()}

    def calls(self):
        return {name: host.calls for name, host in self.hosts.items()}

    def forget_calls(self):
        for host in self.hosts.values():
            host.forget_calls()

    def environment(self):
        kept = {name: value for name, value in os.environ.items() if not name.startswith("ANSIBLE_")}
        return {**kept, "HOME": str(self.folder), "ANSIBLE_CONFIG": str(self.folder / "ansible.cfg"),
                "ANSIBLE_CALLBACK_PLUGINS": str(FOLDER / "plugins/callback"), "ANSIBLE_CALLBACKS_ENABLED": "results",
                "ANSIBLE_FORKS": "4", "ANSIBLE_NOCOLOR": "1", "FLEET_RESULTS": str(self.folder / "results")}

    def play(self, playbook, *options, **variables):
        """A playbook by its full name, or a list of tasks for every host."""
        if not isinstance(playbook, str):
            file = self.folder / "playbook.yml"
            file.write_text(json.dumps([{"hosts": "all", "gather_facts": False, "tasks": playbook}]))
            playbook = file
        results = self.folder / "results"
        results.write_text("")
        done = subprocess.run(
            ["/usr/bin/ansible-playbook", *options, "-e", json.dumps(variables), playbook], capture_output=True,
            text=True, stdin=subprocess.DEVNULL, timeout=300, env=self.environment())
        return Run(done, [json.loads(line) for line in results.read_text().splitlines()])


@pytest.fixture
def fleet(request, tmp_path):
    """A function that lays hosts with the given names."""
    yield lambda *names: Fleet(tmp_path, request.config.option.binary, names)
    reap_orphans()
