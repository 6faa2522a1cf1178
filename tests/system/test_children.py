"""Children: which programs a command starts, what they inherit, and that they are waited for."""

import re
import time

import pytest

from commands import ADD, COMMANDS, HOOK
from private_host import SBIN, TAMRIX, failed, ok
from registry_text import CGI, CLI, INI, document, record

FPM = COMMANDS["--add"].words
STORED = document(record("a", clipath=CLI), record("f", type="fpm", service="s", poold="/p"))
TOOL = {name: f"{SBIN}/{name}" for name in ("depotctl", "quelmrc", "quotagate")}


@pytest.mark.parametrize("words,programs", [
    (["--help"], []), (["--list"], []), (["--list-json"], []),
    ([*ADD, "--clipath", CLI], [CGI, CLI, HOOK, TOOL["depotctl"]]),
    ([*FPM, "--no-set-dirty-flag"], [CGI, CLI, TOOL["quelmrc"], TOOL["quotagate"], HOOK]),
    (["--update", "--id", "a", "--displayname", "n"], [HOOK, TOOL["depotctl"]]),
    (["--update", "--id", "a", "--path", CGI], [CGI, CLI, HOOK, TOOL["depotctl"]]),
    (["--update", "--id", "a", "--clipath", CLI], [CGI, CLI, HOOK, TOOL["depotctl"]]),
    (["--update", "--id", "a", "--phpini", INI], [CGI, CLI, HOOK, TOOL["depotctl"]]),
    (["--update", "--id", "f", "--service", "t"], [TOOL["quelmrc"], HOOK, TOOL["depotctl"]]),
    # The service is checked before the probes, and no limit is set.
    (["--update", "--id", "a", "--path", CGI, "--type", "fpm", "--service", "s"],
     [TOOL["quelmrc"], CGI, CLI, HOOK, TOOL["depotctl"]]),
    (["--remove", "--id", "a"], [HOOK, TOOL["depotctl"]]),
    (["--reread"], [CGI, CLI, CGI, TOOL["quotagate"], TOOL["depotctl"]])], ids=lambda value: " ".join(value)[:40])
def test_exactly_these_programs_are_started_and_no_process_beside_them(php_host, words, programs):
    php_host.hook("10-hook")
    php_host.hook("20-not-executable", mode=0o644)
    php_host.registry = STORED
    result, trace = php_host.traced(["-f", "-e", "trace=execve,clone,?clone3,?fork,?vfork"], *words)
    assert result.status == 0, result
    # A call that another process's interrupts stands on two lines, the second one without the path.
    started = re.findall(r'execve\("([^"]*)"', trace)
    assert started == [TAMRIX, *programs]
    assert re.findall(r"\bexecve(?:\(.*\)| resumed>.*) = (-?\d+)", trace) == ["0"] * len(started)
    children = re.findall(r"\b(?:clone3?|v?fork)(?:\(.*\)| resumed>.*) = \d+$", trace, re.MULTILINE)
    assert len(children) == len(programs)


@pytest.mark.parametrize("word", ["--list", "--list-json"])
def test_a_listing_of_a_usual_registry_is_one_write(host, word):
    host.registry = document(*(record(f"h{number}", path="/p" * 100) for number in range(50)))
    result, trace = host.traced(["-e", "trace=write,writev"], word)
    assert result.status == 0, result
    assert len(result.out) > 10000
    assert re.findall(r"^writev?\(1,.* = (\d+)$", trace, re.MULTILINE) == [str(len(result.out))]


def test_children_start_with_default_signals_and_an_empty_mask(php_host):
    # No shell: dash would clear the mask itself.
    show = '#!/usr/bin/awk -f\nBEGIN {{ while ((getline < "/proc/self/status") > 0) if (/^Sig(Ign|Blk)/) print{} }}\n'
    php_host.write(HOOK, show.format(""), 0o755)
    php_host.write(TOOL["quelmrc"], show.format(' >>"/opt/ovt/calls"'), 0o755)
    code = (
        "signal.signal(signal.SIGPIPE, signal.SIG_IGN); signal.signal(signal.SIGCHLD, signal.SIG_IGN)\n"
        "for number in (signal.SIGINT, signal.SIGQUIT, signal.SIGXFSZ): signal.signal(number, signal.SIG_DFL)\n"
        "signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM, signal.SIGUSR1})")
    assert php_host.started_by(code, *FPM) == ok("x\n")
    seen = "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n"
    assert f"stdout: {seen}\n" in php_host.hook_log
    assert seen.splitlines() == php_host.calls[2:4]


@pytest.mark.parametrize("closing", ["<&-", ">&-", "2>&-", "<&- >&-", "<&- 2>&-", ">&- 2>&-", "<&- >&- 2>&-"])
def test_closed_standard_descriptors_do_not_disturb_the_children(php_host, closing):
    php_host.recorder(CGI, 'echo "[$(cat)]" >>/opt/ovt/calls; echo "PHP 8.1.2"; echo warning >&2')
    php_host.hook("10-hook", "echo out; echo err >&2")
    out = "" if ">&-" in closing.replace("2>&-", "") else "x\n"
    assert php_host.shell(f'exec "$@" {closing}', *ADD) == ok(out)
    assert php_host.calls[:2] == [f"{CGI} -n -v", "[]"]
    assert "stdout: out\n\nstderr: err\n\nExit code: 0\n" in php_host.hook_log
    assert php_host.registry == document(record("x"))


def test_no_descriptor_leaks_into_children(php_host):
    listing = "ls /proc/self/fd | tr '\\n' ' '"
    for path in TOOL.values():
        php_host.recorder(path, f"echo $({listing}) >>/opt/ovt/calls")
    php_host.recorder(CGI, f"echo $({listing}) >>/opt/ovt/calls\necho 'PHP 8.1.2'")
    php_host.hook("10-hook", listing)
    code = "for n in range(20): os.set_inheritable(os.open('/dev/null', os.O_RDONLY), True)"
    assert php_host.started_by(code, *FPM) == ok("x\n")
    # ls's own: the three standard ones and the folder it reads.
    assert [call for call in php_host.calls if call[0].isdigit()] == ["0 1 2 3"] * 4
    assert "stdout: 0 1 2 3 \n" in php_host.hook_log


def test_without_descriptors_for_pipes_the_run_ends_with_the_message(php_host, plain_binary):
    code = (
        "resource.setrlimit(resource.RLIMIT_NOFILE, (32, 32))\n"
        "try:\n"
        "    while True: os.set_inheritable(os.open('/dev/null', os.O_RDONLY), True)\n"
        "except OSError: os.close(31); os.close(30); os.close(29); os.close(28)")
    message = "tamrix: forkExecvGetOutErr: pipe() failed\nSystem error 24: Too many open files\n"
    assert php_host.started_by(code, *ADD) == failed(message, message)
    assert php_host.registry is None


def test_no_child_is_left_behind(php_host):
    # Each of these looks for children of tamrix and must find only itself.
    count = "grep -lx \"PPid:[[:space:]]*$PPID\" /proc/[0-9]*/status | wc -l"
    php_host.hook("10-hook", count)
    for tool in ("quotagate", "depotctl"):
        php_host.recorder(TOOL[tool], f"{count} >>/opt/ovt/calls")
    assert php_host.tamrix(*FPM) == ok("x\n")
    assert [call for call in php_host.calls if call.isdigit()] == ["1", "1"]
    assert "stdout: 1\n" in php_host.hook_log


@pytest.mark.parametrize("path,hold", [
    (CGI, ""), (CGI, ">/dev/null"), (CGI, "2>/dev/null"), (HOOK, ""), (TOOL["quotagate"], ""), (TOOL["depotctl"], "")])
def test_a_background_process_that_holds_an_output_is_waited_for(php_host, path, hold):
    php_host.recorder(path, f"sleep 1.2 {hold} &\necho 'PHP 8.1.2'")
    before = time.monotonic()
    assert php_host.tamrix(*FPM) == ok("x\n")
    assert time.monotonic() - before >= 1.2


def test_a_child_that_ends_its_parent_before_the_save_changes_nothing(php_host):
    before = document(record("x", version="1"))
    php_host.registry = before
    php_host.recorder(CGI, "kill -TERM $PPID; sleep 1")
    assert php_host.shell('"$@"', "--update", "--id", "x", "--path", CGI).status == 143
    assert php_host.registry == before
