"""The command word, the usage and the streams; and every place that has to know each command.

A command that is forgotten somewhere fails here with the name of the file. The truth is tests/support/commands.py
together with all that any of the files knows."""

import re

import pytest

import manual
from commands import COMMANDS, USAGE, WITH_OPTIONS
from manual import ROOT
from private_host import Result, failed, ok


def text_of(file):
    path = ROOT / file
    return path.read_text(encoding="utf-8") if path.exists() else ""


def kebab(name):
    return "--" + re.sub("([A-Z])", lambda found: "-" + found[0].lower(), name)


def camel(word):
    return re.sub("-(.)", lambda found: found[1].upper(), word[2:])


# The file, what in it is a command's name, and how a name becomes the command's word.
LISTS = [
    ("cli/Dispatcher.cpp", r'\{"--([a-z-]+)", \w+Command\}', "--{}".format),
    ("cli/Dispatcher.cpp", r'"\\t--([a-z-]+)[ \\]', "--{}".format),
    ("commands/Commands.h", r"^int (\w+)Command\(int argc", kebab),
    ("docs/man/tamrix.8", r"^\.Ss --(\S+)$", "--{}".format),
    ("docs/man/tamrix.8", r"^\.Nm\n\.Fl -([a-z-]+)", "--{}".format),
    ("packaging/completion/_tamrix", r"'--([a-z-]+):", "--{}".format),
    ("packaging/completion/tamrix.bash", r"(?<=[\" ])--([a-z-]+)(?=[^\n]* -h\")", "--{}".format),
    ("packaging/completion/tamrix.fish", r"-n __tamrix_no_command -l (\S+)", "--{}".format),
]
KNOWN = {file: [] for file, _, _ in LISTS}
for file_, pattern_, word_ in LISTS:
    KNOWN[file_].append({word_(name) for name in re.findall(pattern_, text_of(file_), re.MULTILINE)} - {"--help"})
ALL = set(COMMANDS).union(*(words for lists in KNOWN.values() for words in lists))


@pytest.mark.parametrize("file", ["tests/support/commands.py", *KNOWN])
def test_every_command_is_in(file):
    for words in KNOWN.get(file, [set(COMMANDS)]):
        assert not ALL - words, f"{file} does not know {sorted(ALL - words)}"


@pytest.mark.parametrize("file", ["README.md", "NEWS"])
def test_every_command_is_told_of_in(file):
    untold = [word for word in ALL if not re.search(rf"(?<![\w-]){word}(?![\w-])", text_of(file))]
    assert not untold, f"{file} does not tell of {untold}"


@pytest.mark.parametrize("word", sorted(ALL))
def test_the_files_of_the_command(word):
    file = COMMANDS[word].tested_in if word in COMMANDS else f"tests/system/test_{word[2:].replace('-', '_')}.py"
    assert f'"{word}"' in text_of(file), f"{file} does not test {word}"
    source = f"commands/{camel(word)[0].upper()}{camel(word)[1:]}Command.cpp"
    sources = "".join(path.read_text(encoding="utf-8") for path in (ROOT / "commands").glob("*Command*.cpp"))
    assert f"int {camel(word)}Command(" in sources, f"neither {source} nor another file defines {camel(word)}Command"


def test_every_source_of_commands_is_built():
    listed = re.findall(r"[\w.]+", text_of("commands/CMakeLists.txt"))
    unlisted = {path.name for path in (ROOT / "commands").glob("*.cpp")} - set(listed)
    assert not unlisted, f"commands/CMakeLists.txt does not list {unlisted}"


@pytest.mark.parametrize("word", WITH_OPTIONS)
def test_every_command_with_options_is_fuzzed_and_completed(word):
    for file in ("commands/Commands.h", "fuzz/OptionParsing.cpp"):
        assert f"{camel(word)}Options" in text_of(file), f"{file} lacks the options of {word}"
    for file, taken in (
            ("_tamrix", f"    {word}) _arguments"), ("tamrix.bash", f"[{word}]="), ("tamrix.fish", f" {word}")):
        assert taken in text_of(f"packaging/completion/{file}"), f"packaging/completion/{file} lacks options of {word}"


@pytest.mark.parametrize("word", COMMANDS)
def test_program_usage_manual_and_completion_know_the_options(host, word):
    options = COMMANDS[word].options
    if options:
        assert host.tamrix(word, "--bogus") == COMMANDS[word].option_error("unrecognised option '--bogus'")
    (line,) = re.findall(rf"^\t{word}(?![\w-])(.*)", USAGE, re.MULTILINE)
    # The usage leaves out the switch, and the option without effect.
    assert options - set(re.findall(r"(--[a-z]+)=", line)) <= {"--no-set-dirty-flag", "--help"}
    assert set(re.findall(r"(--[a-z]+)=", line)) <= options
    assert manual.commands()[word] == options, "docs/man/tamrix.8, the command's own section"
    assert manual.synopsis()[word] == options, "docs/man/tamrix.8, SYNOPSIS"


def test_no_command_word_is_an_error_with_the_usage(host):
    assert host.tamrix() == failed("Error: no command specified\n" + USAGE)


@pytest.mark.parametrize("word", [
    "--frob", "--LIST", "--lis", "--list=x", "--list ", "list", "-help", "--h", "-", "--", "0", "", "--\udcff\n%s"])
def test_an_unknown_word_is_shown_as_given_with_the_usage(host, word):
    assert host.tamrix(word) == failed(f"Error: invalid command {word}\n" + USAGE)


@pytest.mark.parametrize("words", [["-h"], ["--help"], ["-h", "extra"], ["--help", "--list"]])
def test_help_prints_the_usage_on_standard_error_and_succeeds(host, words):
    assert host.tamrix(*words) == ok(err=USAGE)


def test_the_program_name_in_the_usage_is_fixed(host):
    script = 'ln -s "$1" /tmp/other && exec /tmp/other --help'
    assert host.shell(script) == ok(err=USAGE)


def test_an_empty_argument_vector_does_not_crash(host):
    result = host.run(
        "/usr/bin/python3", "-c",
        "import ctypes, os\n"
        "libc = ctypes.CDLL(None, use_errno=True)\n"
        "libc.execv(b'/opt/ovt/admin/sbin/tamrix', (ctypes.c_char_p * 1)(None))\n"
        "os._exit(99)")
    assert result == failed("Error: no command specified\n" + USAGE)


def test_a_full_standard_output_is_ignored(host):
    assert host.shell('exec "$@" >/dev/full', "--list") == ok()
    assert host.shell('exec "$@" >/dev/full', "--list-json") == ok()


def test_an_error_on_closed_standard_error_keeps_its_status(host):
    assert host.shell('exec "$@" 2>&-') == Result(1)
