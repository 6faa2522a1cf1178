"""state: present. What is called, what the registry holds, what the task says."""

import pytest

from conftest import NAMES
from registry_text import CGI, CLI, INI, document, record

LIST = "--list-json|"
NEW = {"id": "a", "displayname": "PHP $version", "path": CGI, "clipath": CLI, "phpini": INI, "type": "cgi"}
STORED = record("a", displayname="PHP%20%24version", clipath=CLI)
LISTED = {"id": "a", "path": CGI, "clipath": CLI, "phpini": INI, "version": "8.1.2", "displayname": "PHP 8.1.2",
          "type": "cgi", "system": False}
DIRTY = "/opt/ovt/admin/sbin/depotctl --set-dirty-flag"


def on_all(value):
    return dict.fromkeys(NAMES, value)


def seed(fleet, *records):
    for name in NAMES:
        fleet[name].registry = document(*records)


def test_a_handler_is_created_on_all_hosts_and_a_second_run_changes_nothing(fleet):
    run = fleet.task(**NEW)
    assert (run.status, run.changed()) == (0, on_all([True]))
    assert fleet.registries() == on_all(document(STORED))
    for name in NAMES:
        assert run.result(name)["handler"] == LISTED
        assert fleet[name].calls[-1] == DIRTY
        assert fleet.words(name) == [
            LIST, f"--add|--id=a|--displayname=PHP $version|--path={CGI}|--clipath={CLI}|--phpini={INI}|--type=cgi|",
            LIST]
        fleet[name].forget_calls()
    again = fleet.task(**NEW)
    assert (again.status, again.changed()) == (0, on_all([False]))
    assert fleet.registries() == on_all(document(STORED))
    for name in NAMES:
        assert again.result(name)["handler"] == LISTED
        assert (fleet.words(name), fleet[name].calls) == ([LIST], [])


def test_a_changed_field_updates_only_that(fleet):
    seed(fleet, record("z"), STORED)
    run = fleet.task(**{**NEW, "type": "fastcgi"})
    assert run.changed() == on_all([True])
    assert fleet.registries() == on_all(document(record("z"), STORED.replace('"type":"cgi"', '"type":"fastcgi"')))
    for name in NAMES:
        assert fleet.words(name) == [LIST, "--update|--id=a|--type=fastcgi|", LIST]
        assert fleet[name].calls == [DIRTY]


def test_what_is_not_given_is_left_alone(fleet):
    seed(fleet, STORED)
    assert fleet.task(id="a", phpini=INI).changed() == on_all([False])
    assert fleet.registries() == on_all(document(STORED))


def test_hosts_with_different_registries_stay_independent(fleet):
    other = record("b", displayname="mine")
    fleet["one"].registry = document(other)
    fleet["two"].registry = document(STORED.replace('"type":"cgi"', '"type":"fastcgi"'), other)
    fleet["three"].registry = document(STORED)
    run = fleet.task(**NEW)
    assert run.changed() == {"one": [True], "two": [True], "three": [False]}
    assert fleet.registries() == {"one": document(other, STORED), "two": document(STORED, other),
                                  "three": document(STORED)}
    assert [words.split("|")[0] for name in NAMES for words in fleet.words(name)] == [
        "--list-json", "--add", "--list-json", "--list-json", "--update", "--list-json", "--list-json"]


def test_the_dirty_flag_is_left_alone_when_asked(fleet):
    seed(fleet, STORED)
    assert fleet.task(id="a", type="fastcgi", set_dirty_flag=False).changed() == on_all([True])
    assert [fleet[name].calls for name in NAMES] == [[], [], []]


@pytest.mark.parametrize("value", ["-x", "--id=b", "a=b", " ", "~ $HOME", "Grüße \"'\\ 100%"])
def test_odd_names_arrive_as_they_are_and_settle(fleet, value):
    seed(fleet, STORED)
    run = fleet.task(id="a", displayname=value, task_environment={"version": "wrong"})
    assert run.changed() == on_all([True])
    assert run.result("one")["handler"]["displayname"] == value
    assert fleet.task(id="a", displayname=value).changed() == on_all([False])


def test_the_placeholder_is_never_filled_from_the_environment(fleet):
    assert fleet.task(**NEW, task_environment={"version": "wrong"}).changed() == on_all([True])
    assert fleet.registries() == on_all(document(STORED))


def test_empty_values_are_given(fleet):
    seed(fleet, STORED)
    assert fleet.task(id="a", displayname="", clipath="").changed() == on_all([True])
    assert fleet.registries() == on_all(document(record("a", displayname="", clipath="")))
    assert fleet.task(id="a", displayname="", clipath="").changed() == on_all([False])


def test_a_new_handler_with_an_empty_clipath_has_none(fleet):
    assert fleet.task(**{**NEW, "clipath": ""}).changed() == on_all([True])
    assert fleet.registries() == on_all(document(record("a", displayname="PHP%20%24version")))


def test_a_plain_name_that_happens_to_fit_is_mended_once_the_version_changes(fleet):
    plain = record("a", displayname="PHP%208.1.2", clipath=CLI)
    seed(fleet, plain)
    assert fleet.task(id="a", displayname="PHP $version").changed() == on_all([False])
    assert fleet.registries() == on_all(document(plain))
    seed(fleet, plain.replace('"8.1.2"', '"8.1.3"'))
    assert fleet.task(id="a", displayname="PHP $version").changed() == on_all([True])
    assert fleet.registries() == on_all(document(STORED.replace('"8.1.2"', '"8.1.3"')))


@pytest.mark.parametrize("wanted", ["PHP $version", "PHP 8.1.2"])
def test_one_run_settles_name_and_path_together(fleet, wanted):
    newer = "/opt/ovt/php/php-cgi8.3"
    for name in NAMES:
        fleet[name].php(newer, "PHP 8.3.1 (cgi-fcgi)\n")
    stored = "PHP%208.1.2" if "$" in wanted else "PHP%20%24version"
    seed(fleet, record("a", displayname=stored))
    arguments = {"id": "a", "displayname": wanted, "path": newer}
    run = fleet.task(**arguments)
    assert run.changed() == on_all([True])
    assert run.result("one")["handler"]["displayname"] == wanted.replace("$version", "8.3.1")
    assert fleet.task(**arguments).changed() == on_all([False])


def test_a_handler_becomes_an_fpm_one_and_back(fleet):
    seed(fleet, STORED)
    fpm = {"id": "a", "type": "fpm", "service": "php-fpm", "poold": "/pool"}
    assert fleet.task(**fpm).changed() == on_all([True])
    assert fleet.registries() == on_all(document(
        record("a", displayname="PHP%20%24version", clipath=CLI, type="fpm", service="php-fpm", poold="/pool")))
    assert fleet.task(**fpm).changed() == on_all([False])
    assert fleet.task(id="a", type="cgi").changed() == on_all([True])
    assert fleet.registries() == on_all(document(STORED))


def test_warnings_of_the_program_are_warnings_of_the_task(fleet):
    for name in NAMES:
        fleet[name].php(CLI, "PHP 8.0.30 (cli)\n")
    run = fleet.task(**NEW)
    assert (run.status, run.changed()) == (0, on_all([True]))
    assert [len(run.result(name)["warnings"]) for name in NAMES] == [1, 1, 1]
    assert "8.0.30" in run.result("one")["warnings"][0]
