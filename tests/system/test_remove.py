"""--remove: what it takes away, what the hooks are told, and what it refuses."""

import pytest

from commands import COMMANDS, DIRTY, HOOK
from private_host import REGISTRY, failed, ok
from registry_text import CLI, EMPTY, document, record

FIRST = record("first", path="/1", version="1.1", phpini="/i1", type="fastcgi")
SECOND = record("second", path="/2", clipath=CLI, version="2.2", phpini="/i2", type="module")
THIRD = record("third", path="/3", version="3.3", phpini="/i3", type="fpm", service="s3", poold="p3")
THREE = document(FIRST, SECOND, THIRD)
SYSTEM = document(FIRST, record("packaged", system=True))
ABSENT = "[Warning] Handler with id `{}' does not exist\n"
RUN = f"{HOOK} remove"


@pytest.fixture
def full_host(host):
    host.registry = THREE
    host.hook("10-hook", 'echo "$PHP_ID $PHP_PATH $PHP_CLI $PHP_INI $PHP_VERSION $PHP_TYPE" >>/opt/ovt/calls\n'
                         f"cp {REGISTRY} /opt/ovt/seen")
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
    assert full_host.tamrix("--remove", *words) == COMMANDS["--remove"].option_error(message)
    unchanged(full_host)


# A file of another layout stays byte for byte, a missing one missing.
@pytest.mark.parametrize("registry", [THREE, ' {"php" : [ ] } trailing', None], ids=["", "other layout", "no file"])
@pytest.mark.parametrize("id", ["absent", "FIRST", "first ", ""])
def test_an_absent_id_is_only_a_warning(full_host, registry, id):
    if registry is None:
        full_host.remove(REGISTRY)
    else:
        full_host.registry = registry
    assert full_host.tamrix("--remove", "--id", id) == ok(err=ABSENT.format(id))
    unchanged(full_host, registry)


def test_a_system_handler_is_refused_in_two_lines(full_host):
    full_host.registry = SYSTEM
    assert full_host.tamrix("--remove", "--id", "packaged") == failed(
        "Handler with id = `packaged' is provided by some package.\n"
        "Please deinstall it or edit appropriate config in /etc/ovt/php_versions.d\n")
    unchanged(full_host, SYSTEM)


# The hooks get the handler that followed the removed one, and the removed one itself when it was the last. Nothing is
# probed.
@pytest.mark.parametrize("before,words,left,told,flag", [
    (THREE, ["first"], document(SECOND, THIRD), f"second /2 {CLI} /i2 2.2 module", [DIRTY]),
    (THREE, ["second"], document(FIRST, THIRD), "third /3  /i3 3.3 fpm", [DIRTY]),
    (THREE, ["third"], document(FIRST, SECOND), "third /3  /i3 3.3 fpm", [DIRTY]),
    # A built-in id whose flag is clear is an id like any other.
    (document(record("cgi"), FIRST), ["cgi"], document(FIRST), "first /1  /i1 1.1 fastcgi", [DIRTY]),
    (document(FIRST), ["first"], EMPTY, "first /1  /i1 1.1 fastcgi", [DIRTY]),
    (THREE, ["third", "--no-set-dirty-flag"], document(FIRST, SECOND), "third /3  /i3 3.3 fpm", []),
    (THREE, ["second", "--help", "stray"], document(FIRST, THIRD), "third /3  /i3 3.3 fpm", [DIRTY])])
def test_what_is_left_and_what_the_hooks_are_told(full_host, before, words, left, told, flag):
    full_host.registry = before
    assert full_host.tamrix("--remove", "--id", *words) == ok()
    assert full_host.registry == full_host.read("/opt/ovt/seen") == left
    assert full_host.calls == [RUN, told, *flag]
