"""Completion in the real shells."""

import pytest

import shells
from commands import COMMANDS
from registry_text import document, record

SHELLS = ["bash", "zsh", "fish"]
NAMES = ["my-cgi", "with blank", "qu'ote $x", "host:80"]

# What a shell would make something of, were it not quoted.
ODD_NAMES = ["$(touch /opt/ovt/x)", "`touch /opt/ovt/x`", "a;b&c|d", "*", "a=b", "--x", "-x", "a!b", "Gr\u00fc\u00dfe",
             "[x]", "{a,b}", "#", "%s", "a:b:c", " lead", "trail ", "<x>", "'", "$HOME", "(", "@x", "^", "a,b", "a ~"]

pytestmark = pytest.mark.parametrize("shell", SHELLS)


@pytest.fixture
def desk(host):
    shells.install(host)
    host.registry = document(*(record(name) for name in NAMES), record("of-a-package", system=True))
    host.write("/opt/ovt/place/one file")
    host.write("/opt/ovt/place/folder/x")
    host.write("/opt/ovt/pools/a pool/x")
    return host


def offered(desk, shell, line):
    words = shells.complete(desk, shell, line)
    assert len(words) == len(set(words))
    return set(words)


def test_commands_and_their_options_are_offered(desk, shell):
    assert offered(desk, shell, "tamrix --") == {*COMMANDS, "--help"}
    assert offered(desk, shell, "tamrix -") == {*COMMANDS, "--help", "-h"}
    for word, command in COMMANDS.items():
        assert offered(desk, shell, f"tamrix {word} --") == command.options


@pytest.mark.parametrize("line", ["tamrix --remove --id ", "tamrix --update --type cgi --id "])
def test_identifiers_are_those_of_custom_handlers(desk, shell, line):
    assert offered(desk, shell, line) == set(NAMES)


def test_odd_identifiers_arrive_as_they_are(desk, shell):
    desk.registry = document(*(record(name) for name in ODD_NAMES))
    assert offered(desk, shell, "tamrix --remove --id ") == set(ODD_NAMES)
    assert not desk.exists("/opt/ovt/x")


def test_identifiers_that_json_escapes_or_leaves_out_are_not_offered(desk, shell):
    desk.registry = document(record("of-a-package", system=True), record("y" * 4088), record('q\\"q'), record(""),
                             record("b\\\\s"), record("l\\nl"), record("plain"))
    assert offered(desk, shell, "tamrix --remove --id ") == {"plain"}


def test_a_tilde_in_front_is_offered_where_it_can_be_quoted(desk, shell):
    desk.registry = document(record("~"), record("~root"), record("plain"))
    expected = {"plain"} if shell == "fish" else {"~", "~root", "plain"}
    assert offered(desk, shell, "tamrix --remove --id ") == expected


def test_identifiers_are_live(desk, shell):
    desk.registry = document(record("another"))
    assert offered(desk, shell, "tamrix --remove --id ") == {"another"}
    desk.registry = "broken"
    assert offered(desk, shell, "tamrix --remove --id ") == set()


@pytest.mark.parametrize("line, word", [
    ("tamrix --remove --id my", "my-cgi"), ("tamrix --remove --id=my", "--id=my-cgi"),
    ("tamrix --remove --id host:", "host:80"), ("tamrix --remove --id=host:8", "--id=host:80"),
    ("tamrix --rem", "--remove"), ("tamrix --update --typ", "--type"), ("tamrix --add --type fa", "fastcgi"),
    ("tamrix --add --type=fp", "--type=fpm"), ("tamrix --add --path /opt/ovt/place/o", "/opt/ovt/place/one file"),
    ("tamrix --add --clipath=/opt/ovt/place/o", "--clipath=/opt/ovt/place/one file"),
    ("tamrix --update --poold /opt/ovt/place/", "/opt/ovt/place/folder"),
    ("tamrix --add --poold=/opt/ovt/place/", "--poold=/opt/ovt/place/folder"),
    ("tamrix --update --poold /opt/ovt/pools/", "/opt/ovt/pools/a pool"),
    ("tamrix --update --type cgi --id host:", "host:80")])
def test_a_begun_word_is_finished(desk, shell, line, word):
    # What is left in the line differs: an equals sign where a value may follow, the slash of a folder.
    assert {found.rstrip("=/") for found in offered(desk, shell, line)} == {word}


@pytest.mark.parametrize("line, words", [
    ("tamrix --add --type ", {"cgi", "fastcgi", "fpm"}), ("tamrix --add --id ", set()),
    ("tamrix --update --displayname ", set()), ("tamrix --update --service ", set()),
    ("tamrix --remove --id my-cgi --", {"--help", "--no-set-dirty-flag"}),
    ("tamrix --remove --no-set-dirty-flag --id=my-cgi --", {"--help"})])
def test_values_and_options_that_are_left_are_offered(desk, shell, line, words):
    assert offered(desk, shell, line) == words


@pytest.mark.parametrize("option", ["--path", "--clipath", "--phpini"])
def test_paths_are_offered(desk, shell, option):
    found = offered(desk, shell, f"tamrix --update {option} /opt/ovt/place/")
    assert {path.removesuffix("/") for path in found} == {"/opt/ovt/place/one file", "/opt/ovt/place/folder"}


def test_a_pool_directory_is_no_file(desk, shell):
    assert offered(desk, shell, "tamrix --add --poold /opt/ovt/place/folder/") == set()


@pytest.mark.parametrize("begun", ["--list ", "--list-json ", "--help ", "--reread /opt/ovt/place/",
                                   "--remove --id my-cgi /opt/ovt/place/"])
def test_no_other_words_are_offered(desk, shell, begun):
    assert offered(desk, shell, f"tamrix {begun}") <= {"--help", "--no-set-dirty-flag"}


def test_the_registry_is_not_touched(desk, shell):
    before = desk.registry
    shells.complete(desk, shell, "tamrix --remove --id my")
    assert desk.registry == before and desk.calls == []


def test_no_variable_stays_in_the_shell(desk, shell):
    for line in ("tamrix --remove --id ho", "tamrix --remove --", "tamrix --update --id=host:", "tamrix --re"):
        shells.complete(desk, shell, line)
        left = shells.variables(desk)
        assert "PATH" in left
        assert not left & {"line", "quoted", "kept", "command", "option", "fields", "word", "words", "previous",
                           "typed", "given", "n", "ids", "dirty", "expl"}
