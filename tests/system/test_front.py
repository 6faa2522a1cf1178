"""The command word, the usage, streams, statuses, and what the caller's process state may be."""

import pytest

from private_host import Result, failed, ok
from registry_text import EMPTY_TABLE

USAGE = (
    "Usage: tamrix <COMMAND> <COMMAND OPTIONS...>\n"
    "\t--add [--displayname=<name>] --path=<path to php-cgi> [--clipath=<path to php-cli>]"
    " --phpini=<path to php.ini> --type=<cgi|fastcgi|fpm> [--id=<handler id>]"
    " [--service=name] [--poold=path]\n"
    "\t\tregister new php handler\n"
    "\t--remove --id=<handler id>\n"
    "\t\tremove existing handler\n"
    "\t--update --id=<handler id> [--displayname=<name>] [--path=<path to php-cgi>]"
    " [--clipath=<path to php-cli>] [--phpini=<path to php.ini>] [--type=<cgi|fastcgi|fpm>]"
    " [--service=name] [--poold=path]\n"
    "\t\tupdate existing handler\n"
    "\t--list-json\n"
    "\t\tlist handlers in json format\n"
    "\t--list\n"
    "\t\tlist handlers in human readable format\n"
    "\t--reread\n"
    "\t\treread handlers info\n"
    "\t--help\n"
    "\t\tshow this help\n"
    "\n"
    "\tCommands <add|remove|update> run scripts from /etc/ovt/php_configurator.d/"
    " with argument <add|remove|update>\n"
    "\t\tEnvironment variables available in scripts:\n"
    "\t\t$PHP_ID - handler id\n"
    "\t\t$PHP_PATH - path to php-cgi\n"
    "\t\t$PHP_INI - path to php.ini\n"
    "\t\t$PHP_CLI - path to php-cli\n"
    "\t\t$PHP_VERSION - version of php\n"
    "\t\t$PHP_TYPE - type of handler <module|cgi|fastcgi|fpm>\n"
)


def test_no_command_word_is_an_error_with_the_usage(host):
    assert host.tamrix() == failed("Error: no command specified\n" + USAGE)


@pytest.mark.parametrize(
    "word", ["--frob", "--LIST", "--lis", "--list=x", "--list ", "list", "-help", "--h", "-", "--", "0"])
def test_an_unknown_word_is_an_error_with_the_usage(host, word):
    assert host.tamrix(word) == failed(f"Error: invalid command {word}\n" + USAGE)


def test_an_empty_word_is_invalid_and_shown_as_nothing(host):
    assert host.tamrix("") == failed("Error: invalid command \n" + USAGE)


def test_a_word_with_odd_bytes_is_shown_as_given(host):
    assert host.tamrix("--\udcff\n%s") == failed("Error: invalid command --\udcff\n%s\n" + USAGE)


@pytest.mark.parametrize("words", [["-h"], ["--help"], ["-h", "extra"], ["--help", "--list"]])
def test_help_prints_the_usage_on_standard_error_and_succeeds(host, words):
    assert host.tamrix(*words) == ok(err=USAGE)


def test_the_program_name_in_the_usage_is_fixed(host):
    script = 'ln -s "$1" /tmp/other && exec /tmp/other --help'
    assert host.shell(script) == ok(err=USAGE)


def test_words_after_list_belong_to_the_listing(host):
    assert host.tamrix("--list", "extra", "words") == ok(EMPTY_TABLE)


def test_an_empty_argument_vector_does_not_crash(host):
    result = host.run(
        "/usr/bin/python3", "-c",
        "import ctypes, os\n"
        "libc = ctypes.CDLL(None, use_errno=True)\n"
        "libc.execv(b'/opt/ovt/admin/sbin/tamrix', (ctypes.c_char_p * 1)(None))\n"
        "os._exit(99)")
    assert result == failed("Error: no command specified\n" + USAGE)


@pytest.mark.parametrize("closing", ["<&-", ">&-", "2>&-", "<&- >&-", ">&- 2>&-", "<&- >&- 2>&-"])
def test_closed_standard_descriptors_do_no_harm(host, closing):
    result = host.shell(f'exec "$@" {closing}', "--list")
    assert result == ok("" if ">&-" in closing.replace("2>&-", "") else EMPTY_TABLE)


def test_a_full_standard_output_is_ignored(host):
    assert host.shell('exec "$@" >/dev/full', "--list") == ok()
    assert host.shell('exec "$@" >/dev/full', "--list-json") == ok()


def test_an_error_on_closed_standard_error_keeps_its_status(host):
    assert host.shell('exec "$@" 2>&-') == Result(1)


def test_nothing_is_logged_by_a_listing(host):
    host.open_log()
    assert host.tamrix("--list") == ok(EMPTY_TABLE)
    assert host.log_messages() == []
