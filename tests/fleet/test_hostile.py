"""Odd values, odd registries and others who change them at the same time."""

import fcntl
import os
import subprocess
import threading
import time

import pytest

from conftest import NAMES, WRAPPER
from private_host import TAMRIX
from registry_text import CGI, INI, document, record

NEW = {"path": CGI, "phpini": INI, "type": "cgi"}
LIST = "--list-json|"


def on_all(value):
    return dict.fromkeys(NAMES, value)


def seed(fleet, text):
    for name in NAMES:
        fleet[name].registry = text


ODD = ["a'b\"c\\", "$(touch /opt/ovt/x)", "`touch /opt/ovt/x`;&|<>*?[a]{b,c}", "-", "--", "--id=b", "=", " ", " a ",
       "a\nb", "a\tb\r", "{{ lookup('env', 'HOME') }}", "%s %1$s",
       "Gr\u00fc\u00dfe \u2713", "$version", "~", "#", "@x", "\u00a0"]


def each(run, key):
    """That part of every item's result, on a host where all are the same."""
    assert run.status == 0, run.text
    assert run.result("one")["results"] == run.result("two")["results"] == run.result("three")["results"]
    return [result[key] for result in run.result("one")["results"]]


def test_odd_identifiers_are_added_found_changed_and_removed(fleet):
    every = [True] * len(ODD)
    added = fleet.task(loop=ODD, id="{{ item }}", **NEW)
    assert each(added, "changed") == every
    assert [handler["id"] for handler in each(added, "handler")] == ODD
    assert each(fleet.task(loop=ODD, id="{{ item }}", **NEW), "changed") == [False] * len(ODD)
    assert each(fleet.task(loop=ODD, id="{{ item }}", displayname="new"), "changed") == every
    assert each(fleet.task(loop=ODD, id="{{ item }}", state="absent"), "changed") == every
    assert fleet.registries() == on_all(document())
    assert not fleet["one"].exists("/opt/ovt/x")


@pytest.mark.parametrize("check", [False, True], ids=["run", "check"])
@pytest.mark.parametrize("field, value, why", [
    ("id", "a\x01b", "holds a control character"), ("service", "\x00", "holds a NUL"),
    ("displayname", " " * 1363, "is too long")], ids=["control", "nul", "long"])
def test_what_would_make_the_registry_unreadable_is_refused(fleet, check, field, value, why):
    refused(fleet, ["--check"] if check else [], field, value, why)


@pytest.mark.parametrize("field, value, why", [
    ("path", "/x\x7f\x1f", "holds a control character"), ("displayname", "a\x00", "holds a NUL"),
    ("poold", "/" * 4088, "is too long"), ("id", '"' * 2044, "is too long"),
    ("phpini", "\u00fc" * 2044, "is too long")], ids=["path", "displayname", "poold", "id", "phpini"])
def test_so_is_any_value(fleet, field, value, why):
    refused(fleet, [], field, value, why)


def refused(fleet, flags, field, value, why):
    seed(fleet, document(record("a", type="fpm", service="s", poold="/p")))
    before = fleet.registries()
    run = fleet.task(*flags, **{"id": "a", field: value})
    assert (run.status, run.outcomes()) == (2, on_all(["failed"]))
    assert fleet.registries() == before
    for name in NAMES:
        assert run.result(name)["msg"] == f"{field} {why}, and the handler could not be read again"
        assert fleet.words(name) == []


@pytest.mark.parametrize("field, value", [
    ("displayname", "\x01\x1f\n"), ("id", "\b\f"), ("poold", "/" * 4087), ("id", '"' * 2043),
    ("displayname", " " * 1362), ("service", "\x7f")],
    ids=["displayname", "id", "long-poold", "long-id", "long-displayname", "service"])
def test_what_the_registry_can_hold_is_not_refused(fleet, field, value):
    new = {**NEW, "id": "a", "type": "fpm", "service": "s", "poold": "/p", field: value}
    run = fleet.task(**new)
    assert (run.status, run.changed()) == (0, on_all([True])), run.text
    assert run.result("one")["handler"][field] == value
    assert fleet.task(**new).changed() == on_all([False])


def test_an_empty_identifier_is_refused_with_the_words_of_the_program(fleet):
    run = fleet.task(id="", **NEW)
    assert run.outcomes() == on_all(["failed"])
    assert "Undefined php handler id" in run.result("one")["msg"]
    assert fleet.task(id="", state="absent").changed() == on_all([False])


def test_bytes_that_are_no_text_are_passed_by(fleet):
    seed(fleet, document(record("a", path="/\udcff"), record("\udcfe")))
    before = fleet.registries()
    assert fleet.task(id="a", displayname="$version").changed() == on_all([False])
    assert fleet.task(id="b", state="absent").changed() == on_all([False])
    assert fleet.registries() == before
    assert fleet.task("--diff", id="a", type="fastcgi").changed() == on_all([True])
    assert fleet.registries() == on_all(document(record("a", path="/\udcff", type="fastcgi"), record("\udcfe")))


@pytest.mark.parametrize("state", ["present", "absent"])
@pytest.mark.parametrize("check", [[], ["--check"]])
def test_a_refused_registry_is_left_as_it_is(fleet, check, state):
    seed(fleet, document(record("a"))[:-5])
    before = fleet.registries()
    run = fleet.task(*check, id="a", state=state, **(NEW if state == "present" else {}))
    assert (run.status, run.outcomes(), fleet.registries()) == (2, on_all(["failed"]), before)
    assert run.result("one")["msg"].startswith("Error reading /etc/ovt/php_versions.json: ")


def test_check_mode_without_the_program_fails(fleet):
    for name in NAMES:
        fleet[name].remove(WRAPPER)
    run = fleet.task("--check", id="a", **NEW)
    assert run.outcomes() == on_all(["failed"])
    assert WRAPPER in run.result("one")["msg"]


def test_a_doubled_identifier_is_told_and_the_first_one_counts(fleet):
    seed(fleet, document(record("a"), record("a", type="fastcgi")))
    warning = "[Warning] conflicting handler with id `a' found. Ignoring"
    run = fleet.task(id="a", type="cgi")
    assert (run.changed(), run.result("one")["warnings"]) == (on_all([False]), [warning])
    # Told twice by the program: the change itself drops the second one.
    run = fleet.task(id="a", displayname="new")
    assert (run.changed(), run.result("one")["warnings"]) == (on_all([True]), [warning])
    assert fleet.registries() == on_all(document(record("a", displayname="new")))


def test_a_module_handler_keeps_its_type_and_may_lose_it(fleet):
    seed(fleet, document(record("a", type="module")))
    assert fleet.task(id="a", displayname="new").changed() == on_all([True])
    assert fleet.registries() == on_all(document(record("a", type="module", displayname="new")))
    assert fleet.task(id="a", type="cgi").changed() == on_all([True])


def test_a_handler_becomes_an_fpm_one_without_service_as_the_program_has_it(fleet):
    seed(fleet, document(record("a")))
    assert fleet.task(id="a", type="fpm").changed() == on_all([True])
    assert fleet.registries() == on_all(document(record("a", type="fpm")))


@pytest.mark.parametrize("check", [[], ["--check"]])
def test_the_lock_of_other_callers_is_waited_for(fleet, check):
    held = os.open(fleet["one"].path("/etc/ovt"), os.O_RDONLY)
    fcntl.flock(held, fcntl.LOCK_EX)
    runs = []
    thread = threading.Thread(target=lambda: runs.append(fleet.task(*check, id="a", **NEW)))
    thread.start()
    try:
        deadline = time.monotonic() + 120
        while not fleet["two"].exists("/opt/ovt/fleet/words") and time.monotonic() < deadline:
            time.sleep(0.1)
        time.sleep(2)
        assert fleet.words("one") == []
    finally:
        os.close(held)
        thread.join()
    assert runs[0].changed() == on_all([True])


def test_a_task_holds_the_lock_and_nothing_that_it_leaves_behind_does(fleet):
    probe = "flock --shared --nonblock /etc/ovt true && echo free || echo held"
    for name in NAMES:
        fleet[name].write(WRAPPER, f'#!/bin/sh\n({probe}) >>/opt/ovt/lock\nexec {TAMRIX} "$@"\n', 0o755)
    assert fleet.task(id="a", **NEW).changed() == on_all([True])
    assert fleet["one"].read("/opt/ovt/lock") == "held\n" * 3
    free = subprocess.run(["flock", "--nonblock", fleet["one"].path("/etc/ovt"), "true"])
    assert free.returncode == 0
