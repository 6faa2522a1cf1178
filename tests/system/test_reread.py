"""--reread: purge, verification, warnings, ulimits, save and flag, for custom and package handlers; and which failures
cost one handler, which end the command and leave the file alone. Package files: test_package_files.py."""

import os

import pytest

from commands import CLI_PROBE, COMMANDS, DIRTY, PROBE
from private_host import PACKAGES, REGISTRY, SBIN, UNPRIVILEGED, fatal, fatal_file, ok
from registry_text import CGI, CLI, EMPTY, document, package, record

LOST = "[Warning] {ini} for handler `{name}' ({id}) is lost. Trying without php.ini.\n"
GONE = "[Warning] removing handler `{name}' ({id}) as corresponding {path} doesn't exist\n"
FAILED = "[Warning] removing handler `{name}' ({id}) due to errors in getting php version :{text}\n"
DIFFER = "[Warning] versions of php-cgi and php-cli do not match: 8.1.2 != {}\n"
LOOP = "/opt/ovt/loop"
FPM = {"type": "fpm", "service": "s", "poold": "/p"}
X_FILE = f"{PACKAGES}/x.conf"


@pytest.fixture
def full_host(php_host):
    php_host.hook("10-hook")
    return php_host


@pytest.mark.parametrize("words,message", [
    (["--help"], "unrecognised option '--help'"),
    (["--id", "x"], "unrecognised option '--id'"),
    (["--no-set-dirty-flag=1"], "option '--no-set-dirty-flag' does not take any arguments")])
def test_an_option_error_shows_the_options_without_a_load(full_host, words, message):
    full_host.registry = "broken"
    assert full_host.tamrix("--reread", *words) == COMMANDS["--reread"].option_error(message)
    assert full_host.registry == "broken"
    assert full_host.calls == []


@pytest.mark.parametrize("words,calls", [
    (["--reread"], [PROBE, PROBE, DIRTY]), (["--reread", "a", "", "b"], [PROBE, PROBE, DIRTY]),
    (["--reread", "--no-set-dirty-flag"], [PROBE, PROBE])])
def test_no_hooks_run_and_the_switch_saves_without_the_flag(full_host, words, calls):
    full_host.registry = document(record("a", version="1"))
    full_host.write(X_FILE, package(id="x"))
    assert full_host.tamrix(*words) == ok()
    assert full_host.registry == document(record("a"), record("x", displayname="name", system=True))
    assert full_host.calls == calls
    assert full_host.hook_log is None


def test_an_empty_host_gets_an_empty_registry_and_the_flag(full_host):
    assert full_host.tamrix("--reread") == ok()
    assert full_host.registry == EMPTY
    assert full_host.calls == [DIRTY]


@pytest.mark.parametrize("spoil", ["missing", "a file", "a dangling link"])
def test_without_the_package_folder_system_and_built_in_handlers_disappear(full_host, spoil):
    full_host.registry = document(
        record("s1", system=True), record("module", type="module"), record("kept", version="1"), record("cgi"),
        record("gone", path="/gone"), record("fastcgi"), record("s2", system=True), record("FastCGI"),
        record("fpm", type="fpm"))
    folder = full_host.path(PACKAGES)
    folder.rmdir()
    if spoil == "a file":
        folder.write_text("x")
    elif spoil == "a dangling link":
        os.symlink("/no/such", folder)
    # Custom handlers are verified all the same.
    assert full_host.tamrix("--reread") == ok(err=GONE.format(name="8.1.2", id="gone", path="/gone"))
    assert full_host.registry == document(record("kept"), record("FastCGI"), record("fpm", type="fpm"))


def test_every_version_is_refreshed_and_package_handlers_come_last(full_host):
    full_host.registry = document(
        record("old", system=True), record("b", version="1"), record("a", version="2", type="fastcgi"))
    full_host.write(X_FILE, package(id="x", name="PHP $version"))
    assert full_host.tamrix("--reread") == ok()
    assert full_host.registry == document(
        record("b"), record("a", type="fastcgi"), record("x", displayname="PHP%20%24version", system=True))


def test_a_package_handler_is_recreated_from_its_file(full_host):
    full_host.write(X_FILE, package(id="x", name="one"))
    full_host.tamrix("--reread")
    full_host.write(X_FILE, package(id="x", name="two", type="fastcgi"))
    full_host.tamrix("--reread")
    assert full_host.registry == document(record("x", displayname="two", type="fastcgi", system=True))
    full_host.remove(X_FILE)
    full_host.tamrix("--reread")
    assert full_host.registry == EMPTY


# One handler "a" beside one that stays: its fields, the warnings, and whether it is kept. Its version is 7 before.
CHECKED = {
    "a binary that has gone": ({"path": "/gone", "displayname": "PHP%20%24version"},
                               GONE.format(name="PHP 7", id="a", path="/gone"), False),
    # No other warning then, and no probe.
    "a binary that has gone with all else": ({"path": "/gone", "phpini": "", "clipath": "/gone"},
                                             GONE.format(name="7", id="a", path="/gone"), False),
    "no binary": ({"path": ""}, GONE.format(name="7", id="a", path=""), False),
    "a link loop for a binary": ({"path": LOOP}, GONE.format(name="7", id="a", path=LOOP), False),
    "a binary in a closed folder": ({"path": "/opt/ovt/closed/php"},
                                    GONE.format(name="7", id="a", path="/opt/ovt/closed/php"), False),
    "a too long path": ({"path": "/" + "x" * 300}, GONE.format(name="7", id="a", path="/" + "x" * 300), False),
    "a folder for a binary": ({"path": "/opt/ovt"},
                              FAILED.format(name="7", id="a", text="can not get version from /opt/ovt"), False),
    "a lost php.ini": ({"phpini": "/lost.ini"}, LOST.format(ini="/lost.ini", name="7", id="a"), True),
    "no php.ini": ({"phpini": ""}, LOST.format(ini="", name="7", id="a"), True),
    "a link loop for a php.ini": ({"phpini": LOOP}, LOST.format(ini=LOOP, name="7", id="a"), True),
    "a php.ini in a closed folder": ({"phpini": "/opt/ovt/closed/php"},
                                     LOST.format(ini="/opt/ovt/closed/php", name="7", id="a"), True),
    "a folder for a php.ini": ({"phpini": "/opt/ovt"}, "", True),
    "a lost php.ini and a failing binary": (
        {"phpini": "/lost", "path": "/opt/ovt/failing", "displayname": "PHP%20%24version"},
        LOST.format(ini="/lost", name="PHP 7", id="a")
        + FAILED.format(name="PHP 7", id="a", text="can not get version from /opt/ovt/failing"), False),
    "a binary that prints rubbish": (
        {"path": "/opt/ovt/rubbish"}, FAILED.format(name="7", id="a", text="Unable to parse php version : rubbish\n"),
        False),
    # The php-cgi's new version is shown.
    "a php-cli that has gone": ({"clipath": "/gone"},
                                FAILED.format(name="8.1.2", id="a", text="Binary /gone doesn't exists"), False),
    "a link loop for a php-cli": (
        {"clipath": LOOP},
        FAILED.format(name="8.1.2", id="a",
                      text=f"filesystem error: status: Too many levels of symbolic links [{LOOP}]"), False),
    "a php-cli of another version": ({"clipath": "/opt/ovt/other"}, DIFFER.format("5"), True),
}


@pytest.mark.parametrize("name", CHECKED)
def test_a_handler_with(full_host, name):
    fields, warnings, kept = CHECKED[name]
    os.symlink("loop", full_host.path(LOOP))
    full_host.php("/opt/ovt/closed/php")
    full_host.php("/opt/ovt/failing", status=1)
    full_host.php("/opt/ovt/rubbish", "rubbish\n")
    full_host.php("/opt/ovt/other", "PHP 5\n")
    full_host.path("/opt/ovt/closed").chmod(0)
    full_host.registry = document(record("a", version="7", **fields), record("b"))
    assert full_host.shell(UNPRIVILEGED, "--reread") == ok(err=warnings)
    assert full_host.registry == document(*([record("a", **fields)] if kept else []), record("b"))
    assert full_host.calls[-1] == DIRTY
    if kept:
        # The same warning each time, with the version that is stored by now.
        assert full_host.shell(UNPRIVILEGED, "--reread") == ok(err=warnings.replace("`7'", "`8.1.2'"))


def test_all_handlers_can_go_also_at_the_end(full_host):
    full_host.registry = document(*(record(f"h{n}", path="/gone") for n in range(5)))
    result = full_host.tamrix("--reread")
    assert result.err == "".join(GONE.format(name="8.1.2", id=f"h{n}", path="/gone") for n in range(5))
    assert full_host.registry == EMPTY
    assert full_host.calls == [DIRTY]


def test_warnings_and_probes_come_handler_by_handler(full_host):
    full_host.php(CLI, "PHP 5\n")
    full_host.registry = document(
        record("a", phpini="", clipath=CLI), record("b", path="/gone"), record("c", clipath="/gone"),
        record("d", path=CLI))
    full_host.write(X_FILE, package(id="x", phpini="", name="PHP $version"))
    assert full_host.tamrix("--reread") == ok(err=(
        LOST.format(ini="", name="8.1.2", id="a") + DIFFER.format("5")
        + GONE.format(name="8.1.2", id="b", path="/gone")
        + FAILED.format(name="8.1.2", id="c", text="Binary /gone doesn't exists")
        + LOST.format(ini="", name="PHP ", id="x")))
    assert full_host.calls == [PROBE, CLI_PROBE, PROBE, CLI_PROBE, PROBE, DIRTY]


@pytest.mark.parametrize("id,name,stored", [
    # A built-in id with an empty name is named after its version; other names are kept.
    ("module", "", "8.1.2"), ("cgi", "", "8.1.2"), ("fastcgi", "", "8.1.2"), ("cgi", "8.1.2", "8.1.2"),
    ("cgi", "$version", "%24version"), ("other", "", "")])
def test_the_name_of_a_built_in_id_follows_its_version(full_host, id, name, stored):
    full_host.registry = document(record(id, displayname="8.1.2", system=True))
    full_host.write(X_FILE, package(id=id, name=name))
    full_host.tamrix("--reread")
    assert full_host.registry == document(record(id, displayname=stored, system=True))


def test_a_followed_version_is_taken_over_before_the_php_cli_is_probed(full_host):
    full_host.write(X_FILE, package(id="cgi", name="", clipath="/gone"))
    assert full_host.tamrix("--reread") == ok(
        err=FAILED.format(name="8.1.2", id="cgi", text="Binary /gone doesn't exists"))


def test_the_ulimit_call_names_every_surviving_fpm_service_with_duplicates(full_host):
    fpm = {"type": "fpm", "poold": "/p"}
    full_host.registry = document(
        record("c", service="custom", **fpm), record("gone", path="/gone", service="gone", **fpm), record("x"),
        record("e", service="", **fpm))
    full_host.write(X_FILE, package(id="p", type="fpm", service="packaged", poold="/pool"))
    assert full_host.tamrix("--reread").status == 0
    assert full_host.calls == [
        *[PROBE] * 6, f"{SBIN}/quotagate --set 8192 --service custom  packaged packaged --no-restart", DIRTY]
    assert full_host.registry == document(
        record("c", service="custom", **fpm), record("x"), record("e", **fpm),
        record("p", displayname="name", system=True, type="fpm", service="packaged", poold="/pool"),
        record("p-dedicated", displayname="name", system=True, type="fpm", service="packaged"))


def test_the_ulimit_call_comes_before_the_save_and_its_failure_is_only_told(full_host):
    full_host.recorder(f"{SBIN}/quotagate", f"cat {REGISTRY} >/opt/ovt/seen; echo no >&2; exit 1")
    old = document(record("c", version="1", **FPM))
    full_host.registry = old
    assert full_host.tamrix("--reread") == ok(err="[Error] Failed to set default ulimit: no\n\n")
    assert full_host.read("/opt/ovt/seen") == old
    assert full_host.registry == document(record("c", **FPM))


def test_without_a_surviving_fpm_handler_no_ulimit_call_is_made(full_host):
    full_host.registry = document(record("a"), record("b", path="/gone", type="fpm", service="s"))
    full_host.tamrix("--reread")
    assert full_host.calls == [PROBE, DIRTY]


@pytest.mark.parametrize("mode", [0, 0o300])
def test_a_package_folder_that_cannot_be_listed_ends_the_command(full_host, mode):
    full_host.write(X_FILE, "")
    before = document(record("a", system=True))
    full_host.registry = before
    full_host.path(PACKAGES).chmod(mode)
    assert full_host.shell(UNPRIVILEGED, "--reread") == fatal_file(
        "directory iterator cannot open directory", "Permission denied", PACKAGES)
    assert full_host.registry == before
    assert full_host.calls == []


@pytest.mark.parametrize("type", ["custom", "packaged, for its twin"])
def test_running_out_of_memory_ends_the_command(full_host, plain_binary, type):
    """Nothing but memory is short; an interpreter that prints without end uses it up."""
    full_host.recorder("/opt/ovt/endless", "head -c 900000000 /dev/zero")
    before = document(record("a", path="/opt/ovt/endless" if type == "custom" else CGI), record("b"))
    full_host.registry = before
    if type != "custom":
        full_host.write(X_FILE, package(id="x", path="/opt/ovt/endless", **FPM))
    assert full_host.shell('ulimit -v 500000; exec "$@"', "--reread") == fatal("std::bad_alloc(std::bad_alloc)")
    assert full_host.registry == before


def test_a_version_of_very_many_parts_costs_one_handler(full_host):
    many = "head -c 400000 /dev/zero | tr '\\0' . | sed 's/\\./.1/g'"
    full_host.recorder("/opt/ovt/endless", f"printf 'PHP 8'; {many}; echo")
    full_host.registry = document(record("a", path="/opt/ovt/endless"), record("b"))
    result = full_host.tamrix("--reread")
    assert result.status == 0
    assert result.err.startswith(FAILED.format(name="8.1.2", id="a", text="Ran out of stack space").rstrip("\n"))
    assert full_host.registry == document(record("b"))
