"""Every command on a file system that is full, read-only or holds something odd.

Expected: what cannot be read is an empty registry; a save that fails is silent on the terminal, told to the system
log, and the run goes on. The rewrite is in place, so a full disk can leave a torn file, which every later run
refuses until somebody mends it."""

import os
import re
import socket
import stat

import pytest

from every_command import ADD, ADDED, DIRTY, HOOK, furnish, play
from private_host import HOOK_LOG, PACKAGES, REGISTRY, TAMRIX, UNPRIVILEGED, failed, ok
from registry_text import CGI, EMPTY, EMPTY_TABLE, INI, document, record

SIMPLE_ADD = ("--add", "--path", CGI, "--phpini", INI, "--type", "cgi", "--id", "x")
REPORT = f"Error reading {REGISTRY}: can not parse php_versions_info object : "
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
def furnished(host):
    furnish(host)
    host.path("/opt/ovt/out").mkdir()
    host.open_log()
    return host


def full_disk(host, folder, room, *words):
    return host.run("/bin/sh", "-c", ON_A_FULL_DISK, "sh", "65536", folder, room, TAMRIX, *words)


def logged(host):
    return [re.sub(r"^<11>.*? tamrix\[\d+\]: ", "", line.rstrip("\0")) for line in host.log_messages()]


def names(host):
    return [call.split()[0] for call in host.calls]


def test_a_first_save_on_a_full_disk_leaves_an_empty_registry(furnished):
    assert full_disk(furnished, "/etc/ovt", "", *ADD) == ok("x\n")
    assert logged(furnished) == [f"Unable to write {REGISTRY}: No space left on device"]
    assert furnished.read("/opt/ovt/out/php_versions.json") == ""
    assert furnished.calls[-2:] == [f"{HOOK} add", DIRTY]


@pytest.mark.parametrize("words", [ADD, ("--update", "--id", "r1", "--displayname", "y" * 3000), ("--reread",)],
                         ids=lambda words: words[0])
def test_a_growing_registry_on_a_full_disk_is_torn_and_refused_from_then_on(furnished, words):
    # One page, to the last bytes: the next record needs a second one.
    records = [record(f"r{n}") for n in range(16)]
    before = document(*records, record("fill", displayname="d" * (4096 - len(document(*records, record("fill",
                      displayname=""))))))
    assert len(before) == 4096
    furnished.registry = before
    result = full_disk(furnished, "/etc/ovt", "", *words)
    assert (result.status, result.err) == (0, "")
    assert logged(furnished) == [f"Unable to write {REGISTRY}: No space left on device"]
    torn = furnished.read("/opt/ovt/out/php_versions.json")
    assert len(torn) == 4096
    furnished.registry = torn
    refused = furnished.tamrix("--list")
    assert (refused.status, refused.out) == (1, "")
    assert refused.err.startswith(REPORT)


def test_a_shrinking_registry_needs_no_room(furnished):
    furnished.registry = document(record("a"), record("b"))
    assert full_disk(furnished, "/etc/ovt", "", "--remove", "--id", "a") == ok()
    assert furnished.read("/opt/ovt/out/php_versions.json") == document(record("b"))
    assert logged(furnished) == []


def test_a_full_disk_under_the_hook_log_costs_the_records_only(furnished):
    furnished.write(HOOK_LOG, "kept\n")
    assert full_disk(furnished, "/var/log/quelm", f"printf %4091s >>{HOOK_LOG}", *ADD) == ok("x\n")
    assert furnished.read("/opt/ovt/out/php_handler_configurators.log") == "kept\n" + " " * 4091
    assert furnished.registry == document(ADDED)
    assert furnished.calls[-2:] == [f"{HOOK} add", DIRTY]


def test_a_read_only_folder_keeps_the_registry_and_the_run_goes_on(furnished):
    before = document(record("x"), record("y"))
    script = 'exec bwrap --dev-bind / / --ro-bind /etc/ovt /etc/ovt --ro-bind /var/log/quelm /var/log/quelm -- "$@"'
    for words, out in (
            (("--update", "--id", "x", "--displayname", "n"), ""), (("--remove", "--id", "x"), ""), (("--reread",), ""),
            (("--add", "--path", CGI, "--phpini", INI, "--type", "cgi", "--id", "new"), "new\n")):
        furnished.registry = before
        furnished.forget_calls()
        assert furnished.shell(script, *words) == ok(out), words
        assert furnished.registry == before
        assert furnished.calls[-1] == DIRTY
        assert (HOOK in names(furnished)) == (words != ("--reread",))
        assert logged(furnished) == [f"Unable to open {REGISTRY}: Read-only file system"], words
    assert furnished.hook_log is None


ODD = {
    "a folder": (lambda path: path.mkdir(), "Is a directory"),
    "a FIFO": (lambda path: os.mkfifo(path), "No such device or address"),
    "a link loop": (lambda path: path.symlink_to(path.name), "Too many levels of symbolic links"),
    "a link into a missing folder": (lambda path: path.symlink_to("/no/such"), "No such file or directory"),
    "a socket": (lambda path: bind_socket(path), "No such device or address"),
    "a link to an endless device": (lambda path: path.symlink_to("/dev/zero"), None),
    "a link to a device": (lambda path: path.symlink_to("/dev/full"), ("write", "No space left on device")),
}


def bind_socket(path):
    folder = os.open(path.parent, os.O_RDONLY)
    try:
        socket.socket(socket.AF_UNIX).bind(f"/proc/self/fd/{folder}/{path.name}")
    finally:
        os.close(folder)


NO_FILE = f"Unable to read {REGISTRY}: not a regular file"
UNREADABLE = {
    "a folder": NO_FILE,
    "a FIFO": NO_FILE,
    "a link loop": f"Unable to read {REGISTRY}: Too many levels of symbolic links",
    "a link into a missing folder": None,
    "a socket": f"Unable to read {REGISTRY}: No such device or address",
    "a link to an endless device": NO_FILE,
    "a link to a device": NO_FILE,
}


def test_a_read_that_fails_is_told_to_the_log(furnished):
    furnished.path(REGISTRY).symlink_to("/proc/self/mem")
    assert furnished.tamrix("--list") == ok(EMPTY_TABLE)
    assert logged(furnished) == [f"Unable to read {REGISTRY}: Input/output error"]


@pytest.mark.parametrize("kind", ODD)
def test_in_the_registry_s_place_there_is(furnished, kind):
    lay, reason = ODD[kind]
    path = furnished.path(REGISTRY)
    lay(path)
    before = path.lstat()
    action, text = reason if isinstance(reason, tuple) else ("open", reason)
    told = [] if text is None else [f"Unable to {action} {REGISTRY}: {text}"]
    unread = [UNREADABLE[kind]] if UNREADABLE[kind] else []
    assert furnished.tamrix("--list") == ok(EMPTY_TABLE)
    assert furnished.tamrix("--remove", "--id", "x") == ok(err="[Warning] Handler with id `x' does not exist\n")
    assert furnished.tamrix("--update", "--id", "x") == failed("Handler with id=`x' not found\n")
    assert logged(furnished) == unread * 3
    assert furnished.tamrix(*SIMPLE_ADD) == ok("x\n")
    assert furnished.tamrix("--reread") == ok()
    assert logged(furnished) == (unread + told) * 2
    after = path.lstat()
    assert (stat.S_IFMT(after.st_mode), after.st_ino) == (stat.S_IFMT(before.st_mode), before.st_ino)
    assert furnished.calls.count(f"{HOOK} add") == 1


def test_a_dangling_link_is_followed_to_the_new_file(furnished):
    furnished.path(REGISTRY).symlink_to("/opt/ovt/elsewhere")
    furnished.remove(f"{PACKAGES}/p.conf")
    assert furnished.tamrix(*SIMPLE_ADD) == ok("x\n")
    assert furnished.read("/opt/ovt/elsewhere") == document(record("x"))
    assert furnished.path(REGISTRY).is_symlink()


def test_a_linked_registry_file_is_rewritten_in_its_place(furnished):
    """Two names and an owner's mode survive, because the file is never replaced by another."""
    furnished.registry = document(record("a"), record("b"))
    path = furnished.path(REGISTRY)
    path.chmod(0o640)
    os.link(path, furnished.path("/etc/ovt/second-name"))
    assert furnished.tamrix("--remove", "--id", "a") == ok()
    assert furnished.read("/etc/ovt/second-name") == document(record("b"))
    assert stat.S_IMODE(path.stat().st_mode) == 0o640


def test_a_registry_that_cannot_be_read_is_lost_by_a_change_that_may_write(furnished):
    furnished.registry = document(record("a"))
    furnished.path(REGISTRY).chmod(0o200)
    assert furnished.shell(UNPRIVILEGED, *SIMPLE_ADD) == ok("x\n")
    assert furnished.registry == document(record("x"))


def test_a_registry_that_cannot_be_read_or_written_stays(furnished):
    furnished.registry = document(record("a"))
    furnished.path(REGISTRY).chmod(0)
    assert furnished.shell(UNPRIVILEGED, *SIMPLE_ADD) == ok("x\n")
    assert furnished.registry == document(record("a"))
    assert logged(furnished) == [f"Unable to {what} {REGISTRY}: Permission denied" for what in ("read", "open")]


def test_two_hundred_million_blanks_are_no_registry(furnished):
    furnished.registry = b" " * 200_000_000
    text = (f"{REPORT}JSON object is expected. Error occured at offset 200000000, character '\\x00'. \n")
    assert furnished.tamrix("--list") == failed(text)
    furnished.registry = ""


def test_two_hundred_million_blanks_before_the_registry_are_skipped(furnished):
    furnished.registry = b"\n" * 200_000_000 + document(record("a"), record("b")).encode()
    assert furnished.tamrix("--remove", "--id", "a") == ok()
    assert furnished.registry == document(record("b"))


def test_a_large_sparse_registry_ends_at_its_first_nul(furnished, plain_binary):
    furnished.registry = ""
    os.truncate(furnished.path(REGISTRY), 300_000_000)
    text = f"{REPORT}JSON object is expected. Error occured at offset 0, character '\\x00'. \n"
    assert furnished.tamrix("--list") == failed(text)


def test_ten_thousand_files_in_the_package_folder(furnished):
    """Each counts by its name alone: backups and notes are passed over, and each bad file costs one line."""
    folder = furnished.path(PACKAGES)
    for n in range(9_000):
        (folder / f"php{n}.conf.dpkg-old").write_text(f"id=old{n}\n")
    for n in range(900):
        (folder / f"broken{n}.conf").write_text("no key\n")
    gone = f"displayname=n\npath=/no/such\nclipath=\nphpini={INI}\ntype=cgi\nid="
    for n in range(100):
        (folder / f"gone{n}.conf").write_text(f"{gone}gone{n}\n")
    result = furnished.tamrix("--reread")
    lines = result.err.splitlines()
    assert (result.status, result.out, len(lines)) == (0, "", 1000)
    expected = [
        f"Error reading handler from {PACKAGES}/broken{n}.conf: {PACKAGES}/broken{n}.conf(1): '=' character not found in"
        " line" for n in range(900)]
    assert sorted(lines[:900]) == sorted(expected)
    expected = [
        f"[Warning] removing handler `n' (gone{n}) as corresponding /no/such doesn't exist" for n in range(100)]
    assert sorted(lines[900:]) == sorted(expected)
    assert furnished.registry == document(record("packed", displayname="name", system=True))


def test_ten_thousand_handlers_of_packages_are_registered(furnished):
    folder = furnished.path(PACKAGES)
    for n in range(10_000):
        (folder / f"{n}.conf").write_text(f"displayname=n\npath=/no/such{n}\nclipath=\nphpini=\ntype=cgi\n")
    result = furnished.tamrix("--reread", timeout=60)
    assert (result.status, result.err.count("as corresponding /no/such")) == (0, 10_000)
    assert furnished.registry == document(record("packed", displayname="name", system=True))


def test_a_package_folder_that_is_a_file_or_gone_still_drops_the_package_handlers(furnished):
    furnished.remove(f"{PACKAGES}/p.conf")
    for lay in (lambda path: path.rmdir(), lambda path: path.write_text("x"), lambda path: path.unlink()):
        lay(furnished.path(PACKAGES))
        furnished.registry = document(record("a", system=True))
        assert furnished.tamrix("--reread") == ok()
        assert furnished.registry == EMPTY


def test_a_bind_mount_of_the_registry_alone_is_enough(furnished):
    """Nothing beside the file is made, so containers may bind just the one file."""
    furnished.registry = ""
    script = (f"exec bwrap --dev-bind / / --ro-bind /etc/ovt /etc/ovt --bind {REGISTRY} {REGISTRY}"
              ' -- "$@"')
    play(furnished, lambda *words: furnished.shell(script, *words))
    assert furnished.log_messages() == []
