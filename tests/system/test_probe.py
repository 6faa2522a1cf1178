"""The version probe, seen through --add and --reread: PHP interpreters, and interpreters that are none.

--add fails with the probe's message and changes nothing, --reread drops the handler with a warning and serves the
others. A message ends at a NUL byte that was printed, as messages are C strings."""

import os
import re
import time

import pytest

from private_host import UNPRIVILEGED, failed, fatal_file, ok
from registry_text import CGI, INI, document, record

ADD = ("--add", "--phpini", INI, "--type", "cgi", "--id", "x", "--path")
BAD = "/opt/ovt/php/bad"
LOOP = "/opt/ovt/loop"
PARSED = {
    "a cgi banner": ("PHP 7.4.33-nmm1 (cgi-fcgi) (built: Nov  8 2022 11:33:53)\nCopyright\n", "7.4.33"),
    "no dots": ("PHP 8 (cli)\n", "8"),
    "a trailing dot": ("PHP 8.1.\n", "8.1"),
    "nothing behind the number": ("PHP 8.1", "8.1"),
    "no final newline": ("x\nPHP 5.2.17 x", "5.2.17"),
    "a carriage return": ("PHP 8.1.2\r\n", "8.1.2"),
    "a warning before it": ("Warning: module 'x' already loaded\nPHP 8.2.0 (cli)\n", "8.2.0"),
    "the first of two": ("PHP 1.1\nPHP 2.2\n", "1.1"),
    "a tab for the blank": ("PHP\t8.3.1\n", "8.3.1"),
    "bytes beyond ASCII in the tail": ("PHP 8.1\udcff\u00e4\n", "8.1"),
    "leading zeros": ("PHP 007.01x\n", "007.01"),
    "many groups": ("PHP 1.2.3.4.5.6.7.8\n", "1.2.3.4.5.6.7.8"),
}
NOT_PARSED = {
    "a leading blank": " PHP 8.1.2\n",
    "lower case": "php 8.1.2\n",
    "no number": "PHP x\n",
    "two blanks": "PHP  8.1\n",
    "several lines": "a\n\nb",
    "a word before it": "xPHP 8.1\n",
}


@pytest.mark.parametrize("name", PARSED)
def test_the_version_is_found_with(host, name):
    banner, version = PARSED[name]
    host.php(CGI, banner, err="PHP 9.9\n")
    assert host.tamrix(*ADD, CGI) == ok("x\n")
    assert host.registry == document(record("x", version=version))


@pytest.mark.parametrize("name", NOT_PARSED)
def test_the_whole_output_is_shown_for(host, name):
    host.php(CGI, NOT_PARSED[name])
    assert host.tamrix(*ADD, CGI) == failed("Unable to parse php version : " + NOT_PARSED[name] + "\n")
    assert host.registry is None


def test_the_binary_is_run_anew_each_time_with_n_and_v_and_an_empty_input(host):
    host.recorder(CGI, 'echo "input: $(cat)" >>/opt/ovt/calls\necho "PHP 1.$INHERITED"')
    words = (CGI, "--clipath", CGI, "--no-set-dirty-flag")
    assert host.tamrix(*ADD, *words, stdin="caller's", env={"INHERITED": "42"}) == ok("x\n")
    assert host.calls == [f"{CGI} -n -v", "input: "] * 2
    assert host.registry == document(record("x", clipath=CGI, version="1.42"))


# The path, what is laid there (its text and mode, None for nothing), and what is said.
@pytest.mark.parametrize("path,content,mode,message", [
    ("", None, 0, "Binary  doesn't exists"),
    ("/no/such", None, 0, "Binary /no/such doesn't exists"),
    ("no-slash", None, 0, "Binary no-slash doesn't exists"),
    ("/etc/passwd/x", None, 0, "Binary /etc/passwd/x doesn't exists"),
    ("/opt/ovt/dangling", None, 0, "Binary /opt/ovt/dangling doesn't exists"),
    ("/opt/ovt", None, 0, "can not get version from /opt/ovt"),
    (BAD, "PHP 8.1\n", 0o644, f"can not get version from {BAD}"),
    # A file without an interpreter line is run by the shell.
    (BAD, 'echo "shell $1 $2"\n', 0o755, "Unable to parse php version : shell -n -v\n"),
    (BAD, "", 0o755, "Unable to parse php version : ")])
def test_at_the_path_is_no_interpreter(host, path, content, mode, message):
    os.symlink("/no/such", host.path("/opt/ovt/dangling"))
    if content is not None:
        host.write(path, content, mode)
    assert host.tamrix(*ADD, path) == failed(message + "\n")
    assert host.registry is None


def test_a_link_to_a_binary_is_followed(host):
    host.php(CGI)
    os.symlink(CGI, host.path("/opt/ovt/link"))
    assert host.tamrix(*ADD, "/opt/ovt/link") == ok("x\n")
    assert host.registry == document(record("x", path="/opt/ovt/link"))


@pytest.mark.parametrize("path,reason", [
    (LOOP, "Too many levels of symbolic links"), ("/" + "x" * 300, "File name too long"),
    ("/" + "x/" * 50_000, "File name too long"), ("/opt/ovt/closed/php", "Permission denied")],
    ids=["link loop", "long name", "long path", "closed folder"])
def test_a_path_that_cannot_be_examined_is_the_file_system_s_own_error(host, path, reason):
    os.symlink(LOOP, host.path(LOOP))
    host.php("/opt/ovt/closed/php")
    host.path("/opt/ovt/closed").chmod(0)
    assert host.shell(UNPRIVILEGED, *ADD, path) == fatal_file("status", reason, path)


def test_a_slashless_path_is_looked_up_in_the_path_but_must_exist_here(host):
    host.php("/opt/ovt/bin/php-x", "PHP 8.1\n")
    host.php("/opt/ovt/here/php-x", "PHP 9.1\n")
    path = {"PATH": "/opt/ovt/bin:/usr/bin:/bin"}
    assert host.tamrix(*ADD, "php-x", env=path) == failed("Binary php-x doesn't exists\n")
    script = 'cd /opt/ovt/here && PATH=/opt/ovt/bin:$PATH && exec "$@"'
    assert host.shell(script, *ADD, "php-x") == ok("x\n")
    assert host.registry == document(record("x", path="php-x", version="8.1"))


def test_a_version_of_very_many_groups_does_no_harm(host):
    host.recorder(CGI, "printf 'PHP 1'\nhead -c 200000 /dev/zero | sed 's/\\x00/.1/g'")
    result = host.tamrix(*ADD, CGI)
    if result.status != 0:
        # Releases of the library differ in the exception's type.
        assert (result.status, result.out) == (1, result.err)
        assert re.match(r"Fatal error: boost::wrapexcept<[\w:]+>\(Ran out of stack space ", result.err)


# Programs that are no interpreters.

EVERY_BYTE = "".join(f"\\{byte:03o}" for byte in [*range(1, 256), 0])
PRINTED = bytes(range(1, 256)).decode("utf-8", "surrogateescape")
NO_VERSION = f"can not get version from {BAD}"
# What the program does, and the message that this gives.
REFUSED = {
    "prints every byte": (f"printf '{EVERY_BYTE}'", f"Unable to parse php version : {PRINTED}"),
    "prints a NUL first": ("printf '\\000PHP 8.1\\n'", "Unable to parse php version : "),
    "prints a program": ("printf '\\177ELF\\002\\000more'", "Unable to parse php version : \x7fELF\x02"),
    "prints a format": ("echo '%s%n%1%'", "Unable to parse php version : %s%n%1%\n"),
    "prints a wide version": ("printf 'P\\000H\\000P\\000'", "Unable to parse php version : P"),
    "prints nothing": (":", "Unable to parse php version : "),
    "prints blank lines": ("printf '\\n\\n\\n'", "Unable to parse php version : \n\n\n"),
    "closes its outputs": ("exec >&- 2>&-; sleep 0.3", "Unable to parse php version : "),
    "prints the version as an error": ("echo PHP 8.1 >&2", "Unable to parse php version : "),
    "ends by a fault": ("echo PHP 8.1; kill -SEGV $$", NO_VERSION),
    "ends by termination": ("echo PHP 8.1; kill -TERM $$", NO_VERSION),
    "ends by a broken pipe": ("echo PHP 8.1; kill -PIPE $$", NO_VERSION),
    "is killed": ("echo PHP 8.1; kill -9 $$", NO_VERSION),
    "fails after a good banner": ("echo PHP 8.1; exit 255", NO_VERSION),
    "fails by 1": ("echo PHP 8.1; exit 1", NO_VERSION),
}
# What the program does and the version that is found.
SERVED = {
    "prints bytes behind the version": (f"printf 'PHP 8.1{EVERY_BYTE.replace(chr(92) + '012', '')}\\n'", "8.1"),
    "prints ten megabytes in one line behind it": ("printf 'PHP 8.1 '; head -c 10000000 /dev/zero | tr '\\0' o", "8.1"),
    "prints ten megabytes of NUL behind it": ("printf 'PHP 8.1 '; head -c 10000000 /dev/zero", "8.1"),
    "prints ten megabytes in one line before it": (
        "head -c 10000000 /dev/zero | tr '\\0' o; printf '\\nPHP 8.1\\n'", "8.1"),
    "prints two million lines before it": ("yes | head -n 2000000; echo PHP 8.1", "8.1"),
    "prints errors without end before it": ("head -c 10000000 /dev/zero >&2; echo PHP 8.1", "8.1"),
    "reads its input": ("cat; read line; echo PHP 8.1", "8.1"),
    "closes its input": ("exec <&-; echo PHP 8.1", "8.1"),
    "leaves its group and session": ("exec setsid -w echo PHP 8.1", "8.1"),
    "leaves a daemon behind": ("echo PHP 8.1; setsid sleep 60 >/dev/null 2>&1 &", "8.1"),
    "prints in two parts": ("printf PH; sleep 0.2; echo P 8.1", "8.1"),
    "is told a huge number": (f"echo PHP {'9' * 3000}", "9" * 3000),
    "has the longest version": (f"echo PHP {'9' * 4087}", "9" * 4087),
}


def interpreter(host, body):
    host.write(BAD, f"#!/bin/sh\n{body}\n", 0o755)


@pytest.mark.parametrize("name", REFUSED)
def test_no_handler_is_added_and_one_is_dropped_when_the_interpreter(php_host, name):
    body, message = REFUSED[name]
    interpreter(php_host, body)
    assert php_host.tamrix(*ADD, BAD) == failed(message + "\n")
    assert php_host.registry is None
    assert php_host.calls == []
    php_host.registry = document(record("a"), record("b", path=BAD), record("c"))
    assert php_host.tamrix("--reread") == ok(
        err=f"[Warning] removing handler `8.1.2' (b) due to errors in getting php version :{message}\n")
    assert php_host.registry == document(record("a"), record("c"))


@pytest.mark.parametrize("name", SERVED)
def test_the_version_is_read_when_the_interpreter(host, name):
    body, version = SERVED[name]
    interpreter(host, body)
    before = time.monotonic()
    assert host.tamrix(*ADD, BAD, stdin="caller's") == ok("x\n")
    assert time.monotonic() - before < 50, "waited for the daemon"
    assert host.registry == document(record("x", path=BAD, version=version))
    assert host.tamrix("--list-json") == ok(document(record("x", path=BAD, version=version, displayname=version)))


def test_a_ten_megabyte_line_without_version_is_shown_whole(host):
    interpreter(host, "head -c 10000000 /dev/zero | tr '\\0' o")
    assert host.tamrix(*ADD, BAD) == failed("Unable to parse php version : " + "o" * 10_000_000 + "\n")


def test_an_interpreter_that_waits_for_input_is_not_left_waiting(host):
    """Even when the caller's own input never ends."""
    interpreter(host, "cat >/dev/null; echo PHP 8.1")
    assert host.shell('mkfifo /tmp/open && exec "$@" <>/tmp/open', *ADD, BAD, timeout=30) == ok("x\n")


def test_a_version_longer_than_any_value_is_stored_as_null(host):
    interpreter(host, f"echo PHP {'9' * 4088}")
    assert host.tamrix(*ADD, BAD) == ok("x\n")
    assert host.registry == document(record("x", path=BAD, version="@")).replace('"@"', "null")
