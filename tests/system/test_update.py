"""--update: what it changes, in which order, and what it probes."""

import pytest

from private_host import failed, ok
from registry_text import CGI, CLI, INI, document, record

HOOK = "/etc/ovt/php_configurator.d/10-hook update"
DIRTY = "/opt/ovt/admin/sbin/depotctl --set-dirty-flag"
PROBE = f"{CGI} -n -v"
CLI_PROBE = f"{CLI} -n -v"
UPDATE = ("--update", "--id", "a")
OTHER = record("other", version="7")


def before(**fields):
    return document(record("a", version="1.0", displayname="name", **fields), OTHER)


def after(**fields):
    return document(record("a", **{"version": "1.0", "displayname": "name", **fields}), OTHER)


@pytest.fixture
def full_host(host):
    host.php(CGI)
    host.php(CLI)
    host.php("/opt/ovt/new-cgi", "PHP 9.1\n")
    host.php("/opt/ovt/new-cli", "PHP 9.2\n")
    host.registry = before()
    host.hook("10-hook")
    return host


@pytest.mark.parametrize("words,fields", [
    (["--displayname", "new $version"], {"displayname": "new%20%24version"}),
    (["--displayname", ""], {"displayname": ""}),
    (["--type", "fastcgi"], {"type": "fastcgi"}),
    (["--type", "cgi"], {}),
    (["--type", "fpm"], {"type": "fpm"}),
    ([], {})])
def test_what_needs_no_probe_makes_none(full_host, words, fields):
    assert full_host.tamrix(*UPDATE, *words) == ok()
    assert full_host.registry == after(**fields)
    assert full_host.calls == [HOOK, DIRTY]


@pytest.mark.parametrize("words,fields,probes", [
    (["--path", "/opt/ovt/new-cgi"], {"path": "/opt/ovt/new-cgi", "version": "9.1"}, ["/opt/ovt/new-cgi -n -v"]),
    (["--path", CGI], {"version": "8.1.2"}, [PROBE]),
    (["--phpini", "/new.ini"], {"phpini": "/new.ini", "version": "8.1.2"}, [PROBE]),
    (["--phpini", INI], {"version": "8.1.2"}, [PROBE]),
    (["--clipath", CLI], {"clipath": CLI, "version": "8.1.2"}, [PROBE, CLI_PROBE]),
    (["--clipath", ""], {"version": "8.1.2"}, [PROBE])])
def test_a_path_or_ini_is_probed_again_even_when_it_is_the_same(full_host, words, fields, probes):
    assert full_host.tamrix(*UPDATE, *words) == ok()
    assert full_host.registry == after(**fields)
    assert full_host.calls == [*probes, HOOK, DIRTY]


def test_an_empty_cli_path_takes_the_cli_away(full_host):
    full_host.registry = before(clipath=CLI)
    assert full_host.tamrix(*UPDATE, "--clipath", "") == ok()
    assert full_host.registry == after(version="8.1.2")


def test_a_stored_cli_is_probed_when_the_path_changes_and_a_mismatch_is_warned_of(full_host):
    full_host.registry = before(clipath=CLI)
    assert full_host.tamrix(*UPDATE, "--path", "/opt/ovt/new-cgi") == ok(
        err="[Warning] versions of php-cgi and php-cli do not match: 9.1 != 8.1.2\n")
    assert full_host.registry == after(path="/opt/ovt/new-cgi", clipath=CLI, version="9.1")
    assert full_host.calls == ["/opt/ovt/new-cgi -n -v", CLI_PROBE, HOOK, DIRTY]


def test_a_new_cli_of_another_version_is_warned_of_and_saved(full_host):
    assert full_host.tamrix(*UPDATE, "--clipath", "/opt/ovt/new-cli") == ok(
        err="[Warning] versions of php-cgi and php-cli do not match: 8.1.2 != 9.2\n")
    assert full_host.registry == after(clipath="/opt/ovt/new-cli", version="8.1.2")


def test_everything_in_one_call(full_host):
    full_host.hook("10-hook", "env | grep ^PHP_ | sort >>/opt/ovt/calls")
    words = ["--displayname", "n", "--path", "/opt/ovt/new-cgi", "--clipath", "/opt/ovt/new-cli", "--phpini", "/i",
             "--type", "fpm", "--service", "s", "--poold", "/p", "--no-set-dirty-flag"]
    assert full_host.tamrix(*UPDATE, *words) == ok(
        err="[Warning] versions of php-cgi and php-cli do not match: 9.1 != 9.2\n")
    assert full_host.registry == after(
        displayname="n", path="/opt/ovt/new-cgi", clipath="/opt/ovt/new-cli", phpini="/i", type="fpm", service="s",
        poold="/p", version="9.1")
    assert full_host.calls == [
        "/opt/ovt/admin/sbin/quelmrc s exists", "/opt/ovt/new-cgi -n -v", "/opt/ovt/new-cli -n -v", HOOK,
        "PHP_CLI=/opt/ovt/new-cli", "PHP_ID=a", "PHP_INI=/i", "PHP_PATH=/opt/ovt/new-cgi", "PHP_TYPE=fpm",
        "PHP_VERSION=9.1"]


def test_service_and_pool_of_an_fpm_handler_change_without_a_probe_or_ulimit(full_host):
    full_host.registry = before(type="fpm", service="old", poold="/old")
    assert full_host.tamrix(*UPDATE, "--service", "new") == ok()
    assert full_host.registry == after(type="fpm", service="new", poold="/old")
    assert full_host.tamrix(*UPDATE, "--poold", "") == ok()
    assert full_host.registry == after(type="fpm", service="new", poold="")
    assert full_host.calls == ["/opt/ovt/admin/sbin/quelmrc new exists", HOOK, DIRTY, HOOK, DIRTY]


def test_switching_away_from_fpm_drops_the_pair_from_the_file(full_host):
    full_host.registry = before(type="fpm", service="s", poold="/p")
    assert full_host.tamrix(*UPDATE, "--type", "cgi") == ok()
    assert full_host.registry == after()
    assert full_host.tamrix(*UPDATE, "--type", "fpm") == ok()
    assert full_host.registry == after(type="fpm")


def test_the_switch_skips_only_the_dirty_flag(full_host):
    assert full_host.tamrix(*UPDATE, "--displayname", "n", "--no-set-dirty-flag") == ok()
    assert full_host.registry == after(displayname="n")
    assert full_host.calls == [HOOK]


def test_the_log_record_bears_the_action_and_the_changed_handler(full_host):
    full_host.tamrix(*UPDATE, "--path", "/opt/ovt/new-cgi", "--type", "fastcgi")
    assert full_host.hook_log == (
        "[TIME] Start: /etc/ovt/php_configurator.d/10-hook update\n"
        f"PHP_CLI = \nPHP_ID = a\nPHP_INI = {INI}\nPHP_PATH = /opt/ovt/new-cgi\nPHP_TYPE = fastcgi\n"
        "PHP_VERSION = 9.1\nstdout: \nstderr: \nExit code: 0\n")


def test_the_last_of_many_is_updated_in_place(full_host):
    records = [record(f"h{n}") for n in range(40)]
    full_host.registry = document(*records)
    assert full_host.tamrix("--update", "--id", "h39", "--path", "/opt/ovt/new-cgi") == ok()
    records[39] = record("h39", path="/opt/ovt/new-cgi", version="9.1")
    assert full_host.registry == document(*records)


def test_a_failing_dirty_flag_does_not_undo_the_update(full_host):
    full_host.tool("depotctl", 1, "locked\n")
    assert full_host.tamrix(*UPDATE, "--displayname", "n") == failed(
        "Failed to set depotctl dirty flag : locked\n\n")
    assert full_host.registry == after(displayname="n")
