"""Registry files that no run of ours wrote: what is read from them, and the whole report where they are refused. The
documents are those of tests/registry/documents."""

import pytest

from commands import COMMANDS, furnish
from documents import SMALLEST_FIELDS, documents, report
from private_host import REGISTRY, UNPRIVILEGED, failed, ok
from registry_text import EMPTY_TABLE, document, record

MEMBERS = '"id":"a","path":"p","version":"1","displayname":"d","phpini":"i","type":"cgi"'
LISTED = document(record("a", path="p", version="1", displayname="d", phpini="i"))
CONFLICT = "[Warning] conflicting handler with id `a' found. Ignoring\n"
# Lists every document of the folder, with what is printed beside it.
LIST_EACH = ('for file in /opt/ovt/documents/*; do cp "$file" /etc/ovt/php_versions.json\n'
             '"$@" >"$file.out" 2>"$file.err"; echo $? >"$file.status"; done')
STORED = str.maketrans({"\\": "\\\\", '"': '\\"', "\b": "\\b", "\f": "\\f", "\n": "\\n", "\r": "\\r", "\t": "\\t"})


def listed(one):
    """The listing of an accepted document."""
    records = []
    for fields in one.records:
        values = {**SMALLEST_FIELDS, **fields, "system": fields.get("system") == "true"}
        values["displayname"] = values["displayname"].replace("$version", values["version"]).split("\0")[0]
        records.append(record(**{name: value if value is True or value is False else value.translate(STORED)
                                 for name, value in values.items()}))
    return document(*records)


@pytest.mark.parametrize("file", ["syntax.txt", "handlers.txt"])
def test_every_document(host, file):
    all_of_them = documents(file)
    assert len(all_of_them) > 40
    for one in all_of_them:
        host.write(f"/opt/ovt/documents/{one.name}", one.text.encode("latin-1"))
    assert host.shell(LIST_EACH, "--list-json") == ok()
    for one in all_of_them:
        status, out, err = (host.path(f"/opt/ovt/documents/{one.name}.{end}").read_bytes().decode("latin-1")
                            for end in ("status", "out", "err"))
        refusal = report(one.verdicts[0])
        assert err == "".join(one.warnings) + refusal, one.name
        assert (status, out) == (("1\n", "") if refusal else ("0\n", listed(one))), one.name


@pytest.mark.parametrize("word", COMMANDS)
def test_a_broken_file_fails_every_command_and_stays(host, word):
    furnish(host)
    host.registry = "{}"
    assert host.tamrix(*COMMANDS[word].words) == failed(report("14 at 1 '}'"))
    assert host.registry == "{}"
    # What --add probes before the load.
    assert host.calls == ([call for call in COMMANDS[word].calls if call.endswith("-v")][:1] if word == "--add" else [])
    assert host.hook_log is None


def test_an_empty_or_missing_file_or_a_folder_is_an_empty_registry(host):
    assert host.tamrix("--list") == ok(EMPTY_TABLE)
    assert host.registry is None
    host.registry = ""
    assert host.tamrix("--list") == ok(EMPTY_TABLE)
    host.remove(REGISTRY)
    host.path(REGISTRY).mkdir()
    assert host.tamrix("--list") == ok(EMPTY_TABLE)


def test_an_unreadable_file_is_an_empty_registry(host):
    host.registry = document(record("a"))
    host.path(REGISTRY).chmod(0)
    assert host.shell(UNPRIVILEGED, "--list") == ok(EMPTY_TABLE)


def test_each_duplicate_is_warned_of_and_the_first_wins(host):
    host.registry = document(record("a", version="1"), record("a", version="2"), record("b", version="3"), record("a"))
    assert host.tamrix("--list-json") == ok(
        document(record("a", version="1", displayname="1"), record("b", version="3", displayname="3")), CONFLICT * 2)


@pytest.mark.parametrize("opening,closing", [("[", "]"), ('{"a":', "}")])
def test_a_dropped_value_of_a_million_levels_is_skipped(host, opening, closing):
    depth = 1000000
    host.registry = '{"a":' + opening * depth + "1" + closing * depth + ',"php":[{' + MEMBERS + "}]}"
    assert host.tamrix("--list-json") == ok(LISTED)


def test_a_million_open_brackets_are_refused_without_a_crash(host):
    host.registry = '{"a":' + "[" * 1000000
    assert host.tamrix("--list-json") == failed(report("2 at 1000005 '\\x00'"))
