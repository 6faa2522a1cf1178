"""What children inherit, and what a caller's odd process state does to a run."""

import re
import time

import pytest

from private_host import Result, failed, ok
from registry_text import CGI, INI, document, record

ADD = ("--add", "--path", CGI, "--phpini", INI, "--type", "cgi", "--id", "x")
SBIN = "/opt/ovt/admin/sbin"


@pytest.fixture
def php_host(host):
    host.php(CGI)
    return host


def python(host, code, *words):
    """Runs tamrix from a Python process that first does what `code` says."""
    script = f"import os, resource, signal, sys\n{code}\nos.execv(sys.argv[1], sys.argv[1:])"
    return host.run("/usr/bin/python3", "-c", script, f"{SBIN}/tamrix", *words)


@pytest.mark.parametrize("type", ["cgi", "fpm"])
def test_a_caller_that_ignores_sigchld_is_served(php_host, type):
    words = ["--add", "--path", CGI, "--phpini", INI, "--type", type, "--id", "x", "--service", "s", "--poold", "p"]
    assert python(php_host, "signal.signal(signal.SIGCHLD, signal.SIG_IGN)", *words) == ok("x\n")


def test_children_start_with_default_signals_and_an_empty_mask(php_host):
    php_host.hook("10-hook", "grep -e ^SigIgn -e ^SigBlk /proc/self/status")
    php_host.recorder(f"{SBIN}/quelmrc", "grep -e ^SigIgn -e ^SigBlk /proc/self/status >>/opt/ovt/calls")
    code = (
        "signal.signal(signal.SIGPIPE, signal.SIG_IGN); signal.signal(signal.SIGCHLD, signal.SIG_IGN)\n"
        "for number in (signal.SIGINT, signal.SIGQUIT, signal.SIGXFSZ): signal.signal(number, signal.SIG_DFL)\n"
        "signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM, signal.SIGUSR1})")
    words = ["--add", "--path", CGI, "--phpini", INI, "--type", "fpm", "--id", "x", "--service", "s", "--poold", "p"]
    assert python(php_host, code, *words) == ok("x\n")
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
    for name in ("quelmrc", "quotagate", "depotctl"):
        php_host.recorder(f"{SBIN}/{name}", f"echo $({listing}) >>/opt/ovt/calls")
    php_host.recorder(CGI, f"echo $({listing}) >>/opt/ovt/calls\necho 'PHP 8.1.2'")
    php_host.hook("10-hook", listing)
    words = ["--add", "--path", CGI, "--phpini", INI, "--type", "fpm", "--id", "x", "--service", "s", "--poold", "p"]
    code = "for n in range(20): os.set_inheritable(os.open('/dev/null', os.O_RDONLY), True)"
    assert python(php_host, code, *words) == ok("x\n")
    # ls's own: the three standard ones and the folder it reads.
    assert [call for call in php_host.calls if call[0].isdigit()] == ["0 1 2 3"] * 4
    assert "stdout: 0 1 2 3 \n" in php_host.hook_log


@pytest.mark.parametrize("count", [1100, 3000])
def test_a_caller_with_many_open_descriptors_is_served(php_host, count):
    code = (
        f"resource.setrlimit(resource.RLIMIT_NOFILE, (4096, 4096))\n"
        f"for n in range({count}): os.set_inheritable(os.open('/dev/null', os.O_RDONLY), True)")
    words = ["--add", "--path", CGI, "--phpini", INI, "--type", "fpm", "--id", "x", "--service", "s", "--poold", "p"]
    assert python(php_host, code, *words) == ok("x\n")


def test_without_descriptors_for_pipes_the_run_ends_with_the_message(php_host, plain_binary):
    code = (
        "resource.setrlimit(resource.RLIMIT_NOFILE, (32, 32))\n"
        "try:\n"
        "    while True: os.set_inheritable(os.open('/dev/null', os.O_RDONLY), True)\n"
        "except OSError: os.close(31); os.close(30); os.close(29); os.close(28)")
    message = "tamrix: forkExecvGetOutErr: pipe() failed\nSystem error 24: Too many open files\n"
    assert python(php_host, code, *ADD) == failed(message, message)
    assert php_host.registry is None


def test_no_child_is_left_behind(php_host):
    # Each of these looks for children of tamrix and must find only itself.
    count = "grep -lx \"PPid:[[:space:]]*$PPID\" /proc/[0-9]*/status | wc -l"
    php_host.hook("10-hook", count)
    php_host.recorder(f"{SBIN}/quotagate", f"{count} >>/opt/ovt/calls")
    php_host.recorder(f"{SBIN}/depotctl", f"{count} >>/opt/ovt/calls")
    words = ["--add", "--path", CGI, "--phpini", INI, "--type", "fpm", "--id", "x", "--service", "s", "--poold", "p"]
    assert php_host.tamrix(*words) == ok("x\n")
    assert [call for call in php_host.calls if call.isdigit()] == ["1", "1"]
    assert "stdout: 1\n" in php_host.hook_log


@pytest.mark.parametrize("disposition,status", [("SIG_DFL", 141), ("SIG_IGN", 0)])
def test_a_reader_that_went_away_is_the_caller_s_own_affair(php_host, disposition, status):
    code = f"signal.signal(signal.SIGPIPE, signal.{disposition})\nr, w = os.pipe(); os.close(r); os.dup2(w, 1)"
    assert python(php_host, code, "--list") == Result(status)


@pytest.mark.parametrize("where", ["interpreter", "hook", "tool"])
def test_a_background_process_that_holds_the_output_is_waited_for(php_host, where):
    body = "sleep 1.2 &\necho 'PHP 8.1.2'"
    if where == "interpreter":
        php_host.recorder(CGI, body)
    elif where == "hook":
        php_host.hook("10-hook", body)
    else:
        php_host.recorder(f"{SBIN}/depotctl", body)
    before = time.monotonic()
    assert php_host.tamrix(*ADD) == ok("x\n")
    assert time.monotonic() - before >= 1.2
