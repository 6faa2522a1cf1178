"""Every command under odd process states: signals, descriptors and limits that a careless caller leaves behind.

Expected: signals, closed descriptors and inherited ones make no difference. What a limit makes impossible is
reported with status 1. One limit makes the program abort: an address space that has room for the program and none for
a report, and only before anything has been changed."""

import os
import resource

import pytest

from commands import ADD, COMMANDS, play
from private_host import HOOKS, REGISTRY, SBIN, TAMRIX, Result, failed, fatal, ok
from registry_text import CGI, document, record

FPM_ADD = COMMANDS["--add"].words
NO_PIPE = "tamrix: {}: pipe() failed\nSystem error 24: Too many open files\n"


def play_after(host, code, output_seen=True):
    """All commands succeed when a process starts them that first does what `code` says."""
    play(host, lambda *words: host.started_by(code, *words), output_seen)


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
    return lambda *words: host.run("/bin/bash", "-c", become, "/bin/bash", script, "bash", TAMRIX, *words,
                                   env={"ASAN_OPTIONS": "detect_leaks=0"})


@pytest.mark.parametrize("code", [
    *(f"signal.signal(signal.SIG{name}, signal.SIG_IGN)" for name in ("PIPE", "CHLD", "TERM", "HUP", "XFSZ")),
    "signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals())",
    # Pending already.
    "blocked = {signal.SIGTERM, signal.SIGHUP, signal.SIGCHLD, signal.SIGPIPE}\n"
    "signal.pthread_sigmask(signal.SIG_BLOCK, blocked)\nfor number in blocked: os.kill(os.getpid(), number)",
    "for slot in range(3): os.set_blocking(slot, False)"], ids=lambda code: code[:60])
def test_a_state_that_the_caller_left(furnished, code):
    play_after(furnished, code)


def test_ignored_hangup_and_termination_reach_the_children_as_they_are(furnished):
    furnished.hook("10-hook", "grep ^SigIgn /proc/self/status")
    code = (
        "for number in (signal.SIGHUP, signal.SIGTERM, signal.SIGPIPE): signal.signal(number, signal.SIG_IGN)\n"
        "for number in (signal.SIGINT, signal.SIGQUIT, signal.SIGXFSZ): signal.signal(number, signal.SIG_DFL)")
    assert furnished.started_by(code, *ADD) == ok("x\n")
    # Bits 0 and 14: hangup and termination.
    assert "stdout: SigIgn:\t0000000000004001\n" in furnished.hook_log


@pytest.mark.parametrize("closing", ["<&-", ">&-", "2>&-", "<&- >&-", "<&- 2>&-", ">&- 2>&-", "<&- >&- 2>&-"])
def test_closed_standard_descriptors(furnished, closing):
    seen = ">&-" not in closing.replace("2>&-", "")
    play(furnished, lambda *words: furnished.shell(f'exec "$@" {closing}', *words), output_seen=seen)


@pytest.mark.parametrize("access", ["O_RDONLY", "O_WRONLY"])
def test_standard_descriptors_that_are_open_the_wrong_way(furnished, access):
    code = f"null = os.open('/dev/null', os.{access})\nfor slot in range(3): os.dup2(null, slot)"
    play_after(furnished, code, output_seen=False)


@pytest.mark.parametrize("limit", [16, 32])
def test_few_descriptors_are_enough(furnished, plain_binary, limit):
    play_after(furnished, f"resource.setrlimit(resource.RLIMIT_NOFILE, ({limit}, {limit}))")


def with_descriptors(host, count, *words):
    return host.started_by(f"resource.setrlimit(resource.RLIMIT_NOFILE, ({count}, {count}))", *words)


def test_with_eight_descriptors_listings_work(furnished, plain_binary):
    furnished.registry = document(record("a", displayname="n"))
    assert with_descriptors(furnished, 8, "--list-json") == ok(document(record("a", displayname="n")))
    assert with_descriptors(furnished, 8, "--list").status == 0


@pytest.mark.parametrize("count,words,who", [
    (8, ADD, "forkExecvGetOutErr"), (8, ("--update", "--id", "a", "--path", CGI), "forkExecvGetOutErr"),
    (8, ("--reread",), "forkExecvGetOutErr"), (6, ("--update", "--id", "a", "--service", "t"), "fork_execv_getouterr"),
    (8, ("--remove", "--id", "b"), "forkExecvGetOutErr")], ids=lambda value: str(value)[:20])
def test_with_few_descriptors_a_child_is_refused_and_nothing_but_a_removal_saved(
        furnished, plain_binary, count, words, who):
    kept = record("a", type="fpm", service="s", poold="/p")
    furnished.registry = before = document(kept, record("b"))
    message = NO_PIPE.format(who)
    assert with_descriptors(furnished, count, *words) == failed(message, message)
    assert furnished.registry == (document(kept) if words[0] == "--remove" else before)
    assert furnished.calls == []


@pytest.fixture(params=["a million", "the machine's own limit"])
def table_size(request):
    """Lets this process, and what it starts, have so many descriptors, where the machine permits that."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if request.param == "a million" and hard < 1_000_000:
        try:
            resource.setrlimit(resource.RLIMIT_NOFILE, (soft, 1_000_000))
        except (OSError, ValueError) as refusal:
            pytest.skip(f"no more than {hard} open files are possible here: {refusal}")
    yield 1_000_000 if request.param == "a million" else hard
    resource.setrlimit(resource.RLIMIT_NOFILE, (soft, hard))


def test_fifteen_hundred_inherited_descriptors(furnished, table_size):
    assert table_size > 1600
    play_after(furnished, f"resource.setrlimit(resource.RLIMIT_NOFILE, ({table_size}, {table_size}))\n"
                          "for n in range(1500): os.set_inheritable(os.open('/dev/null', os.O_RDONLY), True)")


def test_without_proc_every_command_works_and_no_descriptor_leaks(furnished, plain_binary):
    furnished.hook("20-hook", "for n in 3 4 5 6 7 8 9; do if (: >&$n) 2>/dev/null; then echo open $n; fi; done")
    script = 'exec bwrap --dev-bind / / --tmpfs /proc -- /bin/sh -c \'exec "$0" "$@" 5>/dev/null 7</dev/null\' "$@"'
    assert furnished.shell(script, *ADD) == ok("x\n")
    assert furnished.hook_log.count("\nstdout: \nstderr: \nExit code: 0\n") == 2
    furnished.remove(f"{HOOKS}/20-hook")
    furnished.remove(REGISTRY)
    play(furnished, lambda *words: furnished.shell(script, *words))


@pytest.mark.parametrize("words,saved", [
    (ADD, None), (FPM_ADD, None), (("--update", "--id", "x", "--path", CGI), None),
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
        assert result == fatal(f"quelm::ExSystemError<11>({reason})")
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
        return furnished.started_by(f"resource.setrlimit(resource.RLIMIT_AS, ({limit}, {limit}))", *ADD)

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
    # More than a program with shared libraries maps; the file is sparse.
    os.truncate(furnished.path(furnished.write(REGISTRY, '{"php":[')), 200_000_000)
    words = [command, "--id", "a"] if command in ("--remove", "--update") else [command]
    result = furnished.started_by("resource.setrlimit(resource.RLIMIT_AS, (150_000_000, 150_000_000))", *words)
    assert result == fatal("std::bad_alloc(std::bad_alloc)")
    assert furnished.path(REGISTRY).stat().st_size == 200_000_000


@pytest.mark.parametrize("stream,words,status", [
    (1, ADD, 141), (1, ("--list",), 141), (2, ("--remove", "--id", "none"), 141), (2, ("--help",), 141),
    (2, ("--bogus",), 141)])
@pytest.mark.parametrize("ignored", [False, True])
def test_a_stream_without_reader_ends_the_run_unless_the_caller_ignores_that(furnished, stream, words, status, ignored):
    """As any tool ends; a caller that wants the hooks after a closed output ignores SIGPIPE."""
    code = (
        f"signal.signal(signal.SIGPIPE, signal.{'SIG_IGN' if ignored else 'SIG_DFL'})\n"
        f"r, w = os.pipe(); os.close(r); os.dup2(w, {stream})")
    silent = 1 if words == ("--bogus",) else 0
    assert furnished.started_by(code, *words) == Result(silent if ignored else status)
    if words == ADD:
        assert furnished.registry == document(record("x"))
        assert [call.split()[0] for call in furnished.calls[1:]] == (
            [f"{HOOKS}/10-hook", f"{SBIN}/depotctl"] if ignored else [])
