"""state: absent."""

from conftest import NAMES
from registry_text import document, record


def test_a_handler_is_removed_and_a_second_run_changes_nothing(fleet):
    for name in NAMES:
        fleet[name].registry = document(record("a"), record("b"))
    run = fleet.task(id="a", state="absent")
    assert (run.status, run.changed()) == (0, dict.fromkeys(NAMES, [True]))
    assert fleet.registries() == dict.fromkeys(NAMES, document(record("b")))
    for name in NAMES:
        assert run.result(name)["handler"] is None
        assert fleet.words(name) == ["--list-json|", "--remove|--id=a|", "--list-json|"]
    again = fleet.task(id="a", state="absent")
    assert (again.status, again.changed()) == (0, dict.fromkeys(NAMES, [False]))
    assert fleet.registries() == dict.fromkeys(NAMES, document(record("b")))
    for name in NAMES:
        assert fleet.words(name) == ["--list-json|"]


def test_only_the_hosts_that_have_it_change(fleet):
    fleet["two"].registry = document(record("a"), record("b"))
    fleet["three"].registry = document(record("b"))
    run = fleet.task(id="a", state="absent")
    assert run.changed() == {"one": [False], "two": [True], "three": [False]}
    assert fleet.registries() == {"one": None, "two": document(record("b")), "three": document(record("b"))}
