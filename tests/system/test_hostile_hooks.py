"""Hook scripts that do what no hook should.

Expected: nothing that a hook prints, returns or dies of fails the command; its record tells. Two things reach
further, because hooks are ordinary children: who holds their output open is waited for, and a signal to the process
group is a signal to tamrix as well, after the save."""

import os
import time

import pytest

from commands import ADD, DIRTY
from private_host import HOOK_LOG, HOOKS, REGISTRY, SBIN, TAMRIX, Result, ok
from registry_text import CGI, INI, document, record

VARIABLES = f"PHP_CLI = \nPHP_ID = x\nPHP_INI = {INI}\nPHP_PATH = {CGI}\nPHP_TYPE = cgi\nPHP_VERSION = 8.1.2\n"
NEXT = f"[TIME] Start: {HOOKS}/20-next add\n{VARIABLES}stdout: \nstderr: \nExit code: 0\n"


@pytest.fixture
def next_host(php_host):
    php_host.hook("20-next")
    return php_host


def log_record(name, out="", err="", code=0):
    return f"[TIME] Start: {HOOKS}/{name} add\n{VARIABLES}stdout: {out}\nstderr: {err}\nExit code: {code}\n"


def exec_failure(text, number):
    return f"tamrix: forkExecvPipes: execv() failed: {text}\n\nSystem error {number}: {text}\n"


def goes_on(host):
    assert host.registry == document(record("x"))
    assert host.calls[-2:] == [f"{HOOKS}/20-next add", DIRTY]


def test_a_hook_that_prints_a_hundred_megabytes(next_host):
    next_host.hook("10-hook", "head -c 100000000 /dev/zero")
    assert next_host.tamrix(*ADD) == ok("x\n")
    text = next_host.path(HOOK_LOG).read_bytes()
    head = log_record("10-hook").split("stdout: ")[0].replace("[TIME]", "") + "stdout: "
    start = text.index(b"stdout: ") + len("stdout: ")
    assert text[:start].decode().endswith(head)
    assert text[start:start + 100_000_000] == bytes(100_000_000)
    assert text[start + 100_000_000:].startswith(b"\nstderr: \nExit code: 0\n[")
    goes_on(next_host)


# What a hook does, and what its record then says.
RECORDS = {
    "closes its outputs and works on": ("exec >&- 2>&-\nsleep 0.4\nexit 4", "", "", 4),
    "leaves a daemon behind": ("echo started\nsetsid sleep 60 >/dev/null 2>&1 &", "started\n", "", 0),
    "leaves a daemon that closed its streams": ("echo started\n(setsid sleep 60 <&- >&- 2>&- &)", "started\n", "", 0),
    # Who keeps an output is waited for and heard.
    "leaves a daemon that keeps the error output": (
        "(setsid sh -c 'sleep 0.4; echo late >&2' <&- >&- &)\necho early", "early\n", "late\n", 0),
    "stops and is continued": (
        "(sleep 0.3; kill -CONT $$) & kill -STOP $$; wait; echo continued", "continued\n", "", 0),
    # Its input is empty, its signals and limits are its own, and its parent's descriptors are not there.
    "tampers with what it inherited": (
        "cat; ulimit -f 0; trap '' TERM PIPE; umask 777; cd /; exec 3>&1; exit 255", "", "", 255),
    "prints binary output": ("printf 'a\\000b\\377'", "a\0b\udcff", "", 0),
    "prints much on both streams": (
        "head -c 300000 /dev/zero | tr '\\0' e >&2\nhead -c 300000 /dev/zero | tr '\\0' o",
        "o" * 300000, "e" * 300000, 0),
    **{f"ends itself by {signal}": (f"echo before; kill -{signal} $$; sleep 5", "before\n", "", -1)
       for signal in ("TERM", "KILL", "SEGV", "PIPE", "ABRT", "HUP", "USR1")}}


@pytest.mark.parametrize("name", RECORDS)
def test_a_hook_that(next_host, name):
    body, out, err, code = RECORDS[name]
    next_host.hook("10-hook", body)
    before = time.monotonic()
    assert next_host.tamrix(*ADD, stdin="caller's") == ok("x\n")
    assert time.monotonic() - before < 20
    assert next_host.hook_log == log_record("10-hook", out, err, code) + NEXT
    goes_on(next_host)


def in_a_session_of_its_own(host, state, *words):
    """So that nobody else is in the process group; the last line printed tells how the run ended."""
    script = ("import signal, subprocess, sys\n"
              f"signal.signal(signal.SIGTERM, signal.{state})\n"
              "print(subprocess.run(sys.argv[1:], start_new_session=True, timeout=20).returncode)")
    return host.run("/usr/bin/python3", "-c", script, TAMRIX, *words)


@pytest.mark.parametrize("signal,number", [("TERM", 15), ("KILL", 9)])
def test_a_hook_that_ends_its_process_group_ends_the_run_after_the_save(next_host, signal, number):
    next_host.hook("10-hook", f"kill -{signal} 0; sleep 5")
    assert in_a_session_of_its_own(next_host, "SIG_DFL", *ADD) == ok(f"x\n{-number}\n")
    assert next_host.registry == document(record("x"))
    assert next_host.calls[-1] == f"{HOOKS}/10-hook add"


def test_a_caller_who_ignores_the_signal_is_spared_with_all_its_children(next_host):
    next_host.hook("10-hook", "kill -TERM 0; echo spared")
    assert in_a_session_of_its_own(next_host, "SIG_IGN", *ADD) == ok("x\n0\n")
    assert next_host.hook_log == log_record("10-hook", "spared\n") + NEXT
    goes_on(next_host)


@pytest.mark.parametrize("content,out", [
    ("", ""), ("\n", ""), ("echo ran $1\n", "ran add\n"), ("#!\necho ran\n", "ran\n"), ("#! \n", "")])
def test_a_hook_without_an_interpreter(next_host, content, out):
    next_host.write(f"{HOOKS}/10-hook", content, 0o755)
    assert next_host.tamrix(*ADD) == ok("x\n")
    assert next_host.hook_log == log_record("10-hook", out) + NEXT
    goes_on(next_host)


@pytest.mark.parametrize("content,text,number", [
    ("#!/no/such/interpreter\n", "No such file or directory", 2),
    ("#!/etc\n", "Permission denied", 13),
    ("#!/etc/passwd\n", "Permission denied", 13),
    (f"#!{HOOKS}/10-hook\n", "Too many levels of symbolic links", 40),
])
def test_a_hook_whose_interpreter_is_none(next_host, content, text, number):
    next_host.write(f"{HOOKS}/10-hook", content, 0o755)
    assert next_host.tamrix(*ADD) == ok("x\n")
    failure = exec_failure(text, number)
    assert next_host.hook_log == log_record("10-hook", failure, failure, 1) + NEXT
    goes_on(next_host)


def test_a_truncated_program_is_no_crash(next_host):
    next_host.write(f"{HOOKS}/10-hook", b"\x7fELF\x02\x01\x01" + bytes(9), 0o755)
    assert next_host.tamrix(*ADD) == ok("x\n")
    # Whatever the system makes of it, it has a record, and the next hook runs.
    assert next_host.hook_log.startswith(f"[TIME] Start: {HOOKS}/10-hook add\n{VARIABLES}stdout: ")
    assert next_host.hook_log.endswith(NEXT) and next_host.hook_log.count("Exit code: 0\n") == 1
    goes_on(next_host)


@pytest.mark.parametrize("mode", [0o4755, 0o2755, 0o6711 | 0o444, 0o1755, 0o7777])
def test_a_hook_with_special_mode_bits_is_an_ordinary_hook(next_host, mode):
    next_host.hook("10-hook", "echo ran", mode)
    assert next_host.tamrix(*ADD) == ok("x\n")
    assert next_host.hook_log == log_record("10-hook", "ran\n") + NEXT


def shown(name):
    """The name as the record's command line has it."""
    escaped = b"\t \"#$&'()*;<>?[\\`|~"
    result = b""
    for byte in name:
        one = bytes([byte])
        result += b"'\n'" if one == b"\n" else b"\\" + one if one in escaped else one
    return result


def test_every_byte_that_a_name_can_have(next_host):
    names = sorted([b"x" + bytes([byte]) for byte in range(1, 256) if byte != ord("/")]
                   + [bytes([byte]) for byte in range(1, 256) if byte not in b"/."] + [b"...", b"-rf", b"%s%n"])
    folder = os.fsencode(next_host.path(HOOKS))
    (next_host.path(HOOKS) / "20-next").unlink()
    for name in names:
        descriptor = os.open(folder + b"/" + name, os.O_CREAT | os.O_WRONLY, 0o755)
        os.write(descriptor, b"#!/bin/false\n")
        os.close(descriptor)
    assert next_host.tamrix(*ADD) == ok("x\n")
    text = next_host.hook_log.encode("utf-8", "surrogateescape")
    expected = b"".join(
        b"[TIME] Start: " + HOOKS.encode() + b"/" + shown(name) + b" add\n" + VARIABLES.encode()
        + b"stdout: \nstderr: \nExit code: 1\n" for name in names)
    assert text == expected


def test_the_longest_name_and_a_thousand_hooks(next_host):
    for n in range(1000):
        next_host.write(f"{HOOKS}/10-{n:04}", "#!/bin/true\n", 0o755)
    next_host.write(f"{HOOKS}/{'y' * 255}", "#!/bin/true\n", 0o755)
    assert next_host.tamrix(*ADD) == ok("x\n")
    log = next_host.hook_log
    assert log == "".join(log_record(f"10-{n:04}") for n in range(1000)) + NEXT + log_record("y" * 255)


def test_a_hook_that_removes_the_next_one(next_host):
    next_host.hook("10-hook", f"rm {HOOKS}/20-next")
    assert next_host.tamrix(*ADD) == ok("x\n")
    failure = exec_failure("No such file or directory", 2)
    assert next_host.hook_log == log_record("10-hook") + log_record("20-next", failure, failure, 1)
    assert next_host.calls[-1] == DIRTY


def test_a_hook_that_removes_everything(next_host):
    next_host.hook("10-hook", f"rm -rf {HOOKS} {REGISTRY} {HOOK_LOG} {SBIN}/depotctl")
    result = next_host.tamrix(*ADD)
    text = f"Failed to set depotctl dirty flag : {exec_failure('No such file or directory', 2)}\n"
    assert result == Result(1, "x\n", text)
    assert next_host.registry is None and not next_host.exists(HOOK_LOG)


def test_a_hook_that_runs_the_commands_itself(next_host):
    """The registry is complete and free by then: a hook may read and even change it."""
    next_host.hook(
        "10-hook",
        '[ "$PHP_ID" = y ] || tamrix --add --id y --path "$PHP_PATH" --phpini "$PHP_INI" --type cgi\n'
        "tamrix --list-json | grep -c '\"id\"'")
    script = 'PATH=/opt/ovt/admin/sbin:$PATH exec "$@"'
    assert next_host.shell(script, *ADD) == ok("x\n")
    assert next_host.registry == document(record("x"), record("y"))
    assert next_host.hook_log.count("stdout: y\n2\n\n") == 1
    assert next_host.hook_log.count("PHP_ID = y\n") == 2
