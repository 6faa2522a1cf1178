"""--remove."""

import pytest

from private_host import failed, ok
from registry_text import CLI, EMPTY, document, record

DESCRIPTION = (
    "Remove handler options:\n"
    "  --id arg              php handler identifier\n"
    "  --help                show help\n"
    "  --no-set-dirty-flag   do not call depotctl --set-dirty-flag\n"
)
FIRST = record("first", path="/1", version="1.1", phpini="/i1", type="fastcgi")
SECOND = record("second", path="/2", clipath=CLI, version="2.2", phpini="/i2", type="module")
THIRD = record("third", path="/3", version="3.3", phpini="/i3", type="fpm", service="s3", poold="p3")
SYSTEM = record("packaged", system=True)
THREE = document(FIRST, SECOND, THIRD)
HOOK = "/etc/ovt/php_configurator.d/10-hook remove"
DIRTY = "/opt/ovt/admin/sbin/depotctl --set-dirty-flag"


@pytest.fixture
def full_host(host):
    host.registry = THREE
    host.hook("10-hook", 'echo "$PHP_ID $PHP_PATH $PHP_CLI $PHP_INI $PHP_VERSION $PHP_TYPE" >>/opt/ovt/calls')
    return host


def unchanged(host, registry=THREE):
    assert host.registry == registry
    assert host.calls == []
    assert host.hook_log is None


@pytest.mark.parametrize("words,message", [
    ([], "the option '--id' is required but missing"),
    (["--help"], "the option '--id' is required but missing"),
    (["--no-set-dirty-flag"], "the option '--id' is required but missing"),
    (["--id"], "the required argument for option '--id' is missing"),
    (["--id="], "the argument for option '--id' should follow immediately after the equal sign"),
    (["--id", "a", "--id", "b"], "option '--id' cannot be specified more than once"),
    (["--id", "a", "--bogus"], "unrecognised option '--bogus'"),
    (["--id", "a", "--help=1"], "option '--help' does not take any arguments")])
def test_an_option_error_shows_the_options(full_host, words, message):
    assert full_host.tamrix("--remove", *words) == failed(f"[Error] {message}\n\n{DESCRIPTION}\n")
    unchanged(full_host)


@pytest.mark.parametrize("id", ["absent", "FIRST", "first ", ""])
def test_an_absent_id_is_only_a_warning(full_host, id):
    assert full_host.tamrix("--remove", "--id", id) == ok(
        err=f"[Warning] Handler with id `{id}' does not exist\n")
    unchanged(full_host)


def test_an_absent_id_does_not_create_the_file(host):
    assert host.tamrix("--remove", "--id", "x") == ok(err="[Warning] Handler with id `x' does not exist\n")
    unchanged(host, None)


def test_an_absent_id_leaves_a_file_of_another_layout_byte_for_byte(full_host):
    full_host.registry = ' {"php" : [ ] } trailing'
    full_host.tamrix("--remove", "--id", "x")
    unchanged(full_host, ' {"php" : [ ] } trailing')


def test_a_system_handler_is_refused_in_two_lines(full_host):
    full_host.registry = document(FIRST, SYSTEM)
    assert full_host.tamrix("--remove", "--id", "packaged") == failed(
        "Handler with id = `packaged' is provided by some package.\n"
        "Please deinstall it or edit appropriate config in /etc/ovt/php_versions.d\n")
    unchanged(full_host, document(FIRST, SYSTEM))


@pytest.mark.parametrize("id", ["module", "cgi", "fastcgi"])
def test_a_built_in_id_with_a_clear_flag_is_removed_like_any_other(full_host, id):
    full_host.registry = document(record(id), FIRST)
    assert full_host.tamrix("--remove", "--id", id) == ok()
    assert full_host.registry == document(FIRST)


def test_the_hooks_get_the_handler_that_followed_the_removed_one(full_host):
    assert full_host.tamrix("--remove", "--id", "first") == ok()
    assert full_host.registry == document(SECOND, THIRD)
    assert full_host.calls == [HOOK, f"second /2 {CLI} /i2 2.2 module", DIRTY]


def test_removing_the_middle_one_shows_the_third(full_host):
    assert full_host.tamrix("--remove", "--id", "second") == ok()
    assert full_host.registry == document(FIRST, THIRD)
    assert full_host.calls == [HOOK, "third /3  /i3 3.3 fpm", DIRTY]


def test_removing_the_last_one_shows_the_removed_one_itself(full_host):
    assert full_host.tamrix("--remove", "--id", "third") == ok()
    assert full_host.registry == document(FIRST, SECOND)
    assert full_host.calls == [HOOK, "third /3  /i3 3.3 fpm", DIRTY]


def test_removing_the_only_one_leaves_an_empty_registry(full_host):
    full_host.registry = document(FIRST)
    assert full_host.tamrix("--remove", "--id", "first") == ok()
    assert full_host.registry == EMPTY
    assert full_host.calls == [HOOK, "first /1  /i1 1.1 fastcgi", DIRTY]


def test_the_log_record_bears_the_action_and_the_follower(full_host):
    full_host.hook("10-hook")
    full_host.tamrix("--remove", "--id", "first")
    assert full_host.hook_log == (
        "[TIME] Start: /etc/ovt/php_configurator.d/10-hook remove\n"
        f"PHP_CLI = {CLI}\nPHP_ID = second\nPHP_INI = /i2\nPHP_PATH = /2\nPHP_TYPE = module\nPHP_VERSION = 2.2\n"
        "stdout: \nstderr: \nExit code: 0\n")


def test_the_switch_skips_only_the_dirty_flag(full_host):
    assert full_host.tamrix("--remove", "--no-set-dirty-flag", "--id", "third") == ok()
    assert full_host.registry == document(FIRST, SECOND)
    assert full_host.calls == [HOOK, "third /3  /i3 3.3 fpm"]


def test_help_with_an_id_does_not_stop_the_command(full_host):
    assert full_host.tamrix("--remove", "--help", "--id", "second", "stray") == ok()
    assert full_host.registry == document(FIRST, THIRD)


def test_no_binary_is_probed(full_host):
    full_host.tamrix("--remove", "--id", "second")
    assert [call for call in full_host.calls if "-n -v" in call] == []


def test_a_failing_dirty_flag_does_not_undo_the_removal(full_host):
    full_host.tool("depotctl", 1, "locked\n")
    assert full_host.tamrix("--remove", "--id", "second") == failed(
        "Failed to set depotctl dirty flag : locked\n\n")
    assert full_host.registry == document(FIRST, THIRD)


def test_without_the_hook_folder_the_removal_stays_and_the_flag_is_not_set(full_host):
    full_host.remove("/etc/ovt/php_configurator.d/10-hook")
    full_host.path("/etc/ovt/php_configurator.d").rmdir()
    result = full_host.tamrix("--remove", "--id", "second")
    assert result.status == 1
    assert result.err.startswith("Fatal error: std::filesystem::__cxx11::filesystem_error(")
    assert result.out == result.err
    assert full_host.registry == document(FIRST, THIRD)
    assert full_host.calls == []
