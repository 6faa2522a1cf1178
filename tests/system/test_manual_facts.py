"""What the manual says outside of its displays, held to the program, to its usage text and to what is installed."""

import re
import shutil
import string

import pytest

import manual
from manual import PAGES, ROOT
from private_host import HOOK_LOG, PACKAGES, REGISTRY, ok
from registry_text import document, record

DOCUMENTS = [
    ROOT / "README.md", ROOT / "docs/reliability.md", *manual.FOLDER.iterdir(), *(ROOT / "docs/schema").iterdir()]


def in_documents(pattern):
    """The first group of every place where the pattern is found."""
    return [found for path in DOCUMENTS for found in re.findall(pattern, path.read_text(encoding="utf-8"))]


def test_the_synopsis_brackets_what_the_usage_brackets(host):
    usage = host.tamrix("--help").err
    needed = {command: set(re.findall(r"(?<!\[)(--[a-z]+)=", words))
              for command, words in re.findall(r"^\t(--\S+)(.*)", usage, re.MULTILINE)}
    assert needed["--add"] == {"--path", "--phpini", "--type"}
    assert manual.needed_options() == needed


def test_the_short_word_for_help_is_in_the_manual():
    assert manual.synopsis()["--help"] == {"-h"}
    assert re.search(r"^\.Ss --help\n.*\n\.Fl h\n", PAGES["tamrix.8"], re.MULTILINE)


@pytest.mark.parametrize("page", ["tamrix.8", "php_configurator.d.5"])
def test_the_variables_of_hooks_are_those_of_the_usage(host, page):
    usage = re.findall(r"^\t\t\$(PHP_\w+) - ", host.tamrix("--help").err, re.MULTILINE)
    assert len(usage) == 6
    assert sorted(re.findall(r"^\.It Ev (PHP_\w+)$", PAGES[page], re.MULTILINE)) == sorted(usage)


def test_every_path_of_the_manual_is_installed_or_written():
    listed = (ROOT / "tests/packaging/contents").read_text(encoding="utf-8")
    known = {REGISTRY, HOOK_LOG, f"{PACKAGES}/*.conf", *re.findall(r"^[-dl][-rwx]{9} (/\S+)", listed, re.MULTILINE)}
    known |= {f"/usr/share/doc/tamrix/{path.relative_to(ROOT / 'docs')}" for path in ROOT.glob("docs/examples/*")}
    told = {path.rstrip("/") for page in PAGES.values()
            for path in re.findall(r"^\.(?:It )?Pa (/\S+)", page, re.MULTILINE)}
    assert len(told) > 12
    assert told - known == set()


def test_the_exit_statuses_of_the_manual():
    section = re.search(r"^\.Sh EXIT STATUS\n((?:(?!\.S[hs] ).*\n)*)", PAGES["tamrix.8"], re.MULTILINE)[1]
    assert re.findall(r"^\.It (.*)", section, re.MULTILINE) == ["0", "1", "2"]


def test_the_exit_code_of_a_killed_hook(host):
    told = in_documents(r"exit code is (\S+) when a\s+signal ended")
    host.registry = document(record("a"))
    host.hook("10-hook", "kill -9 $$")
    assert host.tamrix("--update", "--id", "a") == ok()
    (logged,) = re.findall("^Exit code: (.*)$", host.hook_log, re.MULTILINE)
    assert set(told) == {logged}


def test_the_longest_value_is_as_long_as_every_document_says(host):
    told = in_documents(r"(?:At most|more than|longer than) ([\d,]+) bytes")
    (longest,) = {int(number.replace(",", "")) for number in told}
    host.registry = document(record("a", path="x" * longest), record("b", path="x" * (longest + 1)))
    assert re.findall('"path":(.*),', host.tamrix("--list-json").out) == [f'"{"x" * longest}"', "null"]


def test_the_bytes_that_get_a_backslash_are_those_of_the_manual(host):
    host.registry = document(record("a"))
    name = (string.punctuation + " \t").replace("/", "")
    host.hook(name)
    assert host.tamrix("--update", "--id", "a") == ok()
    shown = re.search(r"Start: /etc/ovt/php_configurator\.d/(.*) update\n", host.hook_log)[1]
    line = re.search(r"^\.Dl (.*)$", PAGES["php_configurator.d.5"], re.MULTILINE)
    told = manual.plain(line[1]).split()
    assert re.sub(r"\\(.)", r"\1", shown) == name
    assert sorted(re.findall(r"\\(.)", shown)) == sorted([*told, " ", "\t"])


def test_the_zones_of_the_log_are_those_below_tzdir(host):
    host.registry = document(record("a"))
    host.hook("10-hook", "date +%z")
    shutil.copytree("/usr/share/zoneinfo/Etc", host.path("/opt/ovt/zones/Mine"))
    where = {"TZDIR": "/opt/ovt/zones", "TZ": "Mine/GMT-9"}
    before = host.run("/bin/date", "+%F %H", env={"TZ": "XXX-9"}).out.strip()
    assert host.tamrix("--update", "--id", "a", env=where) == ok()
    after = host.run("/bin/date", "+%F %H", env={"TZ": "XXX-9"}).out.strip()
    assert host.read(HOOK_LOG)[1:14] in (before, after)
    assert "\nstdout: +0900\n" in host.hook_log
