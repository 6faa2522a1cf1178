"""Check mode tells and does nothing; diff mode shows the handler before and after."""

from conftest import NAMES
from registry_text import CGI, INI, document, record

NEW = {"id": "a", "displayname": "PHP $version", "path": CGI, "phpini": INI, "type": "cgi"}
STORED = record("a", displayname="PHP%20%24version")
LISTED = {"id": "a", "path": CGI, "clipath": "", "phpini": INI, "version": "8.1.2", "displayname": "PHP 8.1.2",
          "type": "cgi", "system": False}


def seed(fleet, *records):
    for name in NAMES:
        fleet[name].registry = document(*records)


def predicted(fleet, *flags, **arguments):
    """Runs in check mode, which must change nothing; returns whether a change is told, and the results."""
    before = fleet.registries()
    run = fleet.task("--check", *flags, **arguments)
    assert run.status == 0, run.text
    assert fleet.registries() == before
    for name in NAMES:
        assert (fleet.words(name), fleet[name].calls) == (["--list-json|"], [])
    return run.changed(), run.result("one")


def test_check_mode_tells_an_addition(fleet):
    changed, result = predicted(fleet, **NEW)
    assert changed == dict.fromkeys(NAMES, [True])
    assert result["handler"] == {**LISTED, "version": None, "displayname": None}
    assert fleet.registries() == dict.fromkeys(NAMES)


def test_check_mode_tells_an_update_only_where_there_is_one(fleet):
    seed(fleet, STORED)
    fleet["two"].registry = document(STORED.replace('"type":"cgi"', '"type":"fastcgi"'))
    changed, result = predicted(fleet, **{**NEW, "type": "fastcgi"})
    assert changed == {"one": [True], "two": [False], "three": [True]}
    assert result["handler"] == {**LISTED, "type": "fastcgi"}


def test_check_mode_tells_a_removal(fleet):
    seed(fleet, STORED)
    fleet["three"].registry = document()
    changed, result = predicted(fleet, id="a", state="absent")
    assert changed == {"one": [True], "two": [True], "three": [False]}
    assert result["handler"] is None


def test_check_mode_does_not_guess_a_version(fleet):
    seed(fleet, STORED)
    _, result = predicted(fleet, id="a", path="/opt/ovt/php/other")
    assert result["handler"] == {**LISTED, "path": "/opt/ovt/php/other", "version": None, "displayname": None}
    _, result = predicted(fleet, id="a", path="/opt/ovt/php/other", displayname="plain")
    assert result["handler"] == {**LISTED, "path": "/opt/ovt/php/other", "version": None, "displayname": "plain"}


def test_what_check_mode_tells_is_what_a_run_does(fleet):
    fleet["one"].registry = document(record("a", displayname="old"))
    fpm = {"id": "a", "displayname": "$version $version", "type": "fpm", "service": "s", "poold": "/p"}
    fleet["two"].registry = fleet["three"].registry = fleet["one"].registry
    _, result = predicted(fleet, "--diff", **fpm)
    assert result["handler"]["displayname"] == "8.1.2 8.1.2"
    real = fleet.task("--diff", **fpm).result("one")
    assert (result["handler"], result["diff"]) == (real["handler"], real["diff"])
    for name in NAMES:
        fleet.words(name)
        fleet[name].forget_calls()
    _, result = predicted(fleet, id="a", type="cgi")
    assert result["handler"] == fleet.task(id="a", type="cgi").result("one")["handler"]


def test_diff_shows_before_and_after(fleet):
    seed(fleet, STORED)
    run = fleet.task("--diff", id="a", displayname="mine")
    for name in NAMES:
        assert run.result(name)["diff"] == {"before_header": "a", "after_header": "a", "before": LISTED,
                                            "after": {**LISTED, "displayname": "mine"}}
    assert run.text.count('\n-    "displayname": "PHP 8.1.2",\n+    "displayname": "mine",\n') == 3


def test_diff_of_an_addition_begins_with_nothing_and_of_a_removal_ends_so(fleet):
    run = fleet.task("--diff", **NEW)
    assert (run.result("one")["diff"]["before"], run.result("one")["diff"]["after"]) == ({}, LISTED)
    run = fleet.task("--diff", id="a", state="absent")
    assert (run.result("one")["diff"]["before"], run.result("one")["diff"]["after"]) == (LISTED, {})


def test_without_diff_mode_there_is_no_diff(fleet):
    assert "diff" not in fleet.task(**NEW).result("one")
