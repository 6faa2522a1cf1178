"""Every command on a file system that is full, limited, read-only or holds something odd.

Expected: what cannot be read is an empty registry; a save that fails is silent on the terminal, told to the system
log, and the run goes on. The rewrite is in place, so a full disk can leave a torn file, which every later run
refuses until somebody mends it."""

import os
import re
import signal
import socket
import stat

import pytest

from commands import ADD, ADDED, COMMANDS, DIRTY, HOOK, play
from documents import report
from private_host import HOOK_LOG, PACKAGES, REGISTRY, SBIN, TAMRIX, UNPRIVILEGED, failed, ok
from registry_text import CGI, EMPTY_TABLE, INI, document, record

FPM_ADD = COMMANDS["--add"].words
PACKED = document(record("packed", displayname="name", system=True))
# Puts a file system of its own, as large as $1 says, over the folder $2, keeping what the folder holds, fills it
# to the last byte, lets $3 make some room, and runs the rest of the words there. At the end the registry and the
# hook log that came out of it are put into /opt/ovt/out.
ON_A_FULL_DISK = """
size=$1 folder=$2 room=$3; shift 3
exec bwrap --dev-bind / / --ro-bind "$folder" /tmp/kept --size "$size" --tmpfs "$folder" -- /bin/sh -c '
    folder=$1 room=$2; shift 2
    cp -a /tmp/kept/. "$folder"
    cat /dev/zero >"$folder/filler" 2>/dev/null
    eval "$room"
    "$@"; status=$?
    mkdir -p /opt/ovt/out; cp /etc/ovt/php_versions.json /var/log/quelm/*.log /opt/ovt/out 2>/dev/null
    exit $status' sh "$folder" "$room" "$@"
"""


@pytest.fixture
def logged_host(furnished):
    furnished.path("/opt/ovt/out").mkdir()
    furnished.open_log()
    return furnished


def full_disk(host, folder, room, *words):
    return host.run("/bin/sh", "-c", ON_A_FULL_DISK, "sh", "65536", folder, room, TAMRIX, *words)


def logged(host):
    return [re.sub(r"^<11>.*? tamrix\[\d+\]: ", "", line) for line in host.log_messages()]


def test_a_first_save_on_a_full_disk_leaves_an_empty_registry(logged_host):
    assert full_disk(logged_host, "/etc/ovt", "", *FPM_ADD) == ok("x\n")
    assert logged(logged_host) == [f"Unable to write {REGISTRY}: No space left on device"]
    assert logged_host.read("/opt/ovt/out/php_versions.json") == ""
    assert logged_host.calls[-2:] == [f"{HOOK} add", DIRTY]


@pytest.mark.parametrize("words", [FPM_ADD, ("--update", "--id", "r1", "--displayname", "y" * 3000), ("--reread",)],
                         ids=lambda words: words[0])
def test_a_growing_registry_on_a_full_disk_is_torn_and_refused_from_then_on(logged_host, words):
    # One page, to the last bytes: the next record needs a second one.
    records = [record(f"r{n}") for n in range(16)]
    before = document(*records, record("fill", displayname="d" * (4096 - len(document(*records, record("fill",
                      displayname=""))))))
    assert len(before) == 4096
    logged_host.registry = before
    result = full_disk(logged_host, "/etc/ovt", "", *words)
    assert (result.status, result.err) == (0, "")
    assert logged(logged_host) == [f"Unable to write {REGISTRY}: No space left on device"]
    torn = logged_host.read("/opt/ovt/out/php_versions.json")
    assert len(torn) == 4096
    logged_host.registry = torn
    refused = logged_host.tamrix("--list")
    assert refused == failed(refused.err) and refused.err.startswith(f"Error reading {REGISTRY}: can not parse ")


def test_a_shrinking_registry_needs_no_room(logged_host):
    logged_host.registry = document(record("a"), record("b"))
    assert full_disk(logged_host, "/etc/ovt", "", "--remove", "--id", "a") == ok()
    assert logged_host.read("/opt/ovt/out/php_versions.json") == document(record("b"))
    assert logged(logged_host) == []


def test_a_full_disk_under_the_hook_log_costs_the_records_only(logged_host):
    logged_host.write(HOOK_LOG, "kept\n")
    assert full_disk(logged_host, "/var/log/quelm", f"printf %4091s >>{HOOK_LOG}", *FPM_ADD) == ok("x\n")
    assert logged_host.read("/opt/ovt/out/php_handler_configurators.log") == "kept\n" + " " * 4091
    assert logged_host.registry == document(ADDED)
    assert logged_host.calls[-2:] == [f"{HOOK} add", DIRTY]


def test_a_read_only_folder_keeps_the_registry_and_the_run_goes_on(logged_host):
    before = document(record("x"), record("y"))
    script = 'exec bwrap --dev-bind / / --ro-bind /etc/ovt /etc/ovt --ro-bind /var/log/quelm /var/log/quelm -- "$@"'
    for words, out in (
            (("--update", "--id", "x", "--displayname", "n"), ""), (("--remove", "--id", "x"), ""), (("--reread",), ""),
            ((*ADD[:-1], "new"), "new\n")):
        logged_host.registry = before
        logged_host.forget_calls()
        assert logged_host.shell(script, *words) == ok(out), words
        assert logged_host.registry == before
        assert logged_host.calls[-1] == DIRTY
        assert (any(HOOK in call for call in logged_host.calls)) == (words != ("--reread",))
        assert logged(logged_host) == [f"Unable to open {REGISTRY}: Read-only file system"], words
    assert logged_host.hook_log is None


def bind_socket(path):
    folder = os.open(path.parent, os.O_RDONLY)
    try:
        socket.socket(socket.AF_UNIX).bind(f"/proc/self/fd/{folder}/{path.name}")
    finally:
        os.close(folder)


NO_FILE = "read {}: not a regular file"
# What lies there, and what the system log is told by a load and by a save.
ODD = {
    "a folder": (os.mkdir, NO_FILE, "open {}: Is a directory"),
    "a FIFO": (os.mkfifo, NO_FILE, "open {}: No such device or address"),
    "a socket": (bind_socket, "read {}: No such device or address", "open {}: No such device or address"),
    "a link loop": (lambda path: path.symlink_to(path.name), "read {}: Too many levels of symbolic links",
                    "open {}: Too many levels of symbolic links"),
    "a link into a missing folder": (lambda path: path.symlink_to("/no/such"), None,
                                     "open {}: No such file or directory"),
    "a link to an endless device": (lambda path: path.symlink_to("/dev/zero"), NO_FILE, None),
    "a link to a full device": (lambda path: path.symlink_to("/dev/full"), NO_FILE,
                                "write {}: No space left on device"),
}


def test_a_read_that_fails_is_told_to_the_log(logged_host):
    logged_host.path(REGISTRY).symlink_to("/proc/self/mem")
    assert logged_host.tamrix("--list") == ok(EMPTY_TABLE)
    assert logged(logged_host) == [f"Unable to read {REGISTRY}: Input/output error"]


@pytest.mark.parametrize("kind", ODD)
def test_in_the_registry_s_place_there_is(logged_host, kind):
    lay, *texts = ODD[kind]
    path = logged_host.path(REGISTRY)
    lay(path)
    before = path.lstat()
    unread, told = ([] if text is None else ["Unable to " + text.format(REGISTRY)] for text in texts)
    assert logged_host.tamrix("--list") == ok(EMPTY_TABLE)
    assert logged_host.tamrix("--remove", "--id", "x") == ok(err="[Warning] Handler with id `x' does not exist\n")
    assert logged_host.tamrix("--update", "--id", "x") == failed("Handler with id=`x' not found\n")
    assert logged(logged_host) == unread * 3
    assert logged_host.tamrix(*ADD) == ok("x\n")
    assert logged_host.tamrix("--reread") == ok()
    assert logged(logged_host) == (unread + told) * 2
    after = path.lstat()
    assert (stat.S_IFMT(after.st_mode), after.st_ino) == (stat.S_IFMT(before.st_mode), before.st_ino)
    assert logged_host.calls.count(f"{HOOK} add") == 1


def test_a_dangling_link_is_followed_to_the_new_file(logged_host):
    logged_host.path(REGISTRY).symlink_to("/opt/ovt/elsewhere")
    logged_host.remove(f"{PACKAGES}/p.conf")
    assert logged_host.tamrix(*ADD) == ok("x\n")
    assert logged_host.read("/opt/ovt/elsewhere") == document(record("x"))
    assert logged_host.path(REGISTRY).is_symlink()


def test_a_registry_that_cannot_be_read_is_lost_by_a_change_that_may_write(logged_host):
    logged_host.registry = document(record("a"))
    logged_host.path(REGISTRY).chmod(0o200)
    assert logged_host.shell(UNPRIVILEGED, *ADD) == ok("x\n")
    logged_host.path(REGISTRY).chmod(0o600)
    assert logged_host.registry == document(record("x"))


def test_a_registry_that_cannot_be_read_or_written_stays(logged_host):
    logged_host.registry = document(record("a"))
    logged_host.path(REGISTRY).chmod(0)
    assert logged_host.shell(UNPRIVILEGED, *ADD) == ok("x\n")
    logged_host.path(REGISTRY).chmod(0o600)
    assert logged_host.registry == document(record("a"))
    assert logged(logged_host) == [f"Unable to {what} {REGISTRY}: Permission denied" for what in ("read", "open")]


def test_two_hundred_million_blanks_are_no_registry(logged_host):
    logged_host.registry = b" " * 200_000_000
    assert logged_host.tamrix("--list") == failed(report("11 at 200000000 '\\x00'"))
    logged_host.registry = ""


def test_two_hundred_million_blanks_before_the_registry_are_skipped(logged_host):
    logged_host.registry = b"\n" * 200_000_000 + document(record("a"), record("b")).encode()
    assert logged_host.tamrix("--remove", "--id", "a") == ok()
    assert logged_host.registry == document(record("b"))


def test_a_large_sparse_registry_ends_at_its_first_nul(logged_host, plain_binary):
    logged_host.registry = ""
    os.truncate(logged_host.path(REGISTRY), 300_000_000)
    assert logged_host.tamrix("--list") == failed(report("11 at 0 '\\x00'"))


def test_ten_thousand_files_in_the_package_folder(logged_host):
    """Each counts by its name alone: backups and notes are passed over, and each bad file costs one line."""
    folder = logged_host.path(PACKAGES)
    for n in range(9_000):
        (folder / f"php{n}.conf.dpkg-old").write_text(f"id=old{n}\n")
    for n in range(900):
        (folder / f"broken{n}.conf").write_text("no key\n")
    gone = f"displayname=n\npath=/no/such\nclipath=\nphpini={INI}\ntype=cgi\nid="
    for n in range(100):
        (folder / f"gone{n}.conf").write_text(f"{gone}gone{n}\n")
    result = logged_host.tamrix("--reread")
    lines = result.err.splitlines()
    assert (result.status, result.out, len(lines)) == (0, "", 1000)
    expected = [
        f"Error reading handler from {PACKAGES}/broken{n}.conf: {PACKAGES}/broken{n}.conf(1): '=' character not found"
        " in line" for n in range(900)]
    assert sorted(lines[:900]) == sorted(expected)
    expected = [
        f"[Warning] removing handler `n' (gone{n}) as corresponding /no/such doesn't exist" for n in range(100)]
    assert sorted(lines[900:]) == sorted(expected)
    assert logged_host.registry == PACKED


def test_ten_thousand_handlers_of_packages_are_registered(logged_host):
    folder = logged_host.path(PACKAGES)
    for n in range(10_000):
        (folder / f"{n}.conf").write_text(f"displayname=n\npath=/no/such{n}\nclipath=\nphpini=\ntype=cgi\n")
    result = logged_host.tamrix("--reread", timeout=60)
    assert (result.status, result.err.count("as corresponding /no/such")) == (0, 10_000)
    assert logged_host.registry == PACKED


def test_a_bind_mount_of_the_registry_alone_is_enough(logged_host):
    """Nothing beside the file is made, so containers may bind just the one file."""
    logged_host.registry = ""
    script = (f"exec bwrap --dev-bind / / --ro-bind /etc/ovt /etc/ovt --bind {REGISTRY} {REGISTRY}"
              ' -- "$@"')
    play(logged_host, lambda *words: logged_host.shell(script, *words))
    assert logged_host.log_messages() == []


# A limit on file sizes: the rewrite has cut the registry before the limit refuses the rest.

FULL = "/opt/ovt/full.log"
KINDS = pytest.mark.parametrize("prefix", ["", "trap '' XFSZ; "], ids=["signal at its default", "signal ignored"])
CHANGES = {ADD: document(record("a"), record("b"), record("x")),
           ("--update", "--id", "a", "--path", CGI): document(record("a"), record("b")),
           ("--remove", "--id", "a"): document(record("b")), ("--reread",): document(record("a"), record("b"))}


@pytest.fixture
def quiet_host(host, plain_binary):
    """With children that write no file, as they inherit the limit."""
    host.write(CGI, "#!/bin/sh\necho PHP 8.1.2\n", 0o755)
    host.write(INI)
    host.write(f"{SBIN}/depotctl", "#!/bin/sh\nrm -f /opt/ovt/no-flag-set\n", 0o755)
    host.write(HOOK, "#!/bin/sh\nrm -f /opt/ovt/no-hook-ran\n", 0o755)
    host.write("/opt/ovt/no-hook-ran")
    host.write("/opt/ovt/no-flag-set")
    host.registry = document(record("a"), record("b"))
    host.open_log()
    return host


def ran(host):
    """Whether hooks and the dirty flag had their turn."""
    return not host.exists("/opt/ovt/no-hook-ran"), not host.exists("/opt/ovt/no-flag-set")


@KINDS
@pytest.mark.parametrize("words", CHANGES, ids=lambda words: words[0])
def test_a_limit_of_zero_empties_the_registry_and_the_run_goes_on(quiet_host, prefix, words):
    result = quiet_host.shell(prefix + 'ulimit -f 0; exec "$@"', *words)
    assert result == ok("x\n" if words == ADD else "")
    assert quiet_host.registry == ""
    assert logged(quiet_host) == [f"Unable to write {REGISTRY}: File too large"]
    assert ran(quiet_host) == (words != ("--reread",), True)
    assert quiet_host.hook_log == (None if words == ("--reread",) else "")


def full_streams(host, words, prefix=""):
    """Runs tamrix with streams that lead to a file which has reached the caller's limit."""
    host.write(FULL, "x" * 5000)
    result = host.shell(f'{prefix}ulimit -f 8; exec "$@" >>{FULL} 2>&1', *words)
    assert host.read(FULL) == "x" * 5000
    return result


@KINDS
@pytest.mark.parametrize("words", CHANGES, ids=lambda words: words[0])
def test_a_change_whose_streams_have_reached_the_limit_runs_to_its_end(quiet_host, prefix, words):
    assert full_streams(quiet_host, words, prefix) == ok()
    assert quiet_host.registry == CHANGES[words]
    assert ran(quiet_host) == (words != ("--reread",), True)


@pytest.mark.parametrize("words, status", [
    (("--list",), 0), (("--list-json",), 0), (("-h",), 0), ((), 1), (("--nonsense",), 1), (("--add",), 1),
    (("--update", "--id", "none"), 1)])
def test_a_result_or_message_beyond_the_limit_is_lost_without_another_status(quiet_host, words, status):
    assert full_streams(quiet_host, words).status == status


def test_children_get_the_size_signal_as_the_caller_left_it(quiet_host):
    quiet_host.hook("10-hook", "grep ^SigIgn /proc/self/status")
    bit = 1 << (signal.SIGXFSZ - 1)
    for prefix, ignored in (("", 0), ("trap '' XFSZ; ", bit)):
        quiet_host.registry = ""
        assert quiet_host.shell(f'{prefix}exec "$@"', *ADD) == ok("x\n")
        seen = re.findall(r"^stdout: SigIgn:\t(\w+)$", quiet_host.hook_log, re.MULTILINE)[-1]
        assert int(seen, 16) & bit == ignored


def test_listings_need_no_file(quiet_host):
    before = quiet_host.registry
    assert quiet_host.shell('ulimit -f 0; exec "$@"', "--list-json") == ok(
        document(record("a", displayname="8.1.2"), record("b", displayname="8.1.2")))
    assert quiet_host.registry == before and logged(quiet_host) == []
