"""Every command under odd process states: signals, descriptors and limits that a careless caller leaves behind.

Expected: signals, closed descriptors and inherited ones make no difference. What a limit makes impossible is
reported with status 1. One limit makes the program abort: an address space that has room for the program and none for
a report, and only before anything has been changed."""

import re
import resource

import pytest

from every_command import ADD, ADDED, furnish, play
from private_host import REGISTRY, Result, failed, ok
from registry_text import CGI, INI, document, record

SIMPLE_ADD = ("--add", "--path", CGI, "--phpini", INI, "--type", "cgi", "--id", "x")
NO_MEMORY = "Fatal error: std::bad_alloc(std::bad_alloc)\n"
NO_PIPE = "tamrix: {}: pipe() failed\nSystem error 24: Too many open files\n"


@pytest.fixture
def furnished(host):
    furnish(host)
    return host


def started_by(host, code):
    """Runs tamrix from a Python process that first does what `code` says."""
    script = (
        "import fcntl, os, resource, signal, sys\n"
        f"{code}\n"
        "os.execv('/opt/ovt/admin/sbin/tamrix', ['/opt/ovt/admin/sbin/tamrix'] + sys.argv[1:])")
    return lambda *words: host.run("/usr/bin/python3", "-c", script, *words)


def as_plain_user(host, script):
    """Runs a shell script whose "$@" is tamrix, as a user without root's exemptions."""
    for path in ("/etc/ovt", "/opt/ovt", "/var/log/quelm"):
        host.path(path).chmod(0o777)
    for path in (REGISTRY, "/opt/ovt/calls"):
        host.path(path).touch()
        host.path(path).chmod(0o666)
    become = (
        'if [ "$(id -u)" = 0 ]; then exec setpriv --reuid=4321 --regid=4321 --clear-groups "$0" -c "$@"; fi\n'
        'exec "$0" -c "$@"')
    # The leak checker of a sanitized build needs a process of its own.
    return lambda *words: host.run("/bin/bash", "-c", become, "/bin/bash", script, "bash", "/opt/ovt/admin/sbin/tamrix",
                                   *words, env={"ASAN_OPTIONS": "detect_leaks=0"})


@pytest.mark.parametrize("name", ["SIGPIPE", "SIGCHLD", "SIGTERM", "SIGHUP", "SIGXFSZ"])
@pytest.mark.parametrize("state", ["ignored", "blocked"])
def test_a_signal_that_the_caller_left(furnished, name, state):
    code = {
        "ignored": f"signal.signal(signal.{name}, signal.SIG_IGN)",
        "blocked": f"signal.pthread_sigmask(signal.SIG_BLOCK, {{signal.{name}}})"}[state]
    play(furnished, started_by(furnished, code))


def test_a_blocked_signal_that_is_pending_already(furnished):
    code = (
        "blocked = {signal.SIGTERM, signal.SIGHUP, signal.SIGCHLD, signal.SIGPIPE}\n"
        "signal.pthread_sigmask(signal.SIG_BLOCK, blocked)\n"
        "for number in blocked: os.kill(os.getpid(), number)")
    play(furnished, started_by(furnished, code))


def test_ignored_hangup_and_termination_reach_the_children_as_they_are(furnished):
    furnished.hook("10-hook", "grep ^SigIgn /proc/self/status")
    code = (
        "for number in (signal.SIGHUP, signal.SIGTERM, signal.SIGPIPE): signal.signal(number, signal.SIG_IGN)\n"
        "for number in (signal.SIGINT, signal.SIGQUIT, signal.SIGXFSZ): signal.signal(number, signal.SIG_DFL)")
    assert started_by(furnished, code)(*SIMPLE_ADD) == ok("x\n")
    # Bits 0 and 14: hangup and termination.
    assert "stdout: SigIgn:\t0000000000004001\n" in furnished.hook_log


@pytest.mark.parametrize("closing", ["<&-", ">&-", "2>&-", "<&- >&-", "<&- 2>&-", ">&- 2>&-", "<&- >&- 2>&-"])
def test_closed_standard_descriptors(furnished, closing):
    seen = ">&-" not in closing.replace("2>&-", "")
    play(furnished, lambda *words: furnished.shell(f'exec "$@" {closing}', *words), output_seen=seen)


@pytest.mark.parametrize("access", ["O_RDONLY", "O_WRONLY"])
def test_standard_descriptors_that_are_open_the_wrong_way(furnished, access):
    code = f"null = os.open('/dev/null', os.{access})\nfor slot in range(3): os.dup2(null, slot)"
    play(furnished, started_by(furnished, code), output_seen=False)


def test_non_blocking_standard_descriptors(furnished):
    code = "for slot in range(3): os.set_blocking(slot, False)"
    play(furnished, started_by(furnished, code))


@pytest.mark.parametrize("limit", [16, 32])
def test_few_descriptors_are_enough(furnished, plain_binary, limit):
    play(furnished, started_by(furnished, f"resource.setrlimit(resource.RLIMIT_NOFILE, ({limit}, {limit}))"))


def test_with_eight_descriptors_listings_work(furnished, plain_binary):
    furnished.registry = document(record("a", displayname="n"))
    run = started_by(furnished, "resource.setrlimit(resource.RLIMIT_NOFILE, (8, 8))")
    assert run("--list-json") == ok(document(record("a", displayname="n")))
    assert run("--list").status == 0


@pytest.mark.parametrize("words", [
    SIMPLE_ADD, ("--update", "--id", "a", "--path", CGI), ("--reread",)], ids=lambda words: words[0])
def test_with_eight_descriptors_a_probe_is_refused_before_any_change(furnished, plain_binary, words):
    before = document(record("a"))
    furnished.registry = before
    message = NO_PIPE.format("forkExecvGetOutErr")
    run = started_by(furnished, "resource.setrlimit(resource.RLIMIT_NOFILE, (8, 8))")
    assert run(*words) == failed(message, message)
    assert furnished.registry == before
    assert furnished.calls == []


def test_with_eight_descriptors_a_removal_is_saved_and_its_hooks_refused(furnished, plain_binary):
    furnished.registry = document(record("a"), record("b"))
    message = NO_PIPE.format("forkExecvGetOutErr")
    run = started_by(furnished, "resource.setrlimit(resource.RLIMIT_NOFILE, (8, 8))")
    assert run("--remove", "--id", "a") == failed(message, message)
    assert furnished.registry == document(record("b"))
    assert furnished.calls == []


def test_with_six_descriptors_a_service_check_is_refused_before_any_change(furnished, plain_binary):
    before = document(record("a", type="fpm", service="s", poold="/p"))
    furnished.registry = before
    message = NO_PIPE.format("fork_execv_getouterr")
    run = started_by(furnished, "resource.setrlimit(resource.RLIMIT_NOFILE, (6, 6))")
    assert run("--update", "--id", "a", "--service", "t") == failed(message, message)
    assert furnished.registry == before
    assert furnished.calls == []


def play_with_fifteen_hundred_inherited_descriptors(host, table_size):
    code = (
        f"resource.setrlimit(resource.RLIMIT_NOFILE, ({table_size}, {table_size}))\n"
        "for n in range(1500): os.set_inheritable(os.open('/dev/null', os.O_RDONLY), True)")
    play(host, started_by(host, code))


@pytest.fixture
def a_million_descriptors():
    """Lets this process, and what it starts, have so many, where the machine permits that."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if hard < 1_000_000:
        try:
            resource.setrlimit(resource.RLIMIT_NOFILE, (soft, 1_000_000))
        except (OSError, ValueError) as refusal:
            pytest.skip(f"no more than {hard} open files are possible here: {refusal}")
    yield 1_000_000
    resource.setrlimit(resource.RLIMIT_NOFILE, (soft, hard))


def test_fifteen_hundred_inherited_descriptors_in_a_table_of_a_million(furnished, a_million_descriptors):
    play_with_fifteen_hundred_inherited_descriptors(furnished, a_million_descriptors)


def test_fifteen_hundred_inherited_descriptors_in_the_largest_table_of_this_machine(furnished):
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    assert hard > 1600
    play_with_fifteen_hundred_inherited_descriptors(furnished, hard)


def test_without_proc_every_command_works_and_no_descriptor_leaks(furnished, plain_binary):
    furnished.hook("20-hook", "for n in 3 4 5 6 7 8 9; do if (: >&$n) 2>/dev/null; then echo open $n; fi; done")
    script = 'exec bwrap --dev-bind / / --tmpfs /proc -- /bin/sh -c \'exec "$0" "$@" 5>/dev/null 7</dev/null\' "$@"'
    assert furnished.shell(script, *SIMPLE_ADD) == ok("x\n")
    assert furnished.hook_log.count("\nstdout: \nstderr: \nExit code: 0\n") == 2
    furnished.remove("/etc/ovt/php_configurator.d/20-hook")
    furnished.remove(REGISTRY)
    play(furnished, lambda *words: furnished.shell(script, *words))


@pytest.mark.parametrize("words,saved", [
    (SIMPLE_ADD, None), (ADD, None), (("--update", "--id", "x", "--path", CGI), None),
    (("--reread", "--no-set-dirty-flag"), document()), (("--remove", "--id", "x"), document(record("y")))],
    ids=["add", "add fpm", "update", "reread", "remove"])
def test_a_user_who_may_start_no_process(furnished, words, saved, plain_binary):
    """What needs a child fails; a reread then finds that no interpreter answers, that of the package included."""
    before = "" if words[0] == "--add" else document(record("x"), record("y"))
    furnished.registry = before
    result = as_plain_user(furnished, 'ulimit -u 0; exec "$@"')(*words)
    reason = "forkExecvPipes: fork() failed: Resource temporarily unavailable"
    if words[0] == "--reread":
        assert result.status == 0 and result.out == ""
        assert result.err.count(f"due to errors in getting php version :{reason}\n") == 3
    else:
        text = f"Fatal error: quelm::ExSystemError<11>({reason})\n"
        assert result == failed(text, text)
    assert furnished.registry == (before if saved is None else saved)
    assert furnished.calls == []
    if words[0] == "--remove":
        assert furnished.hook_log.endswith("stdout: \nstderr: \nExit code: -1\n")


def test_an_address_space_too_small_is_refused_before_or_after_the_change(furnished, plain_binary):
    """Tried downwards from the smallest that is enough, until not even the libraries can be loaded (127). Where
    memory is too short for an exception the C++ runtime aborts (134): only before anything has been changed."""
    def run(kilobytes):
        limit = kilobytes * 1024
        furnished.registry = ""
        return started_by(furnished, f"resource.setrlimit(resource.RLIMIT_AS, ({limit}, {limit}))")(*SIMPLE_ADD)

    too_small, enough = 2_000, 64_000
    while enough - too_small > 8:
        middle = (too_small + enough) // 2
        too_small, enough = (too_small, middle) if run(middle).status == 0 else (middle, enough)
    assert run(enough) == ok("x\n") and furnished.registry == document(record("x"))
    result = run(too_small)
    while result.status != 127:
        assert result.status in (1, 134), (too_small, result)
        if result.out.startswith("x\n"):
            assert result.err.startswith("Fatal error: ") and result.out == "x\n" + result.err
            assert furnished.registry == document(record("x"))
        else:
            assert furnished.registry == "", (too_small, result)
        too_small -= 12
        result = run(too_small)
    assert furnished.registry == ""


@pytest.mark.parametrize("command", ["--list", "--list-json", "--remove", "--update", "--reread"])
def test_a_registry_larger_than_the_memory_is_refused_and_stays(furnished, plain_binary, command):
    furnished.registry = '{"php":[' + "\n" * 60_000_000 + "]}"
    run = started_by(furnished, "resource.setrlimit(resource.RLIMIT_AS, (50_000_000, 50_000_000))")
    words = [command, "--id", "a"] if command in ("--remove", "--update") else [command]
    assert run(*words) == failed(NO_MEMORY, NO_MEMORY)
    assert len(furnished.registry) == 60_000_010


@pytest.mark.parametrize("stream,words,status", [
    (1, SIMPLE_ADD, 141), (2, ("--remove", "--id", "none"), 141), (2, ("--help",), 141), (2, ("--bogus",), 141)])
@pytest.mark.parametrize("ignored", [False, True])
def test_a_stream_without_reader_ends_the_run_unless_the_caller_ignores_that(furnished, stream, words, status, ignored):
    """As any tool ends; a caller that wants the hooks after a closed output ignores SIGPIPE."""
    code = (
        f"signal.signal(signal.SIGPIPE, signal.{'SIG_IGN' if ignored else 'SIG_DFL'})\n"
        f"r, w = os.pipe(); os.close(r); os.dup2(w, {stream})")
    silent = 1 if words == ("--bogus",) else 0
    assert started_by(furnished, code)(*words) == Result(silent if ignored else status)
    if words == SIMPLE_ADD:
        assert furnished.registry == document(record("x"))
        assert [call.split()[0] for call in furnished.calls[1:]] == (
            ["/etc/ovt/php_configurator.d/10-hook", "/opt/ovt/admin/sbin/depotctl"] if ignored else [])


def test_a_child_that_ends_its_parent_before_the_save_changes_nothing(furnished):
    furnished.registry = document(ADDED)
    furnished.recorder(CGI, "kill -TERM $PPID; sleep 1")
    assert furnished.shell('"$@"', "--update", "--id", "x", "--path", CGI).status == 143
    assert furnished.registry == document(ADDED)
