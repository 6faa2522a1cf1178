"""Which programs a command starts: exactly those that the behaviour needs, and no process beside them."""

import re

import pytest

from private_host import TAMRIX
from registry_text import CGI, CLI, INI, document, record

ADMIN = "/opt/ovt/admin/sbin"
HOOK = "/etc/ovt/php_configurator.d/10-hook"
SERVICE = ["--service", "s", "--poold", "/p"]
ADD = ["--add", "--path", CGI, "--phpini", INI]
# The leak checker of a sanitized build cannot work beside strace.
NO_LEAK_CHECK = {"ASAN_OPTIONS": "detect_leaks=0"}


@pytest.fixture
def furnished(host):
    host.php(CGI)
    host.php(CLI)
    host.write(INI)
    host.hook("10-hook")
    host.write("/etc/ovt/php_configurator.d/20-not-executable", mode=0o644)
    return host


def traced(host, *words):
    """The programs that one tamrix run executes, itself first, and the number of processes that it makes."""
    result = host.run("/usr/bin/strace", "-f", "-qq", "-o", "/opt/ovt/trace",
                      "-e", "trace=execve,clone,clone3,fork,vfork", TAMRIX, *words, env=NO_LEAK_CHECK)
    assert result.status == 0, result
    trace = host.read("/opt/ovt/trace")
    # A call that another process's interrupts stands on two lines, the second one without the path.
    programs = re.findall(r'execve\("([^"]*)"', trace)
    children = re.findall(r"\b(?:clone3?|v?fork)(?:\(.*\)| resumed>.*) = \d+$", trace, re.MULTILINE)
    assert re.findall(r"\bexecve(?:\(.*\)| resumed>.*) = (-?\d+)", trace) == ["0"] * len(programs)
    return programs, len(children)


@pytest.mark.parametrize("words", [["--list"], ["--list-json"], ["--help"]])
def test_reading_starts_nothing(furnished, words):
    furnished.registry = document(record("a"))
    assert traced(furnished, *words) == ([TAMRIX], 0)


@pytest.mark.parametrize("word", ["--list", "--list-json"])
def test_a_listing_of_a_usual_registry_is_one_write(furnished, word):
    furnished.registry = document(*(record(f"h{number}", path="/p" * 100) for number in range(50)))
    result = furnished.run("/usr/bin/strace", "-qq", "-o", "/opt/ovt/trace", "-e", "trace=write,writev", TAMRIX, word,
                           env=NO_LEAK_CHECK)
    assert result.status == 0, result
    assert len(result.out) > 10000
    assert re.findall(r"^writev?\(1,.* = (\d+)$", furnished.read("/opt/ovt/trace"), re.MULTILINE) == [
        str(len(result.out))]


def test_add_probes_each_executable_once_then_runs_hooks_and_dirty_flag(furnished):
    expected = [TAMRIX, CGI, CLI, HOOK, f"{ADMIN}/depotctl"]
    assert traced(furnished, *ADD, "--type", "cgi", "--clipath", CLI) == (expected, 4)


def test_add_of_an_fpm_handler_checks_its_service_and_sets_its_limit(furnished):
    expected = [TAMRIX, CGI, f"{ADMIN}/quelmrc", f"{ADMIN}/quotagate", HOOK]
    assert traced(furnished, *ADD, "--type", "fpm", *SERVICE, "--no-set-dirty-flag") == (expected, 4)


def test_update_of_a_name_probes_nothing(furnished):
    furnished.registry = document(record("a"))
    expected = [TAMRIX, HOOK, f"{ADMIN}/depotctl"]
    assert traced(furnished, "--update", "--id", "a", "--displayname", "n") == (expected, 2)


@pytest.mark.parametrize("words", [["--path", CGI], ["--clipath", CLI], ["--phpini", INI]], ids=lambda words: words[0])
def test_update_of_what_the_version_depends_on_probes_both_executables_once(furnished, words):
    furnished.registry = document(record("a", path=CGI, clipath=CLI, phpini=INI))
    expected = [TAMRIX, CGI, CLI, HOOK, f"{ADMIN}/depotctl"]
    assert traced(furnished, "--update", "--id", "a", *words) == (expected, 4)


def test_update_of_a_service_checks_it_and_no_more(furnished):
    furnished.registry = document(record("a", type="fpm", service="s", poold="/p"))
    expected = [TAMRIX, f"{ADMIN}/quelmrc", HOOK, f"{ADMIN}/depotctl"]
    assert traced(furnished, "--update", "--id", "a", "--service", "t") == (expected, 3)


def test_update_to_an_fpm_handler_checks_the_service_before_it_probes_and_sets_no_limit(furnished):
    furnished.registry = document(record("a"))
    words = ["--path", CGI, "--clipath", CLI, "--type", "fpm", *SERVICE, "--no-set-dirty-flag"]
    expected = [TAMRIX, f"{ADMIN}/quelmrc", CGI, CLI, HOOK]
    assert traced(furnished, "--update", "--id", "a", *words) == (expected, 4)
    assert furnished.calls == [f"{ADMIN}/quelmrc s exists", f"{CGI} -n -v", f"{CLI} -n -v", f"{HOOK} update"]


def test_remove_probes_nothing(furnished):
    furnished.registry = document(record("a"))
    assert traced(furnished, "--remove", "--id", "a") == ([TAMRIX, HOOK, f"{ADMIN}/depotctl"], 2)


def test_reread_probes_each_executable_once_and_runs_no_hooks(furnished):
    furnished.registry = document(record("a", path=CGI, clipath=CLI, phpini=INI), record("b", path=CGI, phpini=INI))
    expected = [TAMRIX, CGI, CLI, CGI, f"{ADMIN}/depotctl"]
    assert traced(furnished, "--reread") == (expected, 4)
