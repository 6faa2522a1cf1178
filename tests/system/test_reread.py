"""--reread: purge, verification, warnings, ulimits, save and flag, for custom and package handlers."""

import os

import pytest

from private_host import PACKAGES, failed, ok
from registry_text import CGI, CLI, EMPTY, INI, document, package, record

DESCRIPTION = (
    "Reread handlers options:\n"
    "  --no-set-dirty-flag   do not call depotctl --set-dirty-flag\n"
)
DIRTY = "/opt/ovt/admin/sbin/depotctl --set-dirty-flag"
PROBE = f"{CGI} -n -v"
CLI_PROBE = f"{CLI} -n -v"
LOST = "[Warning] {ini} for handler `{name}' ({id}) is lost. Trying without php.ini.\n"
GONE = "[Warning] removing handler `{name}' ({id}) as corresponding {path} doesn't exist\n"
FAILED = "[Warning] removing handler `{name}' ({id}) due to errors in getting php version :{text}\n"


@pytest.fixture
def full_host(host):
    host.php(CGI)
    host.php(CLI)
    host.write(INI)
    host.hook("10-hook")
    return host


@pytest.mark.parametrize("words,message", [
    (["--help"], "unrecognised option '--help'"),
    (["--id", "x"], "unrecognised option '--id'"),
    (["--no-set-dirty-flag=1"], "option '--no-set-dirty-flag' does not take any arguments")])
def test_an_option_error_shows_the_options_without_a_load(full_host, words, message):
    full_host.registry = "broken"
    assert full_host.tamrix("--reread", *words) == failed(f"[Error] {message}\n\n{DESCRIPTION}\n")
    assert full_host.registry == "broken"
    assert full_host.calls == []


def test_stray_words_are_ignored(full_host):
    assert full_host.tamrix("--reread", "a", "", "b") == ok()


def test_an_empty_host_gets_an_empty_registry_and_the_flag(full_host):
    assert full_host.tamrix("--reread") == ok()
    assert full_host.registry == EMPTY
    assert full_host.calls == [DIRTY]


def test_the_switch_saves_without_the_flag(full_host):
    full_host.registry = document(record("a"))
    assert full_host.tamrix("--reread", "--no-set-dirty-flag") == ok()
    assert full_host.registry == document(record("a"))
    assert full_host.calls == [PROBE]


def test_no_hooks_run(full_host):
    full_host.registry = document(record("a"))
    full_host.write(f"{PACKAGES}/x.conf", package(id="x"))
    full_host.tamrix("--reread")
    assert full_host.calls == [PROBE, PROBE, DIRTY]
    assert full_host.hook_log is None


@pytest.mark.parametrize("spoil", ["missing", "a file", "a dangling link"])
def test_without_the_package_folder_system_and_built_in_handlers_disappear(full_host, spoil):
    full_host.registry = document(
        record("s1", system=True), record("module", type="module"), record("kept"), record("cgi"),
        record("fastcgi"), record("s2", system=True), record("FastCGI"), record("fpm", type="fpm"))
    folder = full_host.path(PACKAGES)
    folder.rmdir()
    if spoil == "a file":
        folder.write_text("x")
    elif spoil == "a dangling link":
        os.symlink("/no/such", folder)
    assert full_host.tamrix("--reread") == ok()
    assert full_host.registry == document(record("kept"), record("FastCGI"), record("fpm", type="fpm"))


def test_every_version_is_refreshed_and_package_handlers_come_last(full_host):
    full_host.registry = document(
        record("old", system=True), record("b", version="1"), record("a", version="2", type="fastcgi"))
    full_host.write(f"{PACKAGES}/x.conf", package(id="x", name="PHP $version"))
    assert full_host.tamrix("--reread") == ok()
    assert full_host.registry == document(
        record("b"), record("a", type="fastcgi"), record("x", displayname="PHP%20%24version", system=True))


def test_a_package_handler_is_recreated_from_its_file(full_host):
    full_host.write(f"{PACKAGES}/x.conf", package(id="x", name="one"))
    full_host.tamrix("--reread")
    full_host.write(f"{PACKAGES}/x.conf", package(id="x", name="two", type="fastcgi"))
    full_host.tamrix("--reread")
    assert full_host.registry == document(record("x", displayname="two", type="fastcgi", system=True))
    full_host.remove(f"{PACKAGES}/x.conf")
    full_host.tamrix("--reread")
    assert full_host.registry == EMPTY


def test_a_handler_whose_binary_has_gone_is_removed_with_a_warning(full_host):
    full_host.registry = document(
        record("a", path="/gone", displayname="PHP%20%24version"), record("b"), record("c", path=""))
    assert full_host.tamrix("--reread") == ok(
        err=GONE.format(name="PHP 8.1.2", id="a", path="/gone") + GONE.format(name="8.1.2", id="c", path=""))
    assert full_host.registry == document(record("b"))


def test_all_handlers_can_go_also_at_the_end(full_host):
    full_host.registry = document(*(record(f"h{n}", path="/gone") for n in range(5)))
    result = full_host.tamrix("--reread")
    assert result.err == "".join(GONE.format(name="8.1.2", id=f"h{n}", path="/gone") for n in range(5))
    assert full_host.registry == EMPTY


def test_a_link_loop_in_place_of_the_binary_counts_as_gone(full_host):
    os.symlink("/opt/ovt/loop", full_host.path("/opt/ovt/loop"))
    full_host.registry = document(record("a", path="/opt/ovt/loop"), record("b", phpini="/opt/ovt/loop"))
    assert full_host.tamrix("--reread") == ok(
        err=GONE.format(name="8.1.2", id="a", path="/opt/ovt/loop")
        + LOST.format(ini="/opt/ovt/loop", name="8.1.2", id="b"))
    assert full_host.registry == document(record("b", phpini="/opt/ovt/loop"))


def test_a_folder_in_place_of_the_binary_exists_and_fails_to_run(full_host):
    full_host.registry = document(record("a", path="/opt/ovt"))
    assert full_host.tamrix("--reread") == ok(
        err=FAILED.format(name="8.1.2", id="a", text="can not get version from /opt/ovt"))
    assert full_host.registry == EMPTY


def test_a_lost_ini_is_warned_of_and_stays_stored(full_host):
    full_host.registry = document(record("a", phpini="/lost.ini", version="7"))
    assert full_host.tamrix("--reread") == ok(err=LOST.format(ini="/lost.ini", name="7", id="a"))
    assert full_host.registry == document(record("a", phpini="/lost.ini"))


def test_an_empty_ini_is_warned_of_with_two_blanks_each_time(full_host):
    full_host.registry = document(record("a", phpini=""))
    warning = "[Warning]  for handler `8.1.2' (a) is lost. Trying without php.ini.\n"
    for _ in range(2):
        assert full_host.tamrix("--reread") == ok(err=warning)
        assert full_host.registry == document(record("a", phpini=""))


@pytest.mark.parametrize("banner,status,text", [
    ("PHP 8.1.2\n", 1, f"can not get version from {CGI}"),
    ("rubbish\n", 0, "Unable to parse php version : rubbish\n")])
def test_a_failing_probe_removes_the_handler(full_host, banner, status, text):
    full_host.php(CGI, banner, status)
    full_host.registry = document(record("a", displayname="PHP%20%24version", version="7"), record("b", path=CLI))
    assert full_host.tamrix("--reread") == ok(err=FAILED.format(name="PHP 7", id="a", text=text))
    assert full_host.registry == document(record("b", path=CLI))


def test_a_failing_cli_probe_removes_the_handler_and_shows_the_new_version(full_host):
    full_host.registry = document(record("a", clipath="/gone", version="7"))
    assert full_host.tamrix("--reread") == ok(
        err=FAILED.format(name="8.1.2", id="a", text="Binary /gone doesn't exists"))
    assert full_host.registry == EMPTY


def test_a_cli_of_another_version_is_warned_of_and_kept(full_host):
    full_host.php(CLI, "PHP 8.1.3\n")
    full_host.registry = document(record("a", clipath=CLI))
    assert full_host.tamrix("--reread") == ok(
        err="[Warning] versions of php-cgi and php-cli do not match: 8.1.2 != 8.1.3\n")
    assert full_host.registry == document(record("a", clipath=CLI))


def test_warnings_and_probes_come_handler_by_handler(full_host):
    full_host.php(CLI, "PHP 5\n")
    full_host.registry = document(
        record("a", phpini="", clipath=CLI), record("b", path="/gone"), record("c", clipath="/gone"),
        record("d", path=CLI))
    full_host.write(f"{PACKAGES}/x.conf", package(id="x", phpini="", name="PHP $version"))
    assert full_host.tamrix("--reread") == ok(err=(
        LOST.format(ini="", name="8.1.2", id="a")
        + "[Warning] versions of php-cgi and php-cli do not match: 8.1.2 != 5\n"
        + GONE.format(name="8.1.2", id="b", path="/gone")
        + FAILED.format(name="8.1.2", id="c", text="Binary /gone doesn't exists")
        + LOST.format(ini="", name="PHP ", id="x")))
    assert full_host.calls == [PROBE, CLI_PROBE, PROBE, CLI_PROBE, PROBE, DIRTY]


@pytest.mark.parametrize("id", ["module", "cgi", "fastcgi"])
def test_a_built_in_id_with_an_empty_name_is_named_after_its_version(full_host, id):
    full_host.write(f"{PACKAGES}/x.conf", package(id=id, name="", type=id))
    full_host.tamrix("--reread")
    assert full_host.registry == document(record(id, displayname="8.1.2", type=id, system=True))


@pytest.mark.parametrize("id,name,stored", [("cgi", "8.1.2", "8.1.2"), ("cgi", "$version", "%24version"),
                                            ("other", "", "")])
def test_other_names_are_kept(full_host, id, name, stored):
    full_host.registry = document(record(id, displayname="8.1.2", system=True))
    full_host.write(f"{PACKAGES}/x.conf", package(id=id, name=name))
    full_host.tamrix("--reread")
    assert full_host.registry == document(record(id, displayname=stored, system=True))


def test_the_ulimit_call_names_every_surviving_fpm_service_with_duplicates(full_host):
    fpm = {"type": "fpm", "poold": "/p"}
    full_host.registry = document(
        record("c", service="custom", **fpm), record("gone", path="/gone", service="gone", **fpm), record("x"),
        record("e", service="", **fpm))
    full_host.write(f"{PACKAGES}/x.conf", package(id="p", type="fpm", service="packaged", poold="/pool"))
    assert full_host.tamrix("--reread").status == 0
    assert full_host.calls == [
        PROBE, PROBE, PROBE, PROBE, PROBE, PROBE,
        "/opt/ovt/admin/sbin/quotagate --set 8192 --service custom  packaged packaged --no-restart", DIRTY]
    assert full_host.registry == document(
        record("c", service="custom", **fpm), record("x"), record("e", **fpm),
        record("p", displayname="name", system=True, type="fpm", service="packaged", poold="/pool"),
        record("p-dedicated", displayname="name", system=True, type="fpm", service="packaged"))


def test_the_ulimit_call_comes_before_the_save_and_its_failure_is_only_told(full_host):
    full_host.recorder(
        "/opt/ovt/admin/sbin/quotagate", "cat /etc/ovt/php_versions.json >/opt/ovt/seen; echo no >&2; exit 1")
    old = document(record("c", type="fpm", version="1", service="s"))
    full_host.registry = old
    assert full_host.tamrix("--reread") == ok(err="[Error] Failed to set default ulimit: no\n\n")
    assert full_host.read("/opt/ovt/seen") == old
    assert full_host.registry == document(record("c", type="fpm", service="s"))


def test_without_a_surviving_fpm_handler_no_ulimit_call_is_made(full_host):
    full_host.registry = document(record("a"), record("b", path="/gone", type="fpm", service="s"))
    full_host.tamrix("--reread")
    assert full_host.calls == [PROBE, DIRTY]


def test_a_failing_dirty_flag_does_not_undo_the_save(full_host):
    full_host.tool("depotctl", 1, "locked\n")
    full_host.registry = document(record("a", version="1"))
    assert full_host.tamrix("--reread") == failed("Failed to set depotctl dirty flag : locked\n\n")
    assert full_host.registry == document(record("a"))
