"""Three private hosts and the real ansible-playbook that reaches them."""

import ctypes
import json
import os
import pathlib
import subprocess
import sys

import pytest

FOLDER = pathlib.Path(__file__).resolve().parent
ROOT = FOLDER.parents[1]
sys.path.insert(0, str(ROOT / "tests/support"))

import private_host  # noqa: E402
from registry_text import CGI, CLI, INI  # noqa: E402

NAMES = ("one", "two", "three")
WRAPPER = "/opt/ovt/fleet/tamrix"
WORDS = "/opt/ovt/fleet/words"


def pytest_addoption(parser):
    parser.addoption("--binary", default=str(ROOT / "build/release/tamrix"), help="the program under test")


def pytest_configure():
    """What bubblewrap leaves to be waited for comes to us instead of to the machine's first process."""
    set_child_subreaper = 36
    ctypes.CDLL(None).prctl(set_child_subreaper, 1, 0, 0, 0)


def reap_orphans():
    try:
        while os.waitpid(-1, os.WNOHANG)[0]:
            pass
    except ChildProcessError:
        pass


class Run:
    """What one ansible-playbook did: its status, what it printed, and per host the results in their order."""

    def __init__(self, done, results):
        self.status = done.returncode
        self.text = done.stdout + done.stderr
        self.results = results

    def outcomes(self):
        return {host: [line["outcome"] for line in lines] for host, lines in self.results.items()}

    def changed(self):
        return {host: [line["result"].get("changed") for line in lines] for host, lines in self.results.items()}

    def result(self, host):
        (line,) = self.results[host]
        return line["result"]


class Fleet:
    def __init__(self, folder, binary):
        self.folder = folder
        self.hosts = {name: private_host.PrivateHost(folder / name, binary) for name in NAMES}
        for host in self.hosts.values():
            host.record_tools()
            host.php(CGI)
            host.php(CLI, "PHP 8.1.2 (cli)\n")
            host.write(INI)
            # Tells which commands the module calls, word by word.
            host.write(WRAPPER, f'#!/bin/sh\nprintf "%s|" "$@" >>{WORDS}\necho >>{WORDS}\n'
                                f'exec {private_host.TAMRIX} "$@"\n', 0o755)
        lines = [f"{name} ansible_private_host={folder / name}" for name in NAMES]
        lines += ["[all:vars]", "ansible_connection=private_host", "ansible_python_interpreter=/usr/bin/python3"]
        (folder / "inventory").write_text("\n".join(lines) + "\n")
        (folder / "ansible.cfg").write_text("")

    def __getitem__(self, name):
        return self.hosts[name]

    def words(self, name):
        """The commands that reached the program on the host since the last call."""
        file = self[name].path(WORDS)
        lines = file.read_text().splitlines() if file.exists() else []
        file.write_text("")
        return lines

    def registries(self):
        return {name: host.registry for name, host in self.hosts.items()}

    def environment(self, **more):
        plugins = FOLDER / "plugins"
        kept = {name: value for name, value in os.environ.items() if not name.startswith("ANSIBLE_")}
        return {**kept, "HOME": str(self.folder), "ANSIBLE_HOME": str(self.folder / "home"),
                "ANSIBLE_LOCAL_TEMP": str(self.folder / "tmp"), "ANSIBLE_CONFIG": str(self.folder / "ansible.cfg"),
                "ANSIBLE_CONNECTION_PLUGINS": str(plugins / "connection"),
                "ANSIBLE_CALLBACK_PLUGINS": str(plugins / "callback"), "ANSIBLE_CALLBACKS_ENABLED": "results",
                "ANSIBLE_PIPELINING": "1", "ANSIBLE_FORKS": "3", "ANSIBLE_NOCOLOR": "1",
                "FLEET_RESULTS": str(self.folder / "results"), **more}

    def playbook(self, file, *flags, **environment):
        results = self.folder / "results"
        results.write_text("")
        done = subprocess.run(
            ["/usr/bin/ansible-playbook", "-i", self.folder / "inventory", *flags, file], capture_output=True,
            text=True, stdin=subprocess.DEVNULL, timeout=300, env=self.environment(**environment))
        by_host = {name: [] for name in NAMES}
        for line in results.read_text().splitlines():
            line = json.loads(line)
            by_host[line["host"]].append(line)
        return Run(done, by_host)

    def task(self, *flags, task_environment=None, loop=None, **arguments):
        """One task with the module on every host, once for each item when there is a loop."""
        task = {"php_handler": {"executable": WRAPPER, **arguments}, "environment": task_environment or {}}
        if loop is not None:
            # Texts that Ansible takes as they are.
            task["loop"] = [{"__ansible_unsafe": item} for item in loop]
        file = self.folder / "playbook.yml"
        file.write_text(json.dumps([{"hosts": "all", "gather_facts": False, "tasks": [task]}]))
        return self.playbook(file, *flags, ANSIBLE_LIBRARY=str(ROOT / "fleet/library"))


@pytest.fixture
def fleet(request, tmp_path):
    yield Fleet(tmp_path, request.config.getoption("--binary"))
    reap_orphans()
