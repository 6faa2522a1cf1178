"""What holds a run up from outside, without end when the other side never moves.

Expected: the C library opens what TZ names and hands a message to a system log that is listening, and a file on which
another process holds a lease is asked for; none is given up, and once the other side moves the run goes on as if
nothing had been."""

import threading
import time

import pytest

from commands import ADD
from private_host import HOOK_LOG, REGISTRY, TAMRIX, ok
from registry_text import CGI, INI, document, record

SECONDS = 0.5
# Holds a lease of the given kind, gives it back when asked, and runs a command meanwhile.
HOLDER = """
import fcntl, os, signal, subprocess, sys
kind = {"write": fcntl.F_WRLCK, "read": fcntl.F_RDLCK}[sys.argv[1]]
descriptor = os.open(sys.argv[2], os.O_RDWR if kind == fcntl.F_WRLCK else os.O_RDONLY)
signal.signal(signal.SIGIO, lambda *_: fcntl.fcntl(descriptor, fcntl.F_SETLEASE, fcntl.F_UNLCK))
fcntl.fcntl(descriptor, fcntl.F_SETLEASE, kind)
sys.exit(subprocess.run(sys.argv[3:]).returncode)
"""


@pytest.mark.parametrize("kind", ["write", "read"])
@pytest.mark.parametrize("file", [REGISTRY, HOOK_LOG])
def test_a_lease_is_waited_for_and_no_record_lost(php_host, file, kind):
    php_host.registry = document(record("old1"), record("old2"))
    php_host.hook("10-hook")
    php_host.write(HOOK_LOG, "older\n")
    assert php_host.run("/usr/bin/python3", "-c", HOLDER, kind, file, TAMRIX, *ADD) == ok("x\n")
    assert php_host.registry == document(record("old1"), record("old2"), record("x"))
    assert php_host.hook_log == (
        "older\n"
        f"[TIME] Start: /etc/ovt/php_configurator.d/10-hook add\nPHP_CLI = \nPHP_ID = x\nPHP_INI = {INI}\n"
        f"PHP_PATH = {CGI}\nPHP_TYPE = cgi\nPHP_VERSION = 8.1.2\nstdout: \nstderr: \nExit code: 0\n")


def test_a_zone_that_is_a_fifo_is_waited_for(php_host):
    script = (f'mkfifo /tmp/zone; (sleep {SECONDS}; : >/tmp/zone) & '
              'export TZ=:/tmp/zone; exec "$@"')
    php_host.hook("10-hook")
    before = time.monotonic()
    assert php_host.shell(script, *ADD, timeout=20) == ok("x\n")
    assert time.monotonic() - before >= SECONDS
    assert php_host.hook_log.startswith("[TIME] Start: ")


def test_a_system_log_whose_reader_has_stopped_is_waited_for(php_host):
    php_host.open_log()
    php_host.path(REGISTRY).mkdir()
    fill = ("import socket\nlog = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_NONBLOCK)\n"
            "log.connect('/dev/log')\n"
            "try:\n    while True: log.send(b'filler')\nexcept BlockingIOError: print('full')")
    assert php_host.run("/usr/bin/python3", "-c", fill) == ok("full\n")
    results = []
    run = threading.Thread(target=lambda: results.append(php_host.tamrix(*ADD, timeout=20)))
    run.start()
    run.join(SECONDS)
    assert run.is_alive()
    messages = php_host.log_messages()
    run.join()
    messages += php_host.log_messages()
    assert results == [ok("x\n")]
    assert set(messages[:-2]) == {"filler"}
    assert messages[-2].endswith(f"Unable to read {REGISTRY}: not a regular file")
    assert messages[-1].endswith(f"Unable to open {REGISTRY}: Is a directory")
