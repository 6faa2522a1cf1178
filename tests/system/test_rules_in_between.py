"""Rules that show only where two of them meet."""

import os

import pytest

from private_host import PACKAGES, failed, ok
from registry_text import CGI, CLI, INI, document, record

ADD = ("--add", "--path", CGI, "--phpini", INI, "--id", "x")
DIRTY = "/opt/ovt/admin/sbin/depotctl --set-dirty-flag"
NO_HOOKS = ("Fatal error: std::filesystem::__cxx11::filesystem_error(filesystem error: directory iterator cannot open "
            "directory: No such file or directory [/etc/ovt/php_configurator.d/])\n")


@pytest.fixture
def php_host(host):
    host.php(CGI)
    host.write(INI)
    return host


@pytest.mark.parametrize("type,message", [
    ("module", "Unable to create custom handler with type `module'\n"),
    ("FPM", "Unknown php handler type : FPM\n")])
def test_the_type_is_refused_before_the_php_cli_is_probed(php_host, type, message):
    assert php_host.tamrix(*ADD, "--type", type, "--clipath", "/gone") == failed(message)
    assert php_host.calls == [f"{CGI} -n -v"]


def test_without_a_hook_folder_an_update_is_saved_and_the_flag_not_set(php_host):
    php_host.registry = document(record("a"))
    php_host.path("/etc/ovt/php_configurator.d").rmdir()
    assert php_host.tamrix("--update", "--id", "a", "--displayname", "n") == failed(NO_HOOKS, NO_HOOKS)
    assert php_host.registry == document(record("a", displayname="n"))
    assert php_host.calls == []


def test_without_a_package_folder_custom_handlers_are_verified(php_host):
    php_host.path(PACKAGES).rmdir()
    php_host.registry = document(record("a", version="1"), record("gone", path="/gone"), record("s", system=True))
    assert php_host.tamrix("--reread") == ok(
        err="[Warning] removing handler `8.1.2' (gone) as corresponding /gone doesn't exist\n")
    assert php_host.registry == document(record("a", version="8.1.2"))


@pytest.mark.parametrize("path", ["/opt/ovt/closed/php", "/" + "x" * 300, "/opt/ovt/loop"])
def test_a_path_that_cannot_be_examined_counts_as_missing(php_host, path):
    php_host.path("/opt/ovt/closed").mkdir()
    php_host.php("/opt/ovt/closed/php")
    os.symlink("loop", php_host.path("/opt/ovt/loop"))
    php_host.path("/opt/ovt/closed").chmod(0)
    php_host.registry = document(record("a", path=path), record("b", phpini=path))
    result = php_host.shell('exec setpriv --bounding-set -dac_override,-dac_read_search "$@"', "--reread")
    php_host.path("/opt/ovt/closed").chmod(0o755)
    assert result == ok(
        err=f"[Warning] removing handler `8.1.2' (a) as corresponding {path} doesn't exist\n"
            f"[Warning] {path} for handler `8.1.2' (b) is lost. Trying without php.ini.\n")
    assert php_host.registry == document(record("b", phpini=path))


def test_a_lost_php_ini_is_told_before_the_probe(php_host):
    php_host.php(CGI, status=1)
    php_host.registry = document(record("a", phpini="/lost"))
    assert php_host.tamrix("--reread") == ok(
        err="[Warning] /lost for handler `8.1.2' (a) is lost. Trying without php.ini.\n"
            f"[Warning] removing handler `8.1.2' (a) due to errors in getting php version :can not get version from {CGI}\n")


def test_a_version_of_very_many_parts_costs_one_handler(php_host):
    php_host.recorder("/opt/ovt/endless", "printf 'PHP 8'; head -c 400000 /dev/zero | tr '\\0' . | sed 's/\\./.1/g'; echo")
    php_host.registry = document(record("a", path="/opt/ovt/endless"), record("b"))
    result = php_host.tamrix("--reread")
    assert result.status == 0
    assert result.err.startswith(
        "[Warning] removing handler `8.1.2' (a) due to errors in getting php version :Ran out of stack space")
    assert php_host.registry == document(record("b"))


def test_an_unreadable_registry_is_empty_and_the_next_change_writes_it_over(php_host):
    php_host.registry = document(record("old"))
    php_host.path("/etc/ovt/php_versions.json").chmod(0o200)
    result = php_host.shell('exec setpriv --bounding-set -dac_override,-dac_read_search "$@"', *ADD, "--type", "cgi")
    php_host.path("/etc/ovt/php_versions.json").chmod(0o644)
    assert result == ok("x\n")
    assert php_host.registry == document(record("x"))
