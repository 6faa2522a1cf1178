"""What is refused, by the program or before it is called, and how a failing host leaves the others alone."""

import shutil

import pytest

from conftest import NAMES, WRAPPER
from private_host import TAMRIX
from registry_text import CGI, INI, document, record

NEW = {"id": "a", "path": CGI, "phpini": INI, "type": "cgi"}
REFUSED_UPDATE = "Cannot modify system handler with id=`s': edit corresponding config file instead."
REFUSED_REMOVAL = ("Handler with id = `s' is provided by some package.\n"
                   "Please deinstall it or edit appropriate config in /etc/ovt/php_versions.d")
SYSTEM = document(record("s", system=True))


def on_all(value):
    return dict.fromkeys(NAMES, value)


def seed(fleet, text):
    for name in NAMES:
        fleet[name].registry = text


def fails_everywhere(fleet, *flags, **arguments):
    """Every host's task fails and nothing is changed; returns the results."""
    before = fleet.registries()
    run = fleet.task(*flags, **arguments)
    assert (run.status, run.outcomes()) == (2, on_all(["failed"]))
    assert fleet.registries() == before
    return [run.result(name) for name in NAMES]


@pytest.mark.parametrize("arguments, text", [({"type": "fastcgi"}, REFUSED_UPDATE),
                                             ({"state": "absent"}, REFUSED_REMOVAL)])
def test_a_system_handler_is_refused_with_the_words_of_the_program(fleet, arguments, text):
    seed(fleet, SYSTEM)
    for result in fails_everywhere(fleet, id="s", **arguments):
        assert text in result["msg"]
        assert (result["rc"], result["stderr"].strip(), result["stdout"]) == (1, result["msg"], "")
    for result in fails_everywhere(fleet, "--check", id="s", **arguments):
        assert result["msg"] == "handler s is a system handler and would be refused"


def test_a_system_handler_that_is_as_wanted_is_left_alone(fleet):
    seed(fleet, SYSTEM)
    assert fleet.task(id="s", type="cgi").changed() == on_all([False])


def test_a_missing_interpreter_is_refused_with_the_words_of_the_program(fleet):
    for result in fails_everywhere(fleet, **{**NEW, "path": "/opt/ovt/php/none"}):
        assert "/opt/ovt/php/none" in result["msg"]
        assert result["rc"] == 1


@pytest.mark.parametrize("check", [[], ["--check"]])
@pytest.mark.parametrize("arguments, missing", [
    ({}, "path, phpini, type"), ({"path": CGI, "type": "cgi"}, "phpini"),
    ({**NEW, "type": "fpm"}, "service, poold")])
def test_a_new_handler_needs_its_values(fleet, check, arguments, missing):
    for result in fails_everywhere(fleet, *check, **{"id": "a", **arguments}):
        assert result["msg"] == f"handler a is not registered; to add it, give {missing}"
    assert [fleet.words(name) for name in NAMES] == [["--list-json|"]] * 3


@pytest.mark.parametrize("check", [[], ["--check"]])
@pytest.mark.parametrize("registry", [None, document(record("a"))])
def test_a_service_belongs_to_fpm(fleet, check, registry):
    if registry:
        seed(fleet, registry)
    for result in fails_everywhere(fleet, *check, **NEW, service="x", poold="/p"):
        assert result["msg"] == "handler a: only type fpm has service and poold"
    assert [fleet.words(name) for name in NAMES] == [["--list-json|"]] * 3


def test_a_failing_host_does_not_stop_the_others(fleet):
    fleet["two"].registry = "x"
    run = fleet.task(**NEW)
    assert (run.status, run.outcomes()) == (2, {"one": ["ok"], "two": ["failed"], "three": ["ok"]})
    assert run.result("two")["msg"].startswith("Error reading /etc/ovt/php_versions.json: ")
    assert fleet.registries() == {"one": document(record("a")), "two": "x", "three": document(record("a"))}


def test_a_host_that_cannot_be_reached_does_not_stop_the_others(fleet):
    shutil.rmtree(fleet["two"].folder)
    run = fleet.task(**NEW)
    assert (run.status, run.outcomes()) == (4, {"one": ["ok"], "two": ["unreachable"], "three": ["ok"]})
    assert [fleet[name].registry for name in ("one", "three")] == [document(record("a"))] * 2


def test_a_host_without_the_program_fails(fleet):
    fleet["three"].remove(WRAPPER)
    run = fleet.task(**NEW)
    assert run.outcomes() == {"one": ["ok"], "two": ["ok"], "three": ["failed"]}
    assert WRAPPER in run.result("three")["msg"]


@pytest.mark.parametrize("arguments, said", [
    (NEW, "handler a is not listed"),
    ({"id": "b", "displayname": "new"}, "handler b is listed with another displayname"),
    ({"id": "b", "state": "absent"}, "handler b is still listed")])
def test_a_change_that_did_not_last_is_a_failure(fleet, arguments, said):
    seed(fleet, document(record("b")))
    for name in NAMES:
        fleet[name].write(WRAPPER, f'#!/bin/sh\ncase $1 in --list-json) exec {TAMRIX} "$@" ;; esac\n', 0o755)
    for result in fails_everywhere(fleet, **arguments):
        assert result["msg"] == f"the program reported success, but {said}; see the system log of the host"


@pytest.mark.parametrize("listing", ["", "[]", '{"php":[{}]}', "{"])
def test_a_listing_that_is_not_understood_is_a_failure(fleet, listing):
    for name in NAMES:
        fleet[name].write(WRAPPER, f"#!/bin/sh\nprintf %s '{listing}'\n", 0o755)
    for result in fails_everywhere(fleet, **NEW):
        assert result["msg"].startswith("--list-json is not understood: ")


def test_a_program_that_fails_without_a_word_is_a_failure(fleet):
    for name in NAMES:
        fleet[name].write(WRAPPER, "#!/bin/sh\nexit 3\n", 0o755)
    for result in fails_everywhere(fleet, **NEW):
        assert (result["msg"], result["rc"]) == ("--list-json ended with status 3", 3)
