"""--reread: which failures cost one handler, and which end the command and leave the file alone."""

import os

import pytest

from private_host import PACKAGES, ok
from registry_text import CGI, INI, document, record

DIRTY = "/opt/ovt/admin/sbin/depotctl --set-dirty-flag"
# Nothing but memory is short; an interpreter that prints without end uses it up.
ENDLESS = "head -c 900000000 /dev/zero"
SHORT_OF_MEMORY = 'ulimit -v 500000; exec "$@"'


@pytest.fixture
def php_host(host):
    host.php(CGI)
    host.write(INI)
    return host


def test_an_error_of_the_file_system_costs_one_handler(php_host):
    os.symlink("loop", php_host.path("/opt/ovt/loop"))
    php_host.registry = document(record("a", clipath="/opt/ovt/loop"), record("b"))
    assert php_host.tamrix("--reread") == ok(
        err="[Warning] removing handler `8.1.2' (a) due to errors in getting php version :"
            "filesystem error: status: Too many levels of symbolic links [/opt/ovt/loop]\n")
    assert php_host.registry == document(record("b"))
    assert php_host.calls[-1] == DIRTY


def test_a_package_folder_that_cannot_be_listed_ends_the_command(php_host):
    php_host.write(f"{PACKAGES}/x.conf", "")
    before = document(record("a", system=True))
    php_host.registry = before
    php_host.path(PACKAGES).chmod(0o300)
    result = php_host.shell('exec setpriv --bounding-set -dac_override,-dac_read_search "$@"', "--reread")
    text = ("Fatal error: std::filesystem::__cxx11::filesystem_error(filesystem error: directory iterator cannot "
            f"open directory: Permission denied [{PACKAGES}])\n")
    assert (result.status, result.out, result.err) == (1, text, text)
    assert php_host.registry == before
    assert php_host.calls == []


def test_running_out_of_memory_ends_the_command(php_host, plain_binary):
    php_host.recorder("/opt/ovt/endless", ENDLESS)
    before = document(record("a", path="/opt/ovt/endless"), record("b"))
    php_host.registry = before
    result = php_host.shell(SHORT_OF_MEMORY, "--reread")
    text = "Fatal error: std::bad_alloc(std::bad_alloc)\n"
    assert (result.status, result.out, result.err) == (1, text, text)
    assert php_host.registry == before


def test_running_out_of_memory_for_a_twin_ends_the_command(php_host, plain_binary):
    php_host.recorder("/opt/ovt/endless", ENDLESS)
    php_host.write(f"{PACKAGES}/x.conf", f"displayname=n\npath=/opt/ovt/endless\nclipath=\nphpini={INI}\ntype=fpm\n"
                                         "service=s\npoold=/p\n")
    php_host.registry = document(record("b"))
    result = php_host.shell(SHORT_OF_MEMORY, "--reread")
    assert (result.status, result.err) == (1, "Fatal error: std::bad_alloc(std::bad_alloc)\n")
    assert php_host.registry == document(record("b"))
