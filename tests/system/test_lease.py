"""A file that another process holds a lease on: the lease's holder is asked for it and waited for."""

import pytest

from private_host import HOOK_LOG, REGISTRY, TAMRIX, ok
from registry_text import CGI, INI, document, record

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
def test_a_change_keeps_every_record(host, kind):
    host.php(CGI)
    host.registry = document(record("old1"), record("old2"))
    result = host.run("/usr/bin/python3", "-c", HOLDER, kind, REGISTRY, TAMRIX,
                      "--add", "--path", CGI, "--phpini", INI, "--type", "cgi", "--id", "new")
    assert result == ok("new\n")
    assert host.registry == document(record("old1"), record("old2"), record("new"))


@pytest.mark.parametrize("kind", ["write", "read"])
def test_no_record_of_a_hook_is_lost(host, kind):
    host.php(CGI)
    host.hook("10-hook")
    host.write(HOOK_LOG, "older\n")
    result = host.run("/usr/bin/python3", "-c", HOLDER, kind, HOOK_LOG, TAMRIX,
                      "--add", "--path", CGI, "--phpini", INI, "--type", "cgi", "--id", "new")
    assert result == ok("new\n")
    assert host.hook_log == (
        "older\n"
        "[TIME] Start: /etc/ovt/php_configurator.d/10-hook add\n"
        "PHP_CLI = \n"
        "PHP_ID = new\n"
        "PHP_INI = /opt/ovt/php/php.ini\n"
        "PHP_PATH = /opt/ovt/php/php-cgi\n"
        "PHP_TYPE = cgi\n"
        "PHP_VERSION = 8.1.2\n"
        "stdout: \n"
        "stderr: \n"
        "Exit code: 0\n")
