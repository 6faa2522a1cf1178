"""Environments and words of a size or kind that nobody expects.

Expected: no variable changes a message, and no word hangs the option library. A child whose words and environment
the system refuses (128 KiB for one string) fails like any program that cannot be executed."""

import datetime
import re

import pytest

from commands import ADD, COMMANDS, DIRTY, WITH_OPTIONS, play
from documents import report
from private_host import HOOKS, TAMRIX, failed, ok
from registry_text import CGI, document, record

BARE_ADD = ADD[:-2]
HUNDRED_KB = "x" * 100_000
# Of a string that the system hands to a program, its final NUL included.
LONGEST = 131_072
PLACEHOLDERS = ("canonical_option", "option", "original_token", "prefix", "value", "arg")


@pytest.mark.parametrize("variables", [
    {"LC_ALL": "de_DE.UTF-8", "LANGUAGE": "de", "LANG": "de_DE.UTF-8"}, {"LC_ALL": "tr_TR.UTF-8"},
    {"LC_ALL": "C.UTF-8", "LC_NUMERIC": "de_DE.UTF-8"}, {"LC_ALL": "\udcff/../.."}, {"LC_ALL": ""},
    {"LC_ALL": "x" * 100_000}], ids=["German", "Turkish", "C with UTF-8", "no locale", "empty", "huge"])
def test_no_message_follows_the_locale(furnished, variables):
    # Set inside, because the shell that lays the private host would complain about them.
    def run(*words):
        return furnished.run("/usr/bin/env", *(f"{name}={value}" for name, value in variables.items()), TAMRIX, *words)

    play(furnished, run)
    assert run("--remove", "--bogus") == COMMANDS["--remove"].option_error("unrecognised option '--bogus'")
    # An offset that a locale with thousands separators would show differently.
    text = document(*(record(f"r{n}") for n in range(1001))).replace('"id":"r1000"', '"id" "r1000"')
    furnished.registry = text
    offset = text.index('"r1000"')
    assert offset > 100_000
    assert run("--list") == failed(report(f"12 at {offset} '\"'"))


def test_no_locale_is_looked_for(furnished):
    """So it does not matter which are installed."""
    _, trace = furnished.traced(["-f", "-e", "trace=%file", "-E", "LC_ALL=de_DE.UTF-8"], *ADD)
    before_the_child = trace.split(f'execve("{CGI}"')[0]
    assert "/opt/ovt/php/php-cgi" in before_the_child
    assert "locale" not in before_the_child


@pytest.mark.parametrize("zone,offset", [
    ("", 0), ("UTC0", 0), ("XXX-14", 14), ("XXX+12:59:59", -12 - 59 / 60 - 59 / 3600), ("<+0545>-5:45", 5.75),
    (":/no/such/zone", 0), ("no/such/zone", 0), ("\udcff%s%n", 0), ("x" * 100_000, 0), (":/etc", 0),
    ("/opt/ovt/php/php-cgi", 0)], ids=lambda value: str(value)[:15])
def test_the_hook_log_s_time_in_an_odd_zone(furnished, zone, offset):
    before = datetime.datetime.now(datetime.timezone.utc).replace(microsecond=0)
    assert furnished.tamrix(*ADD, env={"TZ": zone}) == ok("x\n")
    after = datetime.datetime.now(datetime.timezone.utc)
    stamp = furnished.read("/var/log/quelm/php_handler_configurators.log")[1:24]
    local = datetime.datetime.strptime(stamp, "%Y-%m-%d %H-%M-%S.%f").replace(tzinfo=datetime.timezone.utc)
    assert before <= local - datetime.timedelta(hours=offset) <= after + datetime.timedelta(seconds=1)


def test_an_environment_of_a_megabyte(furnished):
    variables = {f"BIG{n}": HUNDRED_KB for n in range(10)}
    furnished.hook("20-hook", 'echo "$(env | grep -c "^BIG.=x*$") $(env | wc -c)"')
    assert furnished.tamrix(*ADD, env=variables) == ok("x\n")
    count, size = re.search(r"stdout: (\d+) (\d+)\n", furnished.hook_log.split("20-hook")[-1]).groups()
    assert int(count) == 10 and int(size) > 1_000_000
    furnished.remove(f"{HOOKS}/20-hook")
    furnished.registry = ""
    play(furnished, lambda *words: furnished.tamrix(*words, env=variables))


def test_an_environment_with_names_that_are_none(furnished):
    """Without "=", empty, twice, and without any variable at all."""
    code = (
        "import ctypes, sys\n"
        "def vector(words): return (ctypes.c_char_p * (len(words) + 1))(*words, None)\n"
        "words = [word.encode() for word in sys.argv[2:]]\n"
        "variables = {'odd': [b'NOEQUALS', b'', b'=', b'=x', b'PHP_ID=caller', b'PHP_ID=again', b'\\xff=\\xff'],\n"
        "             'none': []}[sys.argv[1]]\n"
        "ctypes.CDLL(None).execve(words[0], vector(words), vector(variables))")
    for kind in ("odd", "none"):
        furnished.registry = ""
        assert furnished.run("/usr/bin/python3", "-c", code, kind, TAMRIX, *ADD) == ok("x\n")
        assert furnished.registry == document(record("x"))
        assert furnished.hook_log.endswith("stdout: \nstderr: \nExit code: 0\n")


# Where the library would fill in a word that holds the placeholder itself, without end, the word stands as typed.
ENDLESS = ("canonical_option", "original_token")
FILLED_IN = {"option": "", "prefix": "--"}


@pytest.mark.parametrize("command", WITH_OPTIONS)
@pytest.mark.parametrize("form", ["--{}", "-{}", "--{}={}", "--%{}%", "--x{}x{}"])
def test_a_word_with_the_option_library_s_placeholders_is_refused(furnished, command, form):
    furnished.registry = before = document(record("a"))
    for placeholder in PLACEHOLDERS:
        token = f"%{placeholder}%"
        shown = form.format(token, token)
        if placeholder not in ENDLESS:
            shown = shown.replace(token, FILLED_IN.get(placeholder, token))
        result = furnished.tamrix(command, form.format(token, token), timeout=10)
        assert result == COMMANDS[command].option_error(f"unrecognised option '{shown}'")
    assert furnished.registry == before and furnished.calls == []


def test_placeholders_are_ordinary_values(furnished):
    for placeholder in PLACEHOLDERS:
        word = f"%{placeholder}%"
        furnished.registry = ""
        assert furnished.tamrix(*BARE_ADD, "--id", word, "--displayname", word, timeout=10) == ok(f"{word}\n")
        assert furnished.registry == document(record(word, displayname=f"%25{placeholder}%25"))
        assert furnished.tamrix("--update", "--id", word, "--type", word, timeout=10) == failed(
            f"Unknown php handler type : {word}\n")


@pytest.mark.parametrize("command", WITH_OPTIONS)
def test_an_option_of_a_hundred_kilobytes_is_refused_whole(furnished, command):
    word = f"--{HUNDRED_KB}"
    assert furnished.tamrix(command, word) == COMMANDS[command].option_error(f"unrecognised option '{word}'")


def test_a_command_word_of_a_hundred_kilobytes_is_refused_whole(furnished):
    result = furnished.tamrix(HUNDRED_KB)
    assert (result.status, result.out) == (1, "")
    assert result.err.startswith(f"Error: invalid command {HUNDRED_KB}\nUsage: tamrix ")


def test_eight_thousand_words_are_ignored_like_one(furnished):
    assert furnished.tamrix("--remove", "--id", "none", *["word"] * 8_000) == ok(
        err="[Warning] Handler with id `none' does not exist\n")


def test_values_of_a_hundred_kilobytes(furnished):
    """Reach the hooks whole; the file keeps null, which the next run refuses."""
    furnished.hook("20-hook", 'echo "${#PHP_ID} ${#PHP_INI}"')
    result = furnished.tamrix("--add", "--path", CGI, "--type", "cgi", "--id", HUNDRED_KB, "--phpini", HUNDRED_KB)
    assert result == ok(f"{HUNDRED_KB}\n")
    assert "\nstdout: 100000 100000\n\n" in furnished.hook_log
    assert furnished.registry == document(record("@", phpini="@")).replace('"@"', "null")
    assert furnished.tamrix("--list").err.endswith(
        "String is expected. Error occured at offset 17, character 'n'. \n")


def test_a_value_that_fits_no_variable_fails_the_hooks_alone(furnished):
    longest = "x" * (LONGEST - 1)
    assert furnished.tamrix(*BARE_ADD, "--id", longest) == ok(f"{longest}\n")
    text = "Argument list too long"
    failure = f"tamrix: forkExecvPipes: execv() failed: {text}\n\nSystem error 7: {text}\n"
    assert furnished.hook_log.endswith(f"\nstdout: {failure}\nstderr: {failure}\nExit code: 1\n")
    assert furnished.calls[-1] == DIRTY


@pytest.mark.parametrize("name", ["", "/", "a/b/", "%s%n", "\udcff\n", "x" * 5000])
def test_the_name_that_a_caller_gives_to_the_program_changes_no_result(furnished, name):
    """The first word is the caller's to choose; it is only shown before fatal messages of a child."""
    # By the C library, because Python itself refuses an empty first word.
    code = (
        "import ctypes, sys\nwords = [word.encode('utf-8', 'surrogateescape') for word in sys.argv[1:]]\n"
        "vector = (ctypes.c_char_p * (len(words) + 1))(*words, None)\n"
        f"ctypes.CDLL(None).execv(b'{TAMRIX}', vector)")
    play(furnished, lambda *words: furnished.run("/usr/bin/python3", "-c", code, name, *words))
