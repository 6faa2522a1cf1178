"""Hook scripts that do what no hook should.

Expected: nothing that a hook prints, returns or dies of fails the command; its record tells. Two things reach
further, because hooks are ordinary children: who holds their output open is waited for, and a signal to the process
group is a signal to tamrix as well, after the save."""

import os
import time

import pytest

from private_host import HOOK_LOG, HOOKS, REGISTRY, Result, ok
from registry_text import CGI, INI, document, record

ADD = ("--add", "--path", CGI, "--phpini", INI, "--type", "cgi", "--id", "x")
DIRTY = "/opt/ovt/admin/sbin/depotctl --set-dirty-flag"
VARIABLES = f"PHP_CLI = \nPHP_ID = x\nPHP_INI = {INI}\nPHP_PATH = {CGI}\nPHP_TYPE = cgi\nPHP_VERSION = 8.1.2\n"
NEXT = f"[TIME] Start: {HOOKS}/20-next add\n{VARIABLES}stdout: \nstderr: \nExit code: 0\n"


@pytest.fixture
def php_host(host):
    host.php(CGI)
    host.hook("20-next")
    return host


def log_record(name, out="", err="", code=0):
    return f"[TIME] Start: {HOOKS}/{name} add\n{VARIABLES}stdout: {out}\nstderr: {err}\nExit code: {code}\n"


def exec_failure(text, number):
    return f"tamrix: forkExecvPipes: execv() failed: {text}\n\nSystem error {number}: {text}\n"


def goes_on(host):
    assert host.registry == document(record("x"))
    assert host.calls[-2:] == [f"{HOOKS}/20-next add", DIRTY]


def test_a_hook_that_prints_a_hundred_megabytes(php_host):
    php_host.hook("10-hook", "head -c 100000000 /dev/zero")
    assert php_host.tamrix(*ADD) == ok("x\n")
    text = php_host.path(HOOK_LOG).read_bytes()
    head = log_record("10-hook").split("stdout: ")[0].replace("[TIME]", "") + "stdout: "
    start = text.index(b"stdout: ") + len("stdout: ")
    assert text[:start].decode().endswith(head)
    assert text[start:start + 100_000_000] == bytes(100_000_000)
    assert text[start + 100_000_000:].startswith(b"\nstderr: \nExit code: 0\n[")
    goes_on(php_host)


@pytest.mark.parametrize("daemon", ["setsid sleep 60 >/dev/null 2>&1 &", "(setsid sleep 60 <&- >&- 2>&- &)"])
def test_a_daemon_that_lets_the_output_go_is_not_waited_for(php_host, daemon):
    php_host.hook("10-hook", f"echo started\n{daemon}")
    before = time.monotonic()
    assert php_host.tamrix(*ADD) == ok("x\n")
    assert time.monotonic() - before < 10
    assert php_host.hook_log == log_record("10-hook", "started\n") + NEXT
    goes_on(php_host)


def test_a_daemon_that_keeps_the_error_output_is_waited_for_and_heard(php_host):
    php_host.hook("10-hook", "(setsid sh -c 'sleep 0.4; echo late >&2' <&- >&- &)\necho early")
    before = time.monotonic()
    assert php_host.tamrix(*ADD) == ok("x\n")
    assert time.monotonic() - before >= 0.4
    assert php_host.hook_log == log_record("10-hook", "early\n", "late\n") + NEXT


def test_a_hook_that_closes_its_outputs_and_works_on_is_waited_for(php_host):
    php_host.hook("10-hook", "exec >&- 2>&-\nsleep 0.4\nexit 4")
    assert php_host.tamrix(*ADD) == ok("x\n")
    assert php_host.hook_log == log_record("10-hook", code=4) + NEXT


@pytest.mark.parametrize("signal", ["TERM", "KILL", "SEGV", "PIPE", "ABRT", "HUP", "USR1"])
def test_a_hook_that_ends_itself_by(php_host, signal):
    php_host.hook("10-hook", f"echo before; kill -{signal} $$; sleep 5")
    assert php_host.tamrix(*ADD) == ok("x\n")
    assert php_host.hook_log == log_record("10-hook", "before\n", code=-1) + NEXT
    goes_on(php_host)


def in_a_session_of_its_own(host, state, *words):
    """So that nobody else is in the process group; the last line printed tells how the run ended."""
    script = ("import signal, subprocess, sys\n"
              f"signal.signal(signal.SIGTERM, signal.{state})\n"
              "print(subprocess.run(sys.argv[1:], start_new_session=True, timeout=20).returncode)")
    return host.run("/usr/bin/python3", "-c", script, "/opt/ovt/admin/sbin/tamrix", *words)


@pytest.mark.parametrize("signal,number", [("TERM", 15), ("KILL", 9)])
def test_a_hook_that_ends_its_process_group_ends_the_run_after_the_save(php_host, signal, number):
    php_host.hook("10-hook", f"kill -{signal} 0; sleep 5")
    assert in_a_session_of_its_own(php_host, "SIG_DFL", *ADD) == ok(f"x\n{-number}\n")
    assert php_host.registry == document(record("x"))
    assert php_host.calls[-1] == f"{HOOKS}/10-hook add"


def test_a_caller_who_ignores_the_signal_is_spared_with_all_its_children(php_host):
    php_host.hook("10-hook", "kill -TERM 0; echo spared")
    assert in_a_session_of_its_own(php_host, "SIG_IGN", *ADD) == ok("x\n0\n")
    assert php_host.hook_log == log_record("10-hook", "spared\n") + NEXT
    goes_on(php_host)


def test_a_hook_that_stops_and_is_continued(php_host):
    php_host.hook("10-hook", "(sleep 0.3; kill -CONT $$) & kill -STOP $$; wait; echo continued")
    assert php_host.tamrix(*ADD) == ok("x\n")
    assert php_host.hook_log == log_record("10-hook", "continued\n") + NEXT


@pytest.mark.parametrize("content,out,code", [
    ("", "", 0), ("\n", "", 0), ("echo ran\n", "ran\n", 0), ("#!\necho ran\n", "ran\n", 0), ("#! \n", "", 0)])
def test_a_hook_without_an_interpreter(php_host, content, out, code):
    php_host.write(f"{HOOKS}/10-hook", content, 0o755)
    assert php_host.tamrix(*ADD) == ok("x\n")
    assert php_host.hook_log == log_record("10-hook", out, code=code) + NEXT
    goes_on(php_host)


@pytest.mark.parametrize("content,text,number", [
    ("#!/no/such/interpreter\n", "No such file or directory", 2),
    ("#!/etc\n", "Permission denied", 13),
    ("#!/etc/passwd\n", "Permission denied", 13),
    (f"#!{HOOKS}/10-hook\n", "Too many levels of symbolic links", 40),
])
def test_a_hook_whose_interpreter_is_none(php_host, content, text, number):
    php_host.write(f"{HOOKS}/10-hook", content, 0o755)
    assert php_host.tamrix(*ADD) == ok("x\n")
    failure = exec_failure(text, number)
    assert php_host.hook_log == log_record("10-hook", failure, failure, 1) + NEXT
    goes_on(php_host)


def test_a_truncated_program_is_no_crash(php_host):
    php_host.write(f"{HOOKS}/10-hook", b"\x7fELF\x02\x01\x01" + bytes(9), 0o755)
    assert php_host.tamrix(*ADD) == ok("x\n")
    # Whatever the system makes of it, it has a record, and the next hook runs.
    assert php_host.hook_log.startswith(f"[TIME] Start: {HOOKS}/10-hook add\n{VARIABLES}stdout: ")
    assert php_host.hook_log.endswith(NEXT) and php_host.hook_log.count("Exit code: 0\n") == 1
    goes_on(php_host)


@pytest.mark.parametrize("mode", [0o4755, 0o2755, 0o6711 | 0o444, 0o1755, 0o7777])
def test_a_hook_with_special_mode_bits_is_an_ordinary_hook(php_host, mode):
    php_host.hook("10-hook", "echo ran", mode)
    assert php_host.tamrix(*ADD) == ok("x\n")
    assert php_host.hook_log == log_record("10-hook", "ran\n") + NEXT


def shown(name):
    """The name as the record's command line has it."""
    escaped = b"\t \"#$&'()*;<>?[\\`|~"
    result = b""
    for byte in name:
        one = bytes([byte])
        result += b"'\n'" if one == b"\n" else b"\\" + one if one in escaped else one
    return result


def test_every_byte_that_a_name_can_have(php_host):
    names = sorted([b"x" + bytes([byte]) for byte in range(1, 256) if byte != ord("/")]
                   + [bytes([byte]) for byte in range(1, 256) if byte not in b"/."] + [b"...", b"-rf", b"%s%n"])
    folder = os.fsencode(php_host.path(HOOKS))
    (php_host.path(HOOKS) / "20-next").unlink()
    for name in names:
        descriptor = os.open(folder + b"/" + name, os.O_CREAT | os.O_WRONLY, 0o755)
        os.write(descriptor, b"#!/bin/false\n")
        os.close(descriptor)
    assert php_host.tamrix(*ADD) == ok("x\n")
    text = php_host.hook_log.encode("utf-8", "surrogateescape")
    expected = b"".join(
        b"[TIME] Start: " + HOOKS.encode() + b"/" + shown(name) + b" add\n" + VARIABLES.encode()
        + b"stdout: \nstderr: \nExit code: 1\n" for name in names)
    assert text == expected


def test_the_longest_name_and_a_thousand_hooks(php_host):
    for n in range(1000):
        php_host.write(f"{HOOKS}/10-{n:04}", "#!/bin/true\n", 0o755)
    php_host.write(f"{HOOKS}/{'y' * 255}", "#!/bin/true\n", 0o755)
    assert php_host.tamrix(*ADD) == ok("x\n")
    log = php_host.hook_log
    assert log == "".join(log_record(f"10-{n:04}") for n in range(1000)) + NEXT + log_record("y" * 255)


def test_a_hook_that_removes_the_next_one(php_host):
    php_host.hook("10-hook", f"rm {HOOKS}/20-next")
    assert php_host.tamrix(*ADD) == ok("x\n")
    failure = exec_failure("No such file or directory", 2)
    assert php_host.hook_log == log_record("10-hook") + log_record("20-next", failure, failure, 1)
    assert php_host.calls[-1] == DIRTY


def test_a_hook_that_removes_everything(php_host):
    php_host.hook("10-hook", f"rm -rf {HOOKS} {REGISTRY} {HOOK_LOG} /opt/ovt/admin/sbin/depotctl")
    result = php_host.tamrix(*ADD)
    text = f"Failed to set depotctl dirty flag : {exec_failure('No such file or directory', 2)}\n"
    assert result == Result(1, "x\n", text)
    assert php_host.registry is None and not php_host.exists(HOOK_LOG)


def test_a_hook_that_runs_the_commands_itself(php_host):
    """The registry is complete and free by then: a hook may read and even change it."""
    php_host.hook(
        "10-hook",
        '[ "$PHP_ID" = y ] || tamrix --add --id y --path "$PHP_PATH" --phpini "$PHP_INI" --type cgi\n'
        "tamrix --list-json | grep -c '\"id\"'")
    script = 'PATH=/opt/ovt/admin/sbin:$PATH exec "$@"'
    assert php_host.shell(script, *ADD) == ok("x\n")
    assert php_host.registry == document(record("x"), record("y"))
    assert php_host.hook_log.count("stdout: y\n2\n\n") == 1
    assert php_host.hook_log.count("PHP_ID = y\n") == 2


def test_a_hook_that_tampers_with_what_it_inherited(php_host):
    """Its input is empty, its signals and limits are its own, and its parent's descriptors are not there."""
    php_host.hook("10-hook", "cat; ulimit -f 0; trap '' TERM PIPE; umask 777; cd /; exec 3>&1; exit 255")
    assert php_host.tamrix(*ADD, stdin="caller's") == ok("x\n")
    assert php_host.hook_log == log_record("10-hook", code=255) + NEXT
    goes_on(php_host)
