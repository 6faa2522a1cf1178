"""Registry files that are read although no run of ours wrote them."""

import pytest

from private_host import ok
from registry_text import EMPTY, document, record

MEMBERS = '"id":"a","path":"p","version":"1","displayname":"d","phpini":"i","type":"cgi"'
LISTED = document(record("a", path="p", version="1", displayname="d", phpini="i"))
ACCEPTED = {
    "any order of members": '{"php":[{"type":"cgi","phpini":"i","displayname":"d","version":"1","path":"p","id":"a"}]}',
    "white space everywhere":
        ' \t\r\n\v\f{ "php" : [ { ' + MEMBERS.replace(",", "\v,\f").replace(":", "\r:\n") + " } ] } ",
    "anything behind the closing brace": '{"php":[{' + MEMBERS + "}]} garbage \udcff {",
    "unknown members of every kind": '{"a":"\\u0000x","b":-0.5e+3,"c":{"d":[1,"",{},[]]},"e":[],"f":true,"g":false,'
        '"h":null,"i":{},"j":007,"k":1E5,"php":[{"x":[{"php":1}],' + MEMBERS + ',"y":null,"z":"\udcff"}],"l":1}',
    "php inside a dropped object": '{"a":{"php":1},"php":[{' + MEMBERS + "}]}",
    "a second php member": '{"php":[{' + MEMBERS.replace('"a"', '"b"') + '}],"php":[{' + MEMBERS + "}]}",
    "a later member value": '{"php":[{"id":"z","system":true,' + MEMBERS + ',"system":false}]}',
    "escaped member names": '{"\\u0000":1,"ph\\u0000p":2,"php":[{"\\u0000":1,' + MEMBERS + "}]}",
    "a string that ends at u0000": '{"php":[{' + MEMBERS.replace('"a"', '"a\\u0000bc\\n"') + "}]}",
    "optional members": '{"php":[{' + MEMBERS + ',"clipath":"","system":false,"service":"s","poold":"q"}]}',
    "a NUL byte behind the document": '{"php":[{' + MEMBERS + "}]}\0{",
}


@pytest.mark.parametrize("name", ACCEPTED)
def test_the_reader_accepts(host, name):
    host.registry = ACCEPTED[name]
    assert host.tamrix("--list-json") == ok(LISTED)


@pytest.mark.parametrize("text", ['{"php":[]}', '{"php":[{' + MEMBERS + '}],"php":[]}', '{"php":[ ] , "x":1}'])
def test_an_empty_array_is_an_empty_registry(host, text):
    host.registry = text
    assert host.tamrix("--list-json") == ok(EMPTY)


def test_every_escape_is_decoded(host):
    host.registry = '{"php":[{' + MEMBERS.replace('"p"', '"\\"\\\\\\/\\b\\f\\n\\r\\t"') + "}]}"
    assert host.tamrix("--list-json") == ok(
        document(record("a", path='\\"\\\\/\\b\\f\\n\\r\\t', version="1", displayname="d", phpini="i")))


def test_an_empty_id_is_accepted(host):
    host.registry = document(record(""))
    assert host.tamrix("--list-json") == ok(document(record("", displayname="8.1.2")))


@pytest.mark.parametrize(
    "stored,shown",
    [("a%zz%", "a%zz%"), ("1+1", "1+1"), ("%41%c3%A4", "A\u00e4"), ("x%00y", "x"), ("plain name", "plain name")])
def test_the_display_name_is_percent_decoded(host, stored, shown):
    host.registry = document(record("a", displayname=stored))
    assert host.tamrix("--list-json") == ok(document(record("a", displayname=shown)))


@pytest.mark.parametrize("opening,closing", [("[", "]"), ('{"a":', "}")])
def test_a_dropped_value_of_a_million_levels_is_skipped(host, opening, closing):
    depth = 1000000
    host.registry = '{"a":' + opening * depth + "1" + closing * depth + ',"php":[{' + MEMBERS + "}]}"
    assert host.tamrix("--list-json") == ok(LISTED)


def test_a_million_open_brackets_are_refused_without_a_crash(host):
    host.registry = '{"a":' + "[" * 1000000
    result = host.tamrix("--list-json")
    assert result.status == 1
    assert result.err.endswith("Error occured at offset 1000005, character '\\x00'. \n")


@pytest.mark.parametrize("count", [17, 18, 19, 36, 37, 300])
def test_the_array_of_handlers_grows(host, count):
    host.registry = document(*(record(f"h{n}") for n in range(count)))
    assert host.tamrix("--list-json").out.count('\t"id":') == count
