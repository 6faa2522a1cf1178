"""Values that are given but empty or odd, and what is kept when nothing is given."""

import pytest

from private_host import PACKAGES, failed, ok
from registry_text import CGI, INI, document, record

FPM_ADD = ("--add", "--path", CGI, "--phpini", INI, "--id", "x", "--type", "fpm")


@pytest.fixture
def php_host(host):
    host.php(CGI)
    host.write(INI)
    return host


def test_an_empty_pool_directory_is_given(php_host):
    assert php_host.tamrix(*FPM_ADD, "--service", "s", "--poold", "") == ok("x\n")
    assert php_host.registry == document(record("x", type="fpm", service="s"))
    assert php_host.calls == [f"{CGI} -n -v", "/opt/ovt/admin/sbin/quelmrc s exists",
                              "/opt/ovt/admin/sbin/quotagate --set 8192 --service s --no-restart",
                              "/opt/ovt/admin/sbin/depotctl --set-dirty-flag"]


def test_an_empty_service_is_checked_by_an_update_too(php_host):
    before = document(record("a", type="fpm", service="s", poold="/p"))
    php_host.registry = before
    php_host.tool("quelmrc", status=1)
    assert php_host.tamrix("--update", "--id", "a", "--service", "") == failed(": service not found.\n")
    assert php_host.calls == ["/opt/ovt/admin/sbin/quelmrc  exists"]
    assert php_host.registry == before


def test_service_and_pool_directory_of_the_file_survive_a_switch_to_fpm(php_host):
    php_host.registry = document(record("a")).replace('"system":false', '"system":false,\n\t"service":"s",\n\t"poold":"/p"')
    assert php_host.tamrix("--update", "--id", "a", "--type", "fpm") == ok()
    assert php_host.registry == document(record("a", type="fpm", service="s", poold="/p"))


def test_a_php_ini_of_any_kind_exists(php_host):
    php_host.registry = document(record("a", phpini="/opt/ovt"))
    assert php_host.tamrix("--reread") == ok()
    assert php_host.registry == document(record("a", phpini="/opt/ovt"))


def test_a_section_with_the_name_of_a_key_reads_as_an_empty_value(php_host):
    php_host.write(f"{PACKAGES}/x.conf",
                   f"path={CGI}\nclipath=\nphpini={INI}\ntype=cgi\nid=x\n[displayname]\nk=v\n")
    assert php_host.tamrix("--reread") == ok()
    assert php_host.registry == document(record("x", displayname="", system=True))
