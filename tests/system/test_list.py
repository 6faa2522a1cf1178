"""--list and --list-json."""

import json

import pytest

from private_host import ok
from registry_text import EMPTY, EMPTY_TABLE, document, record

FPM = record(
    "fpm81", path="/usr/bin/php-cgi8.1", clipath="/usr/bin/php8.1", version="8.1.2",
    displayname="PHP%20%24version%20%28%24version%29", type="fpm", system=True, service="php8.1-fpm",
    poold="/etc/php/8.1/fpm/pool.d", phpini="/etc/php.ini")
PLAIN = record("a", path="/p", phpini="/i", displayname="x", version="5", type="module")


@pytest.mark.parametrize("word,shown", [("--list", EMPTY_TABLE), ("--list-json", EMPTY)])
@pytest.mark.parametrize("more", [[], ["--bogus"], ["--help"], ["--id", "x"], ["a", "b", ""]])
def test_an_empty_registry_is_a_header_or_an_empty_array_whatever_the_arguments(host, word, more, shown):
    assert host.tamrix(word, *more) == ok(shown)


def test_the_table_aligns_right_and_ends_classic_rows_in_blanks(host):
    host.registry = document(PLAIN, FPM)
    assert host.tamrix("--list") == ok(
        "  id:      display name:  version:   type:             cgi-bin:         cli-bin:      php.ini:"
        "  system:    service:                  pool.d:\n"
        "    a                  x         5  module                   /p" + " " * 29 + "/i" + " " * 46 + "\n"
        "fpm81  PHP 8.1.2 (8.1.2)     8.1.2     fpm  /usr/bin/php-cgi8.1  /usr/bin/php8.1  /etc/php.ini"
        "        *  php8.1-fpm  /etc/php/8.1/fpm/pool.d\n")


def test_json_shows_the_expanded_name_and_the_file_keeps_the_escaped_one(host):
    host.hook("10-hook")
    host.registry = document(PLAIN, FPM)
    assert host.tamrix("--list-json") == ok(
        '{"php":[\n{\n\t"id":"a",\n\t"path":"/p",\n\t"clipath":"",\n\t"phpini":"/i",\n\t"version":"5",\n'
        '\t"displayname":"x",\n\t"type":"module",\n\t"system":false\n},\n{\n\t"id":"fpm81",\n'
        '\t"path":"/usr/bin/php-cgi8.1",\n\t"clipath":"/usr/bin/php8.1",\n\t"phpini":"/etc/php.ini",\n'
        '\t"version":"8.1.2",\n\t"displayname":"PHP 8.1.2 (8.1.2)",\n\t"type":"fpm",\n\t"system":true,\n'
        '\t"service":"php8.1-fpm",\n\t"poold":"/etc/php/8.1/fpm/pool.d"\n}\n]}\n')
    assert host.registry == document(PLAIN, FPM)
    assert host.hook_log is None


def test_classic_handlers_have_no_service_in_json_but_in_the_table(host):
    host.registry = (
        '{"php":[{"id":"c","path":"p","version":"1","displayname":"d","phpini":"i","type":"cgi",'
        '"service":"longservice","poold":"pool.d/x"}]}')
    assert host.tamrix("--list-json") == ok(
        document(record("c", path="p", phpini="i", version="1", displayname="d")))
    assert host.tamrix("--list") == ok(
        "id:  display name:  version:  type:  cgi-bin:  cli-bin:  php.ini:  system:     service:   pool.d:\n"
        "  c              d         1    cgi         p                   i           longservice  pool.d/x\n")


def test_an_fpm_handler_shows_empty_service_and_pool_members(host):
    host.registry = document(record("f", type="fpm"))
    out = host.tamrix("--list-json").out
    assert out.endswith('\t"system":false,\n\t"service":"",\n\t"poold":""\n}\n]}\n')


def test_tab_and_quote_are_escaped_in_json_and_raw_in_the_table(host):
    host.registry = document(record("q", path='/a\\tb\\"c', phpini="", version='1\\t\\"', displayname="n"))
    assert host.tamrix("--list") == ok(
        "id:  display name:  version:  type:  cgi-bin:  cli-bin:  php.ini:  system:  service:  pool.d:\n"
        '  q              n       1\t"    cgi    /a\tb"c' + " " * 48 + "\n")
    assert '\t"version":"1\\t\\"",\n' in host.tamrix("--list-json").out


def test_widths_count_bytes_and_percent_signs_are_data(host):
    host.registry = document(record("%1%\u00e4", path="/%", phpini="/%s", displayname="%25d%20%C3%A4"))
    assert host.tamrix("--list") == ok(
        "  id:  display name:  version:  type:  cgi-bin:  cli-bin:  php.ini:  system:  service:  pool.d:\n"
        "%1%\u00e4          %d \u00e4     8.1.2    cgi        /%                 /%s                            \n")


def test_a_too_long_value_is_listed_as_null(host):
    host.registry = document(record("L", path="x" * 4087), record("M", path="x" * 4088))
    out = host.tamrix("--list-json").out
    assert '\t"id":"L",\n\t"path":"' + "x" * 4087 + '",\n' in out
    assert '\t"id":"M",\n\t"path":null,\n' in out


@pytest.mark.parametrize("count", [3, 17, 18, 19, 36, 37, 300])
def test_all_handlers_are_listed_in_the_registry_s_order(host, count):
    ids = [f"id{n * 7 % count}-{n}" for n in range(count)]
    host.registry = document(*map(record, ids))
    assert [handler["id"] for handler in json.loads(host.tamrix("--list-json").out)["php"]] == ids
    assert [row.split()[0] for row in host.tamrix("--list").out.splitlines()[1:]] == ids
