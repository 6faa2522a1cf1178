"""What holds a run up from outside, without end when the other side never moves.

Expected: the C library opens what TZ names and hands a message to a system log that is listening; neither is given
up, and once the other side moves the run goes on as if nothing had been."""

import threading
import time

import pytest

from private_host import REGISTRY, ok
from registry_text import CGI, INI

ADD = ("--add", "--path", CGI, "--phpini", INI, "--type", "cgi", "--id", "x")
SECONDS = 0.5


@pytest.fixture
def waiting_host(host):
    host.php(CGI)
    host.open_log()
    return host


def test_a_zone_that_is_a_fifo_is_waited_for(waiting_host):
    script = (f'mkfifo /tmp/zone; (sleep {SECONDS}; : >/tmp/zone) & '
              'export TZ=:/tmp/zone; exec "$@"')
    waiting_host.hook("10-hook")
    before = time.monotonic()
    assert waiting_host.shell(script, *ADD, timeout=20) == ok("x\n")
    assert time.monotonic() - before >= SECONDS
    assert waiting_host.hook_log.startswith("[TIME] Start: ")


def test_a_system_log_whose_reader_has_stopped_is_waited_for(waiting_host):
    waiting_host.path(REGISTRY).mkdir()
    fill = ("import socket\nlog = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_NONBLOCK)\n"
            "log.connect('/dev/log')\n"
            "try:\n    while True: log.send(b'filler')\nexcept BlockingIOError: print('full')")
    assert waiting_host.run("/usr/bin/python3", "-c", fill) == ok("full\n")
    results = []
    run = threading.Thread(target=lambda: results.append(waiting_host.tamrix(*ADD, timeout=20)))
    run.start()
    run.join(SECONDS)
    assert run.is_alive()
    messages = waiting_host.log_messages()
    run.join()
    messages += waiting_host.log_messages()
    assert results == [ok("x\n")]
    assert set(messages[:-2]) == {"filler"}
    assert messages[-2].rstrip("\0").endswith(f"Unable to read {REGISTRY}: not a regular file")
    assert messages[-1].rstrip("\0").endswith(f"Unable to open {REGISTRY}: Is a directory")
