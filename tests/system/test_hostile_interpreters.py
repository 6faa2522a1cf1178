"""PHP interpreters that are none.

Expected: --add fails with the probe's message and changes nothing, --reread drops the handler with a warning and
serves the others. A message ends at a NUL byte that was printed, as messages are C strings."""

import time

import pytest

from private_host import failed, ok
from registry_text import CGI, INI, document, record

BAD = "/opt/ovt/php/bad"
ADD = ("--add", "--path", BAD, "--phpini", INI, "--type", "cgi", "--id", "x")
EVERY_BYTE = "".join(f"\\{byte:03o}" for byte in [*range(1, 256), 0])
PRINTED = bytes(range(1, 256)).decode("utf-8", "surrogateescape")

# What the interpreter does, and the message that this gives.
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
    "ends by a fault": ("echo PHP 8.1; kill -SEGV $$", f"can not get version from {BAD}"),
    "ends by termination": ("echo PHP 8.1; kill -TERM $$", f"can not get version from {BAD}"),
    "ends by a broken pipe": ("echo PHP 8.1; kill -PIPE $$", f"can not get version from {BAD}"),
    "fails after a good banner": ("echo PHP 8.1; exit 255", f"can not get version from {BAD}"),
}
# What the interpreter does and the version that is found.
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
}


def interpreter(host, body):
    host.write(BAD, f"#!/bin/sh\n{body}\n", 0o755)


@pytest.mark.parametrize("name", REFUSED)
def test_no_handler_is_added_when_the_interpreter(host, name):
    body, message = REFUSED[name]
    interpreter(host, body)
    assert host.tamrix(*ADD) == failed(message + "\n")
    assert host.registry is None
    assert host.calls == []


@pytest.mark.parametrize("name", REFUSED)
def test_a_reread_drops_the_handler_alone_when_the_interpreter(host, name):
    body, message = REFUSED[name]
    interpreter(host, body)
    host.php(CGI)
    host.write(INI)
    host.registry = document(record("a"), record("b", path=BAD), record("c"))
    assert host.tamrix("--reread") == ok(
        err=f"[Warning] removing handler `8.1.2' (b) due to errors in getting php version :{message}\n")
    assert host.registry == document(record("a"), record("c"))


@pytest.mark.parametrize("name", SERVED)
def test_the_version_is_read_when_the_interpreter(host, name):
    body, version = SERVED[name]
    interpreter(host, body)
    before = time.monotonic()
    assert host.tamrix(*ADD, stdin="caller's") == ok("x\n")
    assert time.monotonic() - before < 20
    assert host.registry == document(record("x", path=BAD, version=version))


@pytest.mark.parametrize("hold", ["sleep 0.4 &", "setsid sleep 0.4 >/dev/null &", "setsid sleep 0.4 2>/dev/null &"])
def test_a_process_that_keeps_an_output_is_waited_for(host, hold):
    interpreter(host, f"echo PHP 8.1\n{hold}")
    before = time.monotonic()
    assert host.tamrix(*ADD) == ok("x\n")
    assert time.monotonic() - before >= 0.4


def test_a_ten_megabyte_line_without_version_is_shown_whole(host):
    interpreter(host, "head -c 10000000 /dev/zero | tr '\\0' o")
    assert host.tamrix(*ADD) == failed("Unable to parse php version : " + "o" * 10_000_000 + "\n")


def test_an_interpreter_that_waits_for_input_is_not_left_waiting(host):
    """Even when the caller's own input never ends."""
    interpreter(host, "cat >/dev/null; echo PHP 8.1")
    assert host.shell('mkfifo /tmp/open && exec "$@" <>/tmp/open', *ADD, timeout=30) == ok("x\n")


@pytest.mark.parametrize("version", ["8.1", "9" * 4087])
def test_a_version_up_to_the_length_of_a_value_is_kept(host, version):
    interpreter(host, f"echo PHP {version}")
    assert host.tamrix(*ADD) == ok("x\n")
    assert host.tamrix("--list-json") == ok(document(record("x", path=BAD, version=version, displayname=version)))


def test_a_longer_version_is_stored_as_null_and_refused_from_then_on(host):
    interpreter(host, f"echo PHP {'9' * 4088}")
    assert host.tamrix(*ADD) == ok("x\n")
    text = document(record("x", path=BAD, version="@")).replace('"@"', "null")
    assert host.registry == text
    refused = host.tamrix("--list")
    assert refused == failed(
        "Error reading /etc/ovt/php_versions.json: can not parse php_versions_info object : String is expected."
        f" Error occured at offset {text.index('null')}, character 'n'. \n")
