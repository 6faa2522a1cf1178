"""php_handler_info and php_reread on one host."""

import pytest

from conftest import RECORDER
from registry_text import CGI, CLI, INI, document, package, record

FILE = "/etc/ovt/php_versions.d/one.conf"
LIST, REREAD = "--list-json|", "--reread|"
LISTED = {"id": "a", "path": CGI, "clipath": "", "phpini": INI, "version": "8.1.2", "displayname": "8.1.2",
          "type": "cgi", "system": False}


@pytest.mark.parametrize("check", [False, True], ids=["run", "check"])
def test_info_lists_by_identifier_and_type(host, check):
    host.registry = document(record("b"), record("a", type="fpm", service="s", poold="/p"), record("c", system=True))
    result = host.module("php_handler_info", check=check)
    fpm = {**LISTED, "type": "fpm", "service": "s", "poold": "/p"}
    handlers = [{**LISTED, "id": "b"}, fpm, {**LISTED, "id": "c", "system": True}]
    assert result["handlers"] == handlers
    assert result["by_id"] == {"b": handlers[0], "a": fpm, "c": handlers[2]}
    assert result["by_type"] == {"module": [], "cgi": ["b", "c"], "fastcgi": [], "fpm": ["a"]}
    assert (result["changed"], host.words, host.calls) == (False, [LIST], [])


def test_info_fails_with_the_words_of_the_program(host):
    host.registry = "x"
    result = host.module("php_handler_info")
    assert result["failed"] and result["msg"].startswith("Error reading /etc/ovt/php_versions.json: ")


def test_a_reread_tells_what_came_went_and_changed(host):
    host.registry = document(record("gone", path="/opt/ovt/php/none"), record("old", version="7.4.1"), record("same"),
                             record("left", system=True))
    host.write(FILE, package(id="new"))
    result = host.module("php_reread", diff=True)
    assert [result[key] for key in ("changed", "added", "removed", "updated")] == [
        True, ["new"], ["gone", "left"], ["old"]]
    new = {**LISTED, "id": "new", "displayname": "name", "system": True}
    assert result["diff"] == {
        "before_header": "handlers", "after_header": "handlers",
        "before": {"gone": {**LISTED, "id": "gone", "path": "/opt/ovt/php/none"},
                   "left": {**LISTED, "id": "left", "system": True},
                   "old": {**LISTED, "id": "old", "version": "7.4.1", "displayname": "7.4.1"}},
        "after": {"new": new, "old": {**LISTED, "id": "old"}}}
    assert [handler["id"] for handler in result["handlers"]] == ["old", "same", "new"]
    assert result["warnings"] == [
        "[Warning] removing handler `8.1.2' (gone) as corresponding /opt/ovt/php/none doesn't exist"]
    assert host.words == [LIST, REREAD, LIST]
    assert host.calls[-1] == "/opt/ovt/admin/sbin/depotctl --set-dirty-flag"
    again = host.module("php_reread", set_dirty_flag=False)
    assert (again["changed"], "diff" in again) == (False, False)
    assert host.words == [LIST, "--reread|--no-set-dirty-flag|", LIST]


def test_another_order_is_no_change(host):
    host.registry = document(record("new", displayname="name", system=True), record("a"))
    host.write(FILE, package(id="new"))
    assert host.module("php_reread")["changed"] is False
    assert host.registry == document(record("a"), record("new", displayname="name", system=True))


def test_check_mode_says_what_it_cannot_know(host):
    host.registry = document(record("a"))
    host.write(FILE, package(id="new"))
    result = host.module("php_reread", check=True)
    assert (result["changed"], result["warnings"]) == (
        False, ["check mode starts no interpreter: which handlers a reread would bring, drop or change is not known"])
    assert (host.words, host.calls, host.registry) == ([LIST], [], document(record("a")))


FPM = {"name": "PHP $version", "type": "fpm", "clipath": CLI, "service": "s", "poold": "/p", "id": "f"}
SERVICE = {"displayname": "PHP%20%24version", "clipath": CLI, "type": "fpm", "system": True, "service": "s"}
TAKEN_UP = [record("b", displayname="name", system=True), record("f", **SERVICE, poold="/p"),
            record("f-dedicated", **SERVICE)]


@pytest.mark.parametrize("files, records, stale", [
    ({}, [record("a")], False),
    ({}, [record("s", system=True)], True),
    ({"one.conf": package()}, [record("a")], True),
    ({"one.conf": package()}, [record("a", displayname="name")], True),
    ({"one.conf": package(), "f.conf": package(**FPM)}, TAKEN_UP, False),
    ({"one.conf": "; a=b\n\n " + package().replace("=", " = ") + "[x]\ntype=fpm\n", "f.conf": package(**FPM)},
     [record("a"), *TAKEN_UP], False),
    ({"one.conf": package(), "f.conf": package(**{**FPM, "poold": "/q"})}, TAKEN_UP, True),
    ({"one.conf": package(), "f.conf": package(**{**FPM, "service": "t"})}, TAKEN_UP, True),
    ({"one.conf": package(), "f.conf": package(**{**FPM, "id": "g"})}, TAKEN_UP, True),
    ({"one.conf": package(name="other"), "f.conf": package(**FPM)}, TAKEN_UP, True),
    ({"one.conf": package(clipath="/c"), "f.conf": package(**FPM)}, TAKEN_UP, True),
    ({"one.conf": package(), "f.conf": package(**FPM), "faulty.conf": "x", "folder.conf/x": ""}, TAKEN_UP, True),
    ({"one.conf": package(), "f.conf": package(**FPM), "README": "x", "folder.conf/x": ""}, TAKEN_UP, False),
])
def test_only_stale_rereads_when_the_files_describe_other_handlers(host, files, records, stale):
    host.registry = document(*records)
    for name, text in files.items():
        host.write(f"/etc/ovt/php_versions.d/{name}", text)
    told = host.module("php_reread", only_stale=True, check=True)
    assert ("warnings" in told, host.words) == (stale, [LIST])
    host.module("php_reread", only_stale=True)
    assert (REREAD in host.words, bool(host.calls)) == (stale, stale)


def test_a_failure_after_the_reread_is_a_change_and_says_what_to_run(host):
    host.write(FILE, package(id="new"))
    host.tool("depotctl", status=3, err="no disk")
    result = host.module("php_reread")
    assert (result["failed"], result["changed"], result["msg"]) == (
        True, True, "Failed to set depotctl dirty flag : no disk\n"
        f"The registry is changed all the same; mend the cause, then run: {RECORDER} --reread")
