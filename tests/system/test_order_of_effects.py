"""The order in which a command does things, where only an observer in the middle can tell."""

import pytest

from private_host import REGISTRY, failed, ok
from registry_text import CGI, CLI, INI, document, record

ADD = ("--add", "--path", CGI, "--phpini", INI, "--id", "x", "--type", "cgi")
# What the registry file holds at the moment when a hook runs.
SHOW_REGISTRY = f"cat {REGISTRY} >/opt/ovt/seen"


@pytest.fixture
def php_host(host):
    host.php(CGI)
    host.write(INI)
    return host


def test_an_update_is_saved_before_the_hooks_run(php_host):
    php_host.registry = document(record("a", version="1"))
    php_host.hook("10-look", SHOW_REGISTRY)
    assert php_host.tamrix("--update", "--id", "a", "--path", CGI) == ok()
    assert php_host.read("/opt/ovt/seen") == document(record("a", version="8.1.2"))


def test_a_removal_is_saved_before_the_hooks_run(php_host):
    php_host.registry = document(record("a"), record("b"))
    php_host.hook("10-look", SHOW_REGISTRY)
    assert php_host.tamrix("--remove", "--id", "a") == ok()
    assert php_host.read("/opt/ovt/seen") == document(record("b"))


def test_an_addition_is_saved_before_the_hooks_run(php_host):
    php_host.hook("10-look", SHOW_REGISTRY)
    assert php_host.tamrix(*ADD) == ok("x\n")
    assert php_host.read("/opt/ovt/seen") == document(record("x"))


def test_the_registry_is_saved_before_the_id_is_printed(php_host):
    # Nobody reads the id: the signal of the broken pipe ends the program at that moment.
    php_host.hook("10-hook")
    php_host.shell('mkfifo /tmp/pipe; : </tmp/pipe & exec 3>/tmp/pipe; wait; trap - PIPE; "$@" >&3', *ADD)
    assert php_host.registry == document(record("x"))
    assert php_host.calls == [f"{CGI} -n -v"]


def test_a_followed_version_is_taken_over_before_the_php_cli_is_probed(php_host):
    php_host.write("/etc/ovt/php_versions.d/x.conf",
                   f"displayname=\npath={CGI}\nclipath=/gone\nphpini={INI}\ntype=cgi\nid=cgi\n")
    assert php_host.tamrix("--reread") == ok(
        err="[Warning] removing handler `8.1.2' (cgi) due to errors in getting php version :"
            "Binary /gone doesn't exists\n")


def test_a_handler_whose_executable_is_gone_gets_no_other_warning(php_host):
    php_host.registry = document(record("a", path="/gone", phpini="", clipath="/gone"))
    assert php_host.tamrix("--reread") == ok(
        err="[Warning] removing handler `8.1.2' (a) as corresponding /gone doesn't exist\n")
    assert php_host.calls == ["/opt/ovt/admin/sbin/depotctl --set-dirty-flag"]


def test_the_limit_is_set_before_a_reread_is_saved(php_host):
    php_host.registry = document(record("a", type="fpm", service="s", version="1"))
    php_host.recorder("/opt/ovt/admin/sbin/quotagate", SHOW_REGISTRY)
    assert php_host.tamrix("--reread") == ok()
    assert php_host.read("/opt/ovt/seen") == document(record("a", type="fpm", service="s", version="1"))


def test_hooks_run_before_the_dirty_flag_is_set(php_host):
    php_host.registry = document(record("a"))
    php_host.hook("10-hook")
    assert php_host.tamrix("--update", "--id", "a", "--displayname", "n") == ok()
    assert php_host.calls == ["/etc/ovt/php_configurator.d/10-hook update",
                              "/opt/ovt/admin/sbin/depotctl --set-dirty-flag"]
