"""Registry files that are refused: the whole report for each way of being wrong."""

import pytest

from private_host import UNPRIVILEGED, failed, ok
from registry_text import CGI, EMPTY_TABLE, INI, document, record

HANDLER = '{"id":"a","path":"p","version":"1","displayname":"d","phpini":"i","type":"cgi"}'
MESSAGES = {
    2: "JSON document has ended prematurely. Check that all strings are properly ended.",
    3: "Any value is expected, but was not found.",
    6: "Invalid or unsupported number format. Check that there are no floating point numbers.",
    7: "String is expected.",
    8: "Invalid escape sequence found in string.",
    9: "Invalid character found in string. Check that strings do not contain control characters.",
    10: "Invalid or unsupported Unicode character or escape sequence found in string. UTF8 encoded characters"
        " and '\\u' escape sequences are not supported.",
    11: "JSON object is expected.",
    12: "JSON name separator (':') is expected inside an object.",
    13: "JSON value separator (',') or end of object is expected.",
    14: "Some required fields are missing from the JSON object. Check that input JSON document conforms to"
        " schema.",
    15: "JSON array is expected.",
    16: "JSON value separator (',') or end of array is expected.",
    17: "Boolean value is expected.",
    18: "'null' is expected.",
}
# The text before the byte where the reader stops, the text from there on, the code and the byte as shown.
REFUSED = {
    "white space only": (" \n", "", 11, "\\x00"),
    "no object": ("", "[]", 11, "["),
    "a byte order mark": ("", "\ufeff{}", 11, "\\xef"),
    "an empty object": ("{", "}", 14, "}"),
    "no php member": ('{"a":1', "}", 14, "}"),
    "an empty handler": ('{"php":[{', "}]}", 14, "}"),
    "a handler without type": ('{"php":[' + HANDLER[:-14], "}]}", 14, "}"),
    "php is an object": ('{"php":', "{}}", 15, "{"),
    "php is missing at the end": ('{"php":', "", 15, "\\x00"),
    "php is null": ('{"php":', "null}", 15, "n"),
    "a handler is a number": ('{"php":[', "1]}", 11, "1"),
    "the array ends after a comma": ('{"php":[' + HANDLER + ",", "]}", 11, "]"),
    "the text ends in the array": ('{"php":[', "", 11, "\\x00"),
    "no comma between handlers": ('{"php":[' + HANDLER + " ", "{", 16, "{"),
    "the text ends after a handler": ('{"php":[' + HANDLER, "", 16, "\\x00"),
    "no comma between members": ('{"php":[] ', '"a":1}', 13, '"'),
    "the text ends after the array": ('{"php":[]', "", 13, "\\x00"),
    "a name without quotes": ("{", "php:[]}", 7, "p"),
    "a comma before the closing brace": ('{"php":[],', "}", 7, "}"),
    "the text ends where a name is due": ("{", "", 7, "\\x00"),
    "no colon": ('{"php"', "[]}", 12, "["),
    "the text ends after a name": ('{"php"', "", 12, "\\x00"),
    "a number for a string": ('{"php":[{"id":', "1}]}", 7, "1"),
    "null for a string": ('{"php":[{"clipath":', "null}]}", 7, "n"),
    "a string for the flag": ('{"php":[{"system":', '"true"}]}', 17, '"'),
    "a number for the flag": ('{"php":[{"system":', "1}]}", 17, "1"),
    "a cut flag": ('{"php":[{"system":', "tru}]}", 17, "t"),
    "an unknown escape": ('{"a":"x\\', 'x"}', 8, "x"),
    "an unknown escape in a name": ('{"\\', 'v":1}', 8, "v"),
    "a control byte in a string": ('{"php":[{"id":"a', '\x01"}]}', 9, "\\x01"),
    "a newline in a string": ('{"php":[{"id":"a', '\n"}]}', 9, "\\x0a"),
    "an escape beyond u0000": ('{"php":[{"id":"\\', 'u0041"}]}', 10, "u"),
    "an escape beyond u0000 in a dropped string": ('{"a":"\\', 'u00e4"}', 10, "u"),
    "the text ends in a string": ('{"php":[{"id":"abc', "", 2, "\\x00"),
    "the text ends after a backslash": ('{"php":[{"id":"abc\\', "", 2, "\\x00"),
    "the text ends in a name": ('{"ph', "", 2, "\\x00"),
    "the text ends where a value is due": ('{"a":', "", 2, "\\x00"),
    "a raw NUL ends the text": ('{"php":[{"id":"abc', '\0"}]}', 2, "\\x00"),
    "no value": ('{"a":', "@}", 3, "@"),
    "no value before the brace": ('{"a":', "}", 3, "}"),
    "a comma before the closing bracket": ('{"a":[1,', "]}", 3, "]"),
    "a high byte for a value": ('{"a":', "\udcff}", 3, "\\xff"),
    "a point without digit": ('{"a":1.', "x}", 6, "x"),
    "an exponent without digit": ('{"a":1e', "}", 6, "}"),
    "a signed exponent without digit": ('{"a":1.5E+', ",", 6, ","),
    "a minus without digit": ('{"a":-', "a}", 6, "a"),
    "a dropped wrong word": ('{"a":', "trux}", 17, "t"),
    "a dropped wrong word with f": ('{"a":', "falsy}", 17, "f"),
    "a dropped wrong null": ('{"a":', "nul}", 18, "n"),
    "no comma in a dropped array": ('{"a":[1 ', "2]}", 16, "2"),
    "no comma in a dropped object": ('{"a":{"b":1 ', "2}}", 13, "2"),
    "no colon in a dropped object": ('{"a":{"b"', "}}", 12, "}"),
    "a dropped name without quotes": ('{"a":{', "b:1}}", 7, "b"),
    "an error in a second php member": ('{"php":[' + HANDLER + '],"php":', "1}", 15, "1"),
    "a member given again in another handler counts for itself": (
        '{"php":[' + HANDLER + ',{"id":"b"', "}]}", 14, "}"),
}


def report(before, code, shown):
    offset = len(before.encode("utf-8", "surrogateescape"))
    return (
        "Error reading /etc/ovt/php_versions.json: can not parse php_versions_info object : "
        f"{MESSAGES[code]} Error occured at offset {offset}, character '{shown}'. \n")


@pytest.mark.parametrize("name", REFUSED)
def test_the_file_is_refused_when_there_is(host, name):
    before, rest, code, shown = REFUSED[name]
    host.registry = before + rest
    assert host.tamrix("--list") == failed(report(before, code, shown))
    assert host.registry == before + rest


@pytest.mark.parametrize(
    "words",
    [
        ["--list"], ["--list-json"], ["--remove", "--id", "a"], ["--update", "--id", "a"], ["--reread"],
        ["--add", "--path", CGI, "--phpini", INI, "--type", "cgi"],
    ], ids=lambda words: words[0])
def test_a_broken_file_fails_every_command_and_stays(host, words):
    host.php(CGI)
    host.hook("10-hook")
    host.registry = "{}"
    assert host.tamrix(*words) == failed(
        "Error reading /etc/ovt/php_versions.json: can not parse php_versions_info object : Some required fields"
        " are missing from the JSON object. Check that input JSON document conforms to schema. Error occured at"
        " offset 1, character '}'. \n")
    assert host.registry == "{}"
    assert host.calls == ([f"{CGI} -n -v"] if words[0] == "--add" else [])
    assert host.hook_log is None


def test_an_unknown_type_fails_the_load(host):
    host.registry = document(record("a", type="FPM"))
    assert host.tamrix("--list") == failed(
        "Error reading /etc/ovt/php_versions.json: Unknown php handler type : FPM\n")


def test_a_syntax_error_at_the_end_beats_a_bad_type_and_a_duplicate(host):
    good = document(record("a"), record("a"), record("b", type="FPM"))
    host.registry = good[:-3]
    assert host.tamrix("--list") == failed(report(good[:-3], 16, "\\x00"))


def test_a_duplicate_id_is_warned_of_and_the_first_wins(host):
    host.registry = document(record("a", version="1"), record("a", version="2"), record("b", version="3"))
    result = host.tamrix("--list-json")
    assert result.status == 0
    assert result.err == "[Warning] conflicting handler with id `a' found. Ignoring\n"
    assert result.out == document(
        record("a", version="1", displayname="1"), record("b", version="3", displayname="3"))


def test_a_duplicate_with_an_unknown_type_is_only_warned_of(host):
    host.registry = document(record("a"), record("a", type="FPM"))
    result = host.tamrix("--list-json")
    assert (result.status, result.err) == (
        0, "[Warning] conflicting handler with id `a' found. Ignoring\n")


def test_each_further_duplicate_is_warned_of(host):
    host.registry = document(record("a"), record("a"), record("b"), record("a"))
    assert host.tamrix("--list").err == "[Warning] conflicting handler with id `a' found. Ignoring\n" * 2


def test_an_empty_file_is_an_empty_registry(host):
    host.registry = ""
    assert host.tamrix("--list") == ok(EMPTY_TABLE)


def test_a_missing_file_is_an_empty_registry(host):
    assert host.registry is None
    assert host.tamrix("--list") == ok(EMPTY_TABLE)
    assert host.registry is None


def test_a_directory_in_its_place_is_an_empty_registry(host):
    host.path("/etc/ovt/php_versions.json").mkdir()
    assert host.tamrix("--list") == ok(EMPTY_TABLE)


def test_an_unreadable_file_is_an_empty_registry(host):
    host.registry = document(record("a"))
    host.path("/etc/ovt/php_versions.json").chmod(0)
    assert host.shell(UNPRIVILEGED, "--list") == ok(EMPTY_TABLE)
