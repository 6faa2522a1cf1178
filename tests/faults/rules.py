"""What a run with a failed call may do and leave behind."""

import errno
import os
import re

from fault_plan import call_of
from commands import HOOK
from private_host import PACKAGES, REGISTRY, SBIN
from registry_text import CGI, CLI, document


# What standard error says when such a call ends the command.
MESSAGES = {"pipe": "pipe() failed", "pipe2": "pipe() failed", "clone": "fork() failed", "clone3": "fork() failed",
            "select": "select() failed", "pselect6": "select() failed", "fcntl": "fcntl(O_NONBLOCK) failed"}

# Interrupted, these are made again, and nobody notices; two exceptions.
REPEATED = ("read", "write", "select", "pselect6")
STANDARD_STREAM = re.compile(r"^write\([12]<")  # the C library loses what it could not write
CHECK_GIVEN_UP = "fork_exec*: read(pipe) failed: Interrupted system call\n"  # the service check drops the rest


def failed_lines(outcome):
    return [line for line in outcome.trace if "(INJECTED)" in line]


def told(outcome, *actions):
    """Whether the system log says that one of these could not be done to the registry file."""
    return any(f"Unable to {action} {REGISTRY}: " in message for message in outcome.log for action in actions)


def failed_on_registry(outcome, *calls, writing):
    """Whether one of these calls failed on the registry file, an open of it for writing or not for writing."""
    lines = [line for line in failed_lines(outcome) if REGISTRY in line and call_of(line) in calls]
    return any(call_of(line) != "openat" or ("O_WRONLY" in line) == writing for line in lines)


def registry_class(reference, outcome):
    """How the registry file is, or None when it must not be so. A command that says that all is well has either
    changed the file or told the log why not."""
    found = outcome.registry
    if found == reference.before and (
            reference.before == reference.after or outcome.status != 0 or told(outcome, "read", "open")):
        return "before"
    if found == reference.after and found != reference.before:
        return "after"
    if (found == reference.after_none and told(outcome, "read")
            and failed_on_registry(outcome, "openat", "fstat", "newfstatat", "read", writing=False)):
        return "empty"
    if (reference.after.startswith(found) and told(outcome, "write")
            and failed_on_registry(outcome, "write", writing=True)):
        return "cut"
    if reference.command.words[0] == "--reread" and pruned(reference, outcome):
        return "dropped"
    return None


def records_of(text):
    """The records of a written document by id."""
    return {re.search(r'"id":"(.*)",$', one, re.MULTILINE)[1]: one for one in re.findall(r"\n\{\n(?:\t.*\n)*\}", text)}


def pruned(reference, outcome):
    """Whether handlers are missing, a warning names each, and the others are as after a run without a fault."""
    wanted = records_of(reference.after)
    missing = wanted.keys() - records_of(outcome.registry).keys()
    # The package's handlers are not there at all when its file could not be read, or, silently, when nobody can tell
    # whether it is one.
    unread = "handler from " in outcome.err or any(
        call_of(line) == "newfstatat" and f"{PACKAGES}/" in line for line in failed_lines(outcome))
    return (bool(missing) and outcome.registry == document(*(wanted[id] for id in wanted if id not in missing))
            and all(unread and id in ("p", "p-dedicated") or f"({id}) " in outcome.err for id in missing))


def as_without_fault(reference, outcome):
    """In everything that can be seen."""
    return outcome[:5] == reference.clean[:5]


def unnoticed(reference, outcome, injected):
    """Whether an interrupted call has changed nothing, or no more than one of the two exceptions may."""
    if any(map(STANDARD_STREAM.match, injected)):
        return outcome.status == 0 and outcome.registry == reference.after
    given_up = any("read(" in line for line in injected) and outcome.err == CHECK_GIVEN_UP
    return as_without_fault(reference, outcome._replace(err="") if given_up else outcome)


def not_started(reference, fault, number):
    """The programs that cannot be started, up to the one whose failure ends the command."""
    if fault.where == "exec":
        return [fault.path]
    if fault.call != "dup2":
        return []
    rereading = reference.command.words[0] == "--reread"
    stopped = []
    for program in dict.fromkeys(reference.programs):
        # The service check leaves standard input alone; --reread drops a handler whose php-cgi fails, and without one
        # sets nobody's limit.
        if (program == f"{SBIN}/quelmrc" and number > 2) or (program in (CLI, f"{SBIN}/quotagate") and rereading):
            continue
        stopped.append(program)
        if program == f"{SBIN}/quelmrc" or (program in (CGI, CLI) and not rereading):
            break
    return stopped


def says_not_started(program, fault, outcome):
    """Whether the user can find that the program could not be started, and why where that is shown."""
    start = {"dup2": "dup2Custom failed", "execve": "tamrix: forkExecvPipes: execv() failed"}[fault.call]
    reason = f"{start}: {os.strerror(getattr(errno, fault.error))}\n"
    if program == HOOK:
        return f"\nstderr: {reason}" in outcome.hooks and outcome.hooks.endswith("\nExit code: 1\n")
    return {
        CGI: f"can not get version from {CGI}\n", CLI: f"can not get version from {CLI}\n",
        f"{SBIN}/quelmrc": ": service not found.\n",
        f"{SBIN}/quotagate": f"[Error] Failed to set default ulimit: {reason}",
        f"{SBIN}/depotctl": f"Failed to set depotctl dirty flag : {reason}"}[program] in outcome.err


def broken_in_children(reference, fault, number, outcome, injected):
    stopped = not_started(reference, fault, number)
    for program in stopped:
        if not says_not_started(program, fault, outcome):
            yield f"does not say that {program} could not be started"
    if not stopped and len(injected) == len(failed_lines(outcome)) and not as_without_fault(reference, outcome):
        yield "a child that can go on does not"


def broken_in_wait(reference, fault, outcome, injected):
    """The wait that looks for stopped children too is made once, and the log tells of its failure."""
    if "WUNTRACED" in injected[-1] or "WSTOPPED" in injected[-1]:
        if not any(" process failed: " in message for message in outcome.log):
            yield "does not tell the log of a failed wait"
    elif fault.error in ("EINTR", "ECHILD") and not as_without_fault(reference, outcome):
        yield "does not repeat a wait"


def broken_in_program(reference, fault, outcome, injected):
    message = MESSAGES.get(fault.call)
    on_folder = fault.call == "fcntl" and "pipe:[" not in injected[-1]
    if outcome.status == 1 and message and not on_folder and message not in outcome.err:
        yield f"does not say {message}"
    if fault.error == "EINTR" and fault.call in REPEATED and not unnoticed(reference, outcome, injected):
        yield "does not repeat an interrupted call"
    if fault.call == "wait4" and injected:
        yield from broken_in_wait(reference, fault, outcome, injected)
    if fault.path:  # the trace does not show the children
        return
    made = {pid for line in outcome.trace for pid in re.findall(r"^clone3?\(.* = (\d+)", line)}
    waited = {pid for line in outcome.trace for pid in re.findall(r"^wait4\(.* = (\d+)$", line)}
    if made - waited and fault.call != "wait4":
        yield "leaves a child unwaited for"


def broken_rules(reference, fault, number, outcome, injected):
    if outcome.seconds > 10:
        yield "hangs"
    if not 0 <= outcome.status <= 2:
        yield f"ends with {outcome.status}"
    if outcome.status in (1, 2) and not outcome.err and fault.call != "write":
        yield "fails without a message"
    names = [name for name in outcome.left.splitlines() if name not in ("bwrap", "sh")]
    if names:
        yield f"leaves {names} running"
    if registry_class(reference, outcome) is None:
        yield f"leaves the registry as {outcome.registry[:200]!r}"
    if fault.where == "program":
        yield from broken_in_program(reference, fault, outcome, injected)
    else:
        yield from broken_in_children(reference, fault, number, outcome, injected)
