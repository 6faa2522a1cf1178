"""Which calls are failed with which errors, and what each command does when none fails."""

import collections
import functools
import operator
import re

import commands
from commands import ADD, ADDED
from private_host import REGISTRY
from registry_text import EMPTY, document, record

# The errors that each call is made to give.
ERRORS = {call: errors.split() for calls, errors in (
    ("mmap mremap", "ENOMEM"), ("openat", "EMFILE ENOMEM EIO EINTR ENOSPC"), ("read", "EINTR EAGAIN EIO ENOMEM"),
    ("write", "EINTR EAGAIN EIO ENOSPC EPIPE"), ("pipe", "EMFILE"), ("pipe2 socket", "EMFILE ENOMEM"),
    ("fcntl dup2", "EINTR EMFILE EIO"), ("clone clone3", "EAGAIN ENOMEM"), ("poll", "EINTR ENOMEM"),
    ("select pselect6 newfstatat getdents64", "EINTR ENOMEM EIO"), ("wait4", "EINTR ECHILD EIO"),
    ("fstat close_range", "EIO ENOMEM"), ("lseek chdir sysinfo readlink access", "EIO"), ("setuid setgid", "EAGAIN"),
    ("execve", "EAGAIN ENOMEM EIO EMFILE"), ("connect", "EAGAIN EINTR"), ("sendto", "EAGAIN ENOMEM EPIPE"),
) for call in calls.split()}
# Calls that cannot fail when they are made as they are here; close is tried apart.
NEVER = {"rt_sigaction", "rt_sigprocmask", "munmap", "mprotect", "getpid", "gettid", "gettimeofday", "clock_gettime",
         "exit_group", "set_robust_list", "prlimit64", "futex", "getrandom", "umask", "close", "getuid", "brk"}


# A call, and the registry before it; None where a folder is in the file's place.
Command = collections.namedtuple("Command", "name words before")
# One series: N goes up from the first until nothing is injected any more.
Fault = collections.namedtuple("Fault", "command where call error first path", defaults=("",))
OTHER = record("other", displayname="n")


def beside_another(registry):
    """The registry with one more record in front."""
    return registry.replace('{"php":[', f'{{"php":[{OTHER},') if registry else document(OTHER)


def every_command():
    """Each with the registry that the one before it left."""
    before = ""
    for word, command in commands.COMMANDS.items():
        yield Command(word, command.words, beside_another(before))
        before = command.registry


COMMANDS = [
    Command("--help", ("--help",), EMPTY), *every_command(), Command("--add, no file possible", ADD, None),
    Command("--update of a service", ("--update", "--id", "x", "--service", "t", "--displayname", "m"),
            beside_another(document(ADDED)))]


def call_of(line):
    found = re.match(r"(?:\d+ +)?(\w+)\(", line)
    return found and found[1]


class Reference:
    """What a command does when nothing fails."""

    def __init__(self, runner, command):
        self.command = command
        self.before = command.before or ""
        self.clean = runner.run(command, "--trace=all")
        assert self.clean.status == 0, (command.name, self.clean)
        self.after = self.clean.registry
        self.after_none = runner.run(command._replace(before=command.before and ""), "--trace=all").registry
        calls = [call_of(line) for line in self.clean.trace]
        main = next(n for n, line in enumerate(self.clean.trace) if "F_GETFD" in line)
        self.before_main = collections.Counter(filter(None, calls[:main]))
        self.own = collections.Counter(call for call in calls[main:] if call and call != "execve")
        trace = runner.run(command, "-f", "--detach-on=execve", "--trace=all").trace
        of_children = [line for line in trace if line.split()[0] != trace[0].split()[0]]
        self.programs = [found for line in of_children for found in re.findall(r'execve\("([^"]*)"', line)]
        per_child = collections.defaultdict(collections.Counter)
        for line in of_children:
            per_child[line.split()[0]][call_of(line)] += 1
        self.child = functools.reduce(operator.or_, per_child.values(), collections.Counter())
        for call in (None, "execve"):
            self.child.pop(call, None)

    def unknown(self):
        return {call for call in [*self.own, *self.child] if call not in ERRORS and call not in NEVER}


def tracing(fault, number):
    inject = f"--inject={fault.call}:error={fault.error}:when={number}"
    if fault.path:
        return [*(["-f"] if fault.where == "exec" else []), "-P", fault.path, f"--trace={fault.call}", inject]
    children = ["-f", "--detach-on=execve"] if fault.where == "child" else []
    return [*children, f"--trace={fault.call},clone,clone3,wait4", inject]


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
