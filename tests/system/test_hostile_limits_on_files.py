"""A limit on file sizes, and a hook log that is no file.

Expected: the in-place rewrite has cut the registry before the limit refuses the rest, which the system log is told;
the run itself goes on as after any save. What is no regular file never holds the run up."""

import os
import re
import signal

import pytest

from private_host import HOOK_LOG, HOOKS, REGISTRY, failed, ok
from registry_text import CGI, INI, document, record

pytestmark = pytest.mark.usefixtures("plain_binary")

ADD = ("--add", "--path", CGI, "--phpini", INI, "--type", "cgi", "--id", "x")
COMMANDS = [ADD, ("--update", "--id", "a", "--path", CGI), ("--remove", "--id", "a"), ("--reread",)]
TOLD = f"Unable to write {REGISTRY}: File too large"


@pytest.fixture
def quiet_host(host):
    """With children that write no file, as they inherit the limit."""
    host.write(CGI, "#!/bin/sh\necho PHP 8.1.2\n", 0o755)
    host.write(INI)
    host.write("/opt/ovt/admin/sbin/depotctl", "#!/bin/sh\necho depotctl ran >&2\nexit 1\n", 0o755)
    host.write(f"{HOOKS}/10-hook", "#!/bin/sh\nrm -f /opt/ovt/no-hook-ran\n", 0o755)
    host.write("/opt/ovt/no-hook-ran")
    host.registry = document(record("a"), record("b"))
    host.open_log()
    return host


@pytest.mark.parametrize("signal", ["", "trap '' XFSZ; "], ids=["signal at its default", "signal ignored"])
@pytest.mark.parametrize("words", COMMANDS, ids=lambda words: words[0])
def test_a_limit_of_zero_empties_the_registry_and_the_run_goes_on(quiet_host, signal, words):
    out = "x\n" if words == ADD else ""
    result = quiet_host.shell(signal + 'ulimit -f 0; exec "$@"', *words)
    assert result == failed("Failed to set depotctl dirty flag : depotctl ran\n\n", out)
    assert quiet_host.registry == ""
    messages = quiet_host.log_messages()
    assert len(messages) == 1 and messages[0].rstrip("\0").endswith(TOLD)
    assert quiet_host.exists("/opt/ovt/no-hook-ran") == (words == ("--reread",))
    assert quiet_host.hook_log == (None if words == ("--reread",) else "")


FULL = "/opt/ovt/full.log"


def full_streams(host, words, redirection, signal=""):
    """Runs tamrix with streams that lead to a file which has reached the caller's limit."""
    host.write(FULL, "x" * 5000)
    result = host.shell(f'{signal}ulimit -f 8; exec "$@" {redirection}', *words)
    assert host.read(FULL) == "x" * 5000
    return result


@pytest.mark.parametrize("signal", ["", "trap '' XFSZ; "], ids=["signal at its default", "signal ignored"])
@pytest.mark.parametrize("words", [ADD, ("--update", "--id", "a", "--displayname", "n"), ("--remove", "--id", "a")],
                         ids=lambda words: words[0])
def test_a_change_whose_streams_have_reached_the_limit_runs_to_its_end(quiet_host, signal, words):
    expected = {"--add": document(record("a"), record("b"), record("x")),
                "--update": document(record("a", displayname="n"), record("b")),
                "--remove": document(record("b"))}
    quiet_host.write("/opt/ovt/admin/sbin/depotctl", "#!/bin/sh\nrm -f /opt/ovt/no-flag-set\n", 0o755)
    quiet_host.write("/opt/ovt/no-flag-set")
    assert full_streams(quiet_host, words, f">>{FULL} 2>&1", signal) == ok()
    assert quiet_host.registry == expected[words[0]]
    assert not quiet_host.exists("/opt/ovt/no-hook-ran") and not quiet_host.exists("/opt/ovt/no-flag-set")


@pytest.mark.parametrize("words, status", [
    (("--list",), 0), (("--list-json",), 0), (("-h",), 0), ((), 1), (("--nonsense",), 1), (("--add",), 1),
    (("--update", "--id", "none"), 1)])
def test_a_result_or_message_beyond_the_limit_is_lost_without_another_status(quiet_host, words, status):
    assert full_streams(quiet_host, words, f">>{FULL} 2>&1").status == status


def test_children_get_the_size_signal_as_the_caller_left_it(quiet_host):
    quiet_host.hook("10-hook", "grep ^SigIgn /proc/self/status")
    bit = 1 << (signal.SIGXFSZ - 1)
    for prefix, ignored in (("", 0), ("trap '' XFSZ; ", bit)):
        quiet_host.registry = ""
        assert quiet_host.shell(f'{prefix}exec "$@"', *ADD).status == 1
        seen = re.findall(r"^stdout: SigIgn:\t(\w+)$", quiet_host.hook_log, re.MULTILINE)[-1]
        assert int(seen, 16) & bit == ignored


def test_listings_need_no_file(quiet_host):
    before = quiet_host.registry
    assert quiet_host.shell('ulimit -f 0; exec "$@"', "--list-json") == ok(
        document(record("a", displayname="8.1.2"), record("b", displayname="8.1.2")))
    assert quiet_host.registry == before and quiet_host.log_messages() == []


@pytest.mark.parametrize("lay", ["a FIFO", "a folder", "a link loop", "a full device", "a dangling link"])
def test_in_the_hook_log_s_place_there_is(host, lay):
    host.php(CGI)
    host.hook("10-hook")
    path = host.path(HOOK_LOG)
    {"a FIFO": lambda: os.mkfifo(path), "a folder": path.mkdir, "a link loop": lambda: path.symlink_to(path.name),
     "a full device": lambda: path.symlink_to("/dev/full"),
     "a dangling link": lambda: path.symlink_to("/opt/ovt/no/such")}[lay]()
    kind = path.lstat().st_mode
    host.open_log()
    assert host.tamrix(*ADD, timeout=20) == ok("x\n")
    assert path.lstat().st_mode == kind
    assert host.log_messages() == []
    assert host.calls[1:] == [f"{HOOKS}/10-hook add", "/opt/ovt/admin/sbin/depotctl --set-dirty-flag"]
