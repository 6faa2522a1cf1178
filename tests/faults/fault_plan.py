"""Which calls are failed with which errors, and what each command does when none fails."""

import collections
import dataclasses
import re

from private_host import REGISTRY
from registry_text import CGI, CLI, INI, document, record

# The errors that each call is made to give.
ERRORS = {
    "mmap": ("ENOMEM",), "mremap": ("ENOMEM",),
    "openat": ("EMFILE", "ENOMEM", "EIO", "EINTR", "ENOSPC"),
    "read": ("EINTR", "EAGAIN", "EIO", "ENOMEM"),
    "write": ("EINTR", "EAGAIN", "EIO", "ENOSPC", "EPIPE"),
    "pipe": ("EMFILE",), "pipe2": ("EMFILE", "ENOMEM"), "fcntl": ("EINTR", "EMFILE", "EIO"),
    "clone": ("EAGAIN", "ENOMEM"), "clone3": ("EAGAIN", "ENOMEM"),
    "select": ("EINTR", "ENOMEM", "EIO"), "pselect6": ("EINTR", "ENOMEM", "EIO"),
    "poll": ("EINTR", "ENOMEM"), "wait4": ("EINTR", "ECHILD", "EIO"),
    "newfstatat": ("EIO", "ENOMEM", "EINTR"), "fstat": ("EIO", "ENOMEM"), "getdents64": ("EIO", "ENOMEM", "EINTR"),
    "lseek": ("EIO",), "dup2": ("EINTR", "EMFILE", "EIO"), "execve": ("EAGAIN", "ENOMEM", "EIO", "EMFILE"),
    "socket": ("EMFILE", "ENOMEM"), "connect": ("EAGAIN", "EINTR"), "sendto": ("EAGAIN", "ENOMEM", "EPIPE"),
    "setuid": ("EAGAIN",), "setgid": ("EAGAIN",), "chdir": ("EIO",), "close_range": ("ENOMEM", "EIO"),
    "sysinfo": ("EIO",), "readlink": ("EIO",), "access": ("EIO",),
}
# Calls that cannot fail when they are made as they are here; close is tried apart.
NEVER = {"rt_sigaction", "rt_sigprocmask", "munmap", "mprotect", "getpid", "gettid", "gettimeofday", "clock_gettime",
         "exit_group", "set_robust_list", "prlimit64", "futex", "getrandom", "umask", "close", "getuid", "brk"}
OLD = (record("a", displayname="n"), record("f", type="fpm", service="s", poold="/p", displayname="n"))


@dataclasses.dataclass
class Command:
    name: str
    words: tuple
    prepare: object = None


def folder_for_registry(host):
    host.path(REGISTRY).mkdir()


COMMANDS = [
    Command("help", ("--help",)),
    Command("list", ("--list",)),
    Command("list-json", ("--list-json",)),
    Command("add", ("--add", "--path", CGI, "--clipath", CLI, "--phpini", INI, "--type", "cgi", "--id", "x")),
    Command("add fpm", ("--add", "--path", CGI, "--phpini", INI, "--type", "fpm", "--service", "s", "--poold", "/p")),
    Command("add, no registry file possible", ("--add", "--path", CGI, "--phpini", INI, "--type", "cgi", "--id", "x"),
            folder_for_registry),
    Command("update of the path", ("--update", "--id", "a", "--path", CGI, "--displayname", "m")),
    Command("update of the service", ("--update", "--id", "f", "--service", "t", "--displayname", "m")),
    Command("remove", ("--remove", "--id", "a")),
    Command("reread", ("--reread",)),
]


def call_of(line):
    found = re.match(r"(?:\d+ +)?(\w+)\(", line)
    return found.group(1) if found else None


class Reference:
    """What a command does when nothing fails."""

    def __init__(self, runner, command):
        self.command = command
        self.before = "" if command.prepare else document(*OLD)
        clean = runner.run(command, "--trace=all")
        assert clean.status == 0, (command.name, clean)
        self.clean = clean
        self.after = clean.registry
        self.after_none = runner.run(command, "--trace=all", records=()).registry
        calls = [call_of(line) for line in clean.trace]
        main = next(n for n, line in enumerate(clean.trace) if "F_GETFD" in line)
        self.before_main = collections.Counter(filter(None, calls[:main]))
        self.own = collections.Counter(call for call in calls[main:] if call and call != "execve")
        self.children()(runner.run(command, "-f", "--detach-on=execve", "--trace=all"))

    def children(self):
        def read(clean):
            parent = clean.trace[0].split()[0]
            per_child = collections.defaultdict(collections.Counter)
            self.programs = []
            for line in clean.trace:
                pid, call = line.split()[0], call_of(line)
                if pid != parent and call == "execve":
                    self.programs.append(re.search(r'execve\("([^"]*)"', line).group(1))
                elif pid != parent and call:
                    per_child[pid][call] += 1
            self.child = collections.Counter()
            for counts in per_child.values():
                self.child |= counts
        return read

    def unknown(self):
        return {call for call in [*self.own, *self.child] if call not in ERRORS and call not in NEVER}


@dataclasses.dataclass(frozen=True)
class Fault:
    """One series: N goes up until nothing is injected any more."""

    command: int
    where: str
    call: str
    error: str
    first: int
    path: str = ""

    def tracing(self, number):
        words = [f"--trace={self.call},clone,clone3,wait4", f"--inject={self.call}:error={self.error}:when={number}"]
        if self.where == "child":
            words = ["-f", "--detach-on=execve", *words]
        elif self.where == "exec":
            words = ["-f", "-P", self.path, f"--trace={self.call}", words[1]]
        elif self.path:
            words = ["-P", self.path, f"--trace={self.call}", words[1]]
        return words


def faults_of(index, reference):
    for call in sorted(reference.own):
        for error in ERRORS.get(call, ()):
            yield Fault(index, "program", call, error, reference.before_main[call] + 1)
    for error in ("EIO", "EINTR", "ENOSPC"):
        yield Fault(index, "program", "close", error, 1, REGISTRY)
    for call in sorted(reference.child):
        for error in ERRORS.get(call, ()):
            yield Fault(index, "child", call, error, 1)
    for path in sorted(set(reference.programs)):
        for error in ERRORS["execve"]:
            yield Fault(index, "exec", "execve", error, 1, path)
