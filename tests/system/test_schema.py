"""The JSON Schemas describe what is really printed, written and accepted."""

import json
import random

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


@pytest.mark.parametrize("text", [None, "", document(), FULL], ids=["no-file", "empty-file", "empty", "all-types"])
def test_the_listing_is_as_described(host, text):
    if text is not None:
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


@pytest.mark.parametrize("member", MEMBERS + ["service", "poold"])
def test_the_listing_without_a_member_is_not_as_described(member):
    whole = json.loads(FULL)
    LISTING.validate(whole)
    fpm = whole["php"][3]
    del fpm[member]
    assert not LISTING.is_valid(whole)


@pytest.mark.parametrize("wrong", [
    {"type": "FPM"}, {"type": None}, {"system": "false"}, {"system": None}, {"id": 1}, {"path": []}, {"clipath": 1},
    {"phpini": {}}, {"version": 8.2}, {"displayname": True}, {"service": "s"}, {"poold": ""}], ids=str)
def test_a_wrong_member_is_not_as_described(wrong):
    whole = json.loads(FULL)
    whole["php"][1].update(wrong)
    assert not LISTING.is_valid(whole)


@pytest.mark.parametrize("wrong", [{"service": 1}, {"poold": []}], ids=str)
def test_a_wrong_member_of_fpm_is_not_as_described(wrong):
    whole = json.loads(FULL)
    whole["php"][3].update(wrong)
    assert not LISTING.is_valid(whole)


@pytest.mark.parametrize("whole", [[], {}, "php", None, {"php": {}}, {"php": None}, {"php": [[]]}, {"php": ["x"]}], ids=str)
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
    whole = json.loads(FULL)
    del whole["php"][3][member]
    REGISTRY.validate(whole)
    host.registry = json.dumps(whole)
    LISTING.validate(listing(host))


def mutations():
    """Registry files with one member missing or of another type."""
    values = [None, 1, True, "x", "cgi", [], {}]
    for member in MEMBERS + ["service", "poold"]:
        yield member, "missing", None
        for value in values:
            yield member, "set", value


@pytest.mark.parametrize("seed", range(8))
def test_the_file_is_accepted_exactly_when_it_is_as_described(host, seed):
    for member, how, value in list(mutations())[seed::8]:
        whole = json.loads(FULL)
        handler = whole["php"][random.Random(f"{seed}{member}{value}").randrange(4)]
        handler.pop(member, None)
        if how == "set":
            handler[member] = value
        host.registry = json.dumps(whole)
        assert (host.tamrix("--list-json").status == 0) == REGISTRY.is_valid(whole), (member, how, value)


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
