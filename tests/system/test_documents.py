"""Manual, README, docs and NEWS say what is so: every example in them is run or compared."""

import dataclasses
import datetime
import re
import shutil
import subprocess

import pytest

import debian_php
import manual
from manual import ROOT
from private_host import HOOK_LOG, HOOKS, PACKAGES, SCRIPT, failed, ok
from registry_text import document, package, record

EXAMPLES_INSTALLED = "/usr/share/doc/tamrix/examples"
EXAMPLES = "/opt/ovt/examples"
TOUR = ROOT / "tests/support/tour"
PAGES_WITH_DEBIANS_PHP = ["tamrix.8", "php_versions.d.5"]
PAGE_WITH_READERS = "php_versions.json.5"


@pytest.fixture
def panel(host):
    """A host with working sibling tools, the examples, and tamrix in the path."""
    for tool in SCRIPT.with_name("siblings").iterdir():
        shutil.copy(tool, host.path("/opt/ovt/admin/sbin"))
    shutil.copytree(ROOT / "docs/examples", host.path(EXAMPLES))
    return host


def console(host, command):
    """The result of a command line. The examples are not installed in the host, so the lines are run with the place
    that they have there."""
    command = command.replace(EXAMPLES_INSTALLED, EXAMPLES)
    path = "/opt/ovt/admin/sbin:/usr/sbin:/usr/bin:/sbin:/bin"
    result = host.run("/bin/sh", "-c", command, env={"PATH": path})
    return dataclasses.replace(result, out=debian_php.any_version(result.out))


def shown_result(printed):
    """What a display shows, as a result: a refusal or a warning is on standard error, all else on standard output."""
    if printed.endswith("\' already exists\n"):
        return failed(printed)
    if printed.startswith("[Warning] "):
        return ok(err=printed)
    return ok(debian_php.any_version(printed))


@pytest.mark.parametrize("page", manual.PAGES, ids=lambda page: page.name)
def test_a_page_passes_mandoc_without_a_word(page, tmp_path):
    # References are looked up in the working folder; the pages of other packages need not be installed.
    for name in [each.name for each in manual.PAGES] + ["flock.1", "jq.1", "logrotate.8"]:
        (tmp_path / name).touch()
    lint = subprocess.run(["mandoc", "-Tlint", page], capture_output=True, text=True, cwd=tmp_path)
    assert (lint.stdout, lint.returncode) == ("", 0)


@pytest.mark.parametrize("page", manual.PAGES, ids=lambda page: page.name)
def test_every_display_is_of_a_kind_that_is_tested(page):
    for display in manual.displays(page):
        assert display.label in ("console", "file", "registry", "log")


@pytest.mark.parametrize("page", manual.PAGES, ids=lambda page: page.name)
def test_displays_can_be_copied_from_the_screen(page):
    def words(text):
        return re.sub(r"\s+", " ", text)

    shown = subprocess.run(["mandoc", "-Tutf8", page], capture_output=True, text=True, check=True).stdout
    for display in manual.displays(page):
        # Some formatters turn these into typographic signs unless they are escaped.
        assert not re.search(r"['`~^]", display.source)
        assert words(display.text) in words(re.sub(".\b", "", shown))


def test_files_are_quoted_as_they_are():
    quoted = manual.displays_called("file")
    for display in quoted:
        assert display.text == (ROOT / display.argument).read_text(encoding="utf-8")
    # The jq example is short enough to be shown as a command.
    examples = {str(path.relative_to(ROOT)) for path in (ROOT / "docs/examples").rglob("*") if path.is_file()}
    assert examples - {display.argument for display in quoted} == {"docs/examples/readers/by-type.jq"}


def test_every_page_with_a_console_has_it_run():
    with_consoles = {display.page for display in manual.displays_called("console")}
    assert with_consoles == {*PAGES_WITH_DEBIANS_PHP, PAGE_WITH_READERS}


@debian_php.needed
@pytest.mark.parametrize("page", PAGES_WITH_DEBIANS_PHP)
def test_the_consoles_of_a_page_show_what_happens(panel, page):
    shown = [pair for display in manual.displays_called("console") if display.page == page
             for pair in manual.session(display.text)]
    assert len(shown) > 2
    for command, printed in shown:
        assert (command, console(panel, command)) == (command, shown_result(printed))


def test_the_readers_of_a_listing_show_what_happens(panel):
    (registry,) = manual.displays_called("registry")
    panel.registry = registry.text
    shown = [pair for display in manual.displays_called("console") if display.page == PAGE_WITH_READERS
             for pair in manual.session(display.text)]
    assert shown
    for command, printed in shown:
        assert console(panel, command) == shown_result(printed)


def registries():
    yield from (display.text for display in manual.displays_called("registry"))
    yield re.search(r"```json\n(.*?)```", (ROOT / "docs/registry-file.md").read_text(encoding="utf-8"), re.DOTALL)[1]


@pytest.mark.parametrize("text", registries(), ids=["manual", "docs"])
def test_a_shown_registry_is_read_and_written_the_same(host, text):
    host.registry = text
    id = re.search(r'"id":"([^"]*)"', text)[1]
    assert host.tamrix("--update", "--id", id) == ok()
    assert host.registry == text


def logs():
    yield from (display.text for display in manual.displays_called("log"))
    yield re.search(r"```\n(\[.*?)```", (ROOT / "docs/hooks.md").read_text(encoding="utf-8"), re.DOTALL)[1]


@pytest.mark.parametrize("text", logs(), ids=["manual", "docs"])
def test_a_shown_log_record_is_what_its_hook_leaves(host, text):
    fields = dict(re.findall(r"^(PHP_\w+) = (.*)$", text, re.MULTILINE))
    name = re.search(r"Start: /etc/ovt/php_configurator\.d/(\S+) add\n", text)[1]
    said = re.search(r"^stdout: (.*)$", text, re.MULTILINE)[1]
    host.hook(name, f"echo '{said}'")
    binaries = {"path": fields["PHP_PATH"], "clipath": fields["PHP_CLI"]}
    # The interpreters are the shown ones by name only, so that the shown version is told.
    for key, path in binaries.items():
        host.php(f"/opt/ovt{path}", f"PHP {fields['PHP_VERSION']} (cli)\n")
    words = [f"--{key}=/opt/ovt{path}" for key, path in binaries.items()]
    done = host.tamrix("--add", "--id", fields["PHP_ID"], "--phpini", fields["PHP_INI"], "--type", fields["PHP_TYPE"],
                       *words)
    assert done == ok(fields["PHP_ID"] + "\n")
    expected = re.sub(r"^\[.*?\]", "[TIME]", text)
    assert host.hook_log.replace(" /opt/ovt/usr", " /usr") == expected
    assert re.match(r"\[\d{4}-\d\d-\d\d \d\d-\d\d-\d\d\.\d{3}\]", host.read(HOOK_LOG))


@debian_php.needed
def test_the_package_file_of_the_docs_is_read(panel):
    text = (ROOT / "docs/package-files.md").read_text(encoding="utf-8")
    panel.write(f"{PACKAGES}/doc.conf", re.search(r"```ini\n(.*?)```", text, re.DOTALL)[1])
    assert panel.tamrix("--reread") == ok()
    assert re.findall(r'"(?:id|displayname)":"(.*)"', debian_php.any_version(panel.tamrix("--list-json").out)) == [
        "php82-fpm", "PHP 8.2.N (Debian)", "php82-fpm-dedicated", "PHP 8.2.N (Debian)"]


def test_the_messages_of_the_docs_are_printed(host):
    shown = re.findall(r"^    (Error .*)$", "\n".join(
        (ROOT / f"docs/{name}.md").read_text(encoding="utf-8") for name in ("package-files", "registry-file")),
        re.MULTILINE)
    host.php("/opt/ovt/php")
    host.registry = '{"php":[{"id":"php82-fpm","path":"/opt/ovt/php","version":"","displayname":"","phpini":"",' \
        '"type":"cgi"}]}'
    host.write(f"{PACKAGES}/x.conf", "displayname=x\npath=/x\nclipath=\n")
    host.write(f"{PACKAGES}/y.conf", package(id="php82-fpm"))
    printed = host.tamrix("--reread").err
    host.registry = "x"
    printed += host.tamrix("--list").err
    host.registry = document(record("a", type="CGI"))
    printed += host.tamrix("--list").err
    assert len(shown) == 4
    for line in shown:
        assert line + "\n" in printed


README = (ROOT / "README.md").read_text(encoding="utf-8")


def readme_block(begin):
    """The indented block that begins so, without its indentation; a line of blanks belongs to it."""
    block = re.search(rf"^    {re.escape(begin)}.*\n(?:(?:    .*)?\n)*", README, re.MULTILINE)[0]
    return re.sub("^    ", "", block, flags=re.MULTILINE).rstrip("\n") + "\n"


@debian_php.needed
def test_the_readme_shows_what_happens(panel):
    """A line that ends in dots shows its beginning, a line of dots alone ends what is shown."""
    shutil.copy(TOUR / "10-sample", panel.path(HOOKS))
    for file in TOUR.glob("*.conf"):
        shutil.copy(file, panel.path(PACKAGES))
    shown = re.findall(r"^    \$ \./run (.*)\n((?:    (?!\$).*\n)*)", README, re.MULTILINE)
    assert len(shown) == 6
    for command, expected in shown:
        done = console(panel, f"tamrix {command}")
        assert (done.status, done.err) == (0, "")
        printed = done.out.splitlines()
        expected = [line[4:] for line in debian_php.any_version(expected).splitlines()]
        if "..." in expected:
            expected = expected[: expected.index("...")]
            assert len(printed) > len(expected)
            printed = printed[: len(expected)]
        for line, wanted in zip(printed, expected, strict=True):
            if wanted.endswith("..."):
                assert line.startswith(wanted[:-3].rstrip())
            else:
                assert line == wanted
    begin, end = readme_block("[2").split("...\n")
    record = debian_php.any_version(panel.hook_log).split("[TIME]")[1]
    begin = debian_php.any_version(begin)
    assert record.startswith(begin[begin.index("]") + 1 :])
    assert record.endswith(debian_php.any_version(end))


def test_the_package_file_of_the_readme_is_that_of_the_tour():
    assert readme_block("displayname=") == (TOUR / "php82-fpm.conf").read_text(encoding="utf-8")


TEXTS = ["README.md", "ARCHITECTURE.md", "CONTRIBUTING.md", "docs/hooks.md", "docs/package-files.md",
         "docs/registry-file.md", "docs/reliability.md", "tests/registry/cases/README.md",
         "tests/registry/verdicts/README.md", "tests/coverage-gaps.md", "bench/README.md", "fuzz/README.md"]


def test_no_text_is_left_out():
    found = {str(path.relative_to(ROOT)) for path in ROOT.rglob("*.md")}
    assert {name for name in found if not name.startswith(("build/", "."))} == set(TEXTS)


@pytest.mark.parametrize("name", TEXTS)
def test_the_files_that_a_text_names_are_there(name):
    """Links, and words in backquotes that begin with a folder of this tree or are one of its headers and sources."""
    text = (ROOT / name).read_text(encoding="utf-8")
    linked = [(ROOT / name).parent / link for link in re.findall(r"\]\(([^):#]+)", text)]
    folders = [path for path in ROOT.iterdir() if path.is_dir() and path.name != "build"]
    begin = "|".join(folder.name for folder in folders)
    quoted = [ROOT / word for word in re.findall(rf"`((?:{begin})/[\w./-]*)", text) if "NAME" not in word]
    assert [path for path in linked + quoted if not path.exists()] == []
    sources = re.findall(r"`(\w+\.(?:h|cpp))`", text)
    assert [source for source in sources if not any(any(folder.rglob(source)) for folder in folders)] == []


def test_the_licence_is_the_same_everywhere():
    def words(text):
        return re.sub(r"^ \.$", "", text, flags=re.MULTILINE).split()

    licence = (ROOT / "LICENSE").read_text(encoding="utf-8").split("\n\n", 2)
    packaged = (ROOT / "packaging/copyright").read_text(encoding="utf-8").split("\nLicense: Expat\n")
    assert licence[0] == "MIT License"
    assert licence[1].removeprefix("Copyright (c) ") in packaged[0]
    assert words(licence[2]) == words(packaged[-1])


def test_the_readme_stays_under_two_screens():
    assert len((ROOT / "README.md").read_text(encoding="utf-8").splitlines()) <= 100


def test_news_begins_with_the_version_that_is_built_and_with_the_date_of_the_manual():
    built = re.search(r"project\(tamrix VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"))[1]
    news = (ROOT / "NEWS").read_text(encoding="utf-8")
    version, date = re.search(r"^tamrix (\S+) \((\d{4}-\d\d-\d\d)\)$", news, re.MULTILINE).groups()
    assert version == built
    day = datetime.date.fromisoformat(date)
    for page in manual.PAGES:
        assert page.read_text(encoding="utf-8").startswith(f".Dd {day:%B} {day.day}, {day.year}\n"), page.name


def test_the_gates_of_the_table_are_those_of_the_test_script():
    rows = re.findall(r"^\|.*\| `([^`]*)` \| `(\./test(?: --full)?)` \|$",
                      (ROOT / "CONTRIBUTING.md").read_text(encoding="utf-8"), re.MULTILINE)
    told = {(command.split()[0], stage) for command, stage in rows if re.match("(?:tests|fuzz)/", command)}
    short, full = (ROOT / "test").read_text(encoding="utf-8").split("\nif [[ $full == yes ]]; then\n")
    run = {(command, stage) for text, stage in ((short, "./test"), (full, "./test --full"))
           for command in re.findall(r"^ *check \S+ (\S+)", text, re.MULTILINE)}
    assert len(run) > 12
    assert told == run
