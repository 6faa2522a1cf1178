"""The JSON Schemas describe what is really printed, written and accepted."""

import json

import jsonschema
import pytest

from documents import documents
from manual import ROOT
from private_host import ok
from registry_text import document, record


def schema(name):
    loaded = json.loads((ROOT / f"docs/schema/{name}.schema.json").read_text(encoding="utf-8"))
    jsonschema.Draft202012Validator.check_schema(loaded)
    return jsonschema.Draft202012Validator(loaded)


LISTING, REGISTRY = schema("list-json"), schema("registry")


def listing(host):
    result = host.tamrix("--list-json")
    assert (result.status, result.err) == (0, "")
    return json.loads(result.out)


FULL = document(
    record("m", type="module"), record("c", displayname="PHP%20%24version", system=True),
    record("f", type="fastcgi", clipath="/opt/ovt/php/php"),
    record("p", type="fpm", service="s", poold="/p", version=""))


def test_the_listing_is_as_described(host):
    LISTING.validate(listing(host))
    for text in ("", document(), FULL):
        host.registry = text
        LISTING.validate(listing(host))


def test_what_commands_write_and_print_is_as_described(host):
    host.php("/opt/ovt/php")
    for type, more in (("cgi", []), ("fastcgi", ["--clipath=/opt/ovt/php"]), ("fpm", ["--service=s", "--poold=/p"])):
        done = host.tamrix("--add", "--id", type, "--path=/opt/ovt/php", "--phpini", "", "--type", type,
                           '--displayname=caf\u00e9 "$version"\\\t', *more)
        assert done == ok(f"{type}\n")
        REGISTRY.validate(json.loads(host.registry))
        LISTING.validate(listing(host))
    assert [handler["displayname"] for handler in listing(host)["php"]] == ['caf\u00e9 "8.1.2"\\\t'] * 3


def test_a_long_value_is_null_in_the_listing_and_refused_in_the_file(host):
    host.registry = document(record("a", path="/" + "p" * 4087))
    printed = listing(host)
    assert printed["php"][0]["path"] is None
    LISTING.validate(printed)
    host.registry = json.dumps(printed)
    assert host.tamrix("--list-json").status == 1
    assert not REGISTRY.is_valid(printed)


MEMBERS = ["id", "path", "clipath", "phpini", "version", "displayname", "type", "system"]
# The record's place in FULL, a member, and what is put there; ... takes the member away.
WRONG = [
    *((3, member, ...) for member in MEMBERS + ["service", "poold"]),
    (1, "type", "FPM"), (1, "type", None), (1, "system", "false"), (1, "system", None), (1, "id", 1), (1, "path", []),
    (1, "clipath", 1), (1, "phpini", {}), (1, "version", 8.2), (1, "displayname", True), (1, "service", "s"),
    (1, "poold", ""), (3, "service", 1), (3, "poold", [])]


def changed(place, member, value):
    whole = json.loads(FULL)
    if value is ...:
        del whole["php"][place][member]
    else:
        whole["php"][place][member] = value
    return whole


@pytest.mark.parametrize("place, member, value", WRONG, ids=str)
def test_a_listing_with_a_wrong_member_or_without_one_is_not_as_described(place, member, value):
    LISTING.validate(json.loads(FULL))
    assert not LISTING.is_valid(changed(place, member, value))


@pytest.mark.parametrize("whole", [
    [], {}, "php", None, {"php": {}}, {"php": None}, {"php": [[]]}, {"php": ["x"]}], ids=str)
def test_a_document_of_another_shape_is_refused_and_not_as_described(host, whole):
    assert not LISTING.is_valid(whole)
    assert not REGISTRY.is_valid(whole)
    host.registry = json.dumps(whole)
    assert host.tamrix("--list-json").status == 1


def test_new_members_are_as_described():
    whole = json.loads(FULL)
    whole["php"][1]["since"] = 1
    whole["note"] = []
    LISTING.validate(whole)
    REGISTRY.validate(whole)


@pytest.mark.parametrize("member", ["clipath", "system", "service", "poold"])
def test_the_file_without_an_optional_member_is_accepted_and_as_described(host, member):
    whole = changed(3, member, ...)
    REGISTRY.validate(whole)
    host.registry = json.dumps(whole)
    LISTING.validate(listing(host))


@pytest.mark.parametrize("place", range(4))
def test_the_file_is_accepted_exactly_when_it_is_as_described(host, place):
    for member in MEMBERS + ["service", "poold"]:
        for value in (None, 1, True, "x", "cgi", [], {}, *([...] if member in json.loads(FULL)["php"][place] else [])):
            whole = changed(place, member, value)
            host.registry = json.dumps(whole)
            assert (host.tamrix("--list-json").status == 0) == REGISTRY.is_valid(whole), (member, value)


# Accepted through the reader's leniency, which no schema can tell: a NUL ends a member's name, and the type of a
# record that is skipped is not looked at.
LENIENT = {"name_ends_at_unicode_nul", "duplicate_with_bad_type_is_only_warned_about"}


def accepted_cases():
    """The accepted documents that stricter parsers can read."""
    for case in (*documents("handlers.txt"), *documents("syntax.txt")):
        if case.verdicts == ["accepted"]:
            try:
                yield pytest.param(case.name, json.loads(case.text.encode("latin-1")), id=case.name)
            except ValueError:
                pass


@pytest.mark.parametrize("name, whole", accepted_cases())
def test_an_accepted_document_is_as_described(name, whole):
    assert REGISTRY.is_valid(whole) == (name not in LENIENT)
