"""--add: what it stores, prints and calls, and in which order."""

import os
import re

import pytest

from private_host import failed, ok
from registry_text import CGI, CLI, INI, document, record

# sha1 of "$version /opt/ovt/php/php-cgi /opt/ovt/php/php.ini cgi", and of the same with other names and types.
CGI_ID = "e516cdbfb8dd9628f74d76d62e404c8c9bffeb05"
FASTCGI_ID = "0ae8618c78c0ba874bbae0495f1503f1126ed1be"
EMPTY_NAME_ID = "61b11cdaac97068f2b64d1dc912e545138bbb518"
DIRTY = "/opt/ovt/admin/sbin/depotctl --set-dirty-flag"
HOOK = "/etc/ovt/php_configurator.d/10-hook"
ADD = ("--add", "--path", CGI, "--phpini", INI, "--type")


@pytest.fixture
def php_host(host):
    host.php(CGI)
    host.php(CLI, "PHP 8.1.2 (cli) (built: Jan  1 2024 00:00:00) (NTS)\n")
    return host


def test_without_id_a_computed_one_is_printed_and_stored(php_host):
    assert php_host.tamrix(*ADD, "cgi") == ok(CGI_ID + "\n")
    assert php_host.registry == document(record(CGI_ID))
    assert php_host.calls == [f"{CGI} -n -v", DIRTY]


def test_the_same_again_fails_as_a_duplicate_whatever_the_version(php_host):
    php_host.tamrix(*ADD, "cgi")
    php_host.php(CGI, "PHP 9.0 (cgi-fcgi)\n")
    before = php_host.registry
    assert php_host.tamrix(*ADD, "cgi") == failed(f"Handler with id = `{CGI_ID}' already exists\n")
    assert php_host.registry == before


def test_another_type_has_another_id_and_is_appended(php_host):
    php_host.tamrix(*ADD, "cgi")
    assert php_host.tamrix(*ADD, "fastcgi") == ok(FASTCGI_ID + "\n")
    assert php_host.registry == document(record(CGI_ID), record(FASTCGI_ID, type="fastcgi"))


def test_an_empty_display_name_is_taken_as_it_is(php_host):
    assert php_host.tamrix(*ADD, "cgi", "--displayname", "") == ok(EMPTY_NAME_ID + "\n")
    assert php_host.registry == document(record(EMPTY_NAME_ID, displayname=""))


def test_a_display_name_is_stored_escaped_and_read_back(php_host):
    name = "PHP 8.1 (custom) $version \u00e4\udcff\"~-._"
    assert php_host.tamrix(*ADD, "cgi", "--id", "x", "--displayname", name) == ok("x\n")
    assert php_host.registry == document(
        record("x", displayname="PHP%208.1%20%28custom%29%20%24version%20%C3%A4%FF%22~-._"))
    assert ('\t"displayname":"PHP 8.1 (custom) 8.1.2 \u00e4\udcff\\"~-._",\n'
            in php_host.tamrix("--list-json").out)


@pytest.mark.parametrize("id,stored", [
    ("plain", "plain"), (" with blanks ", " with blanks "), ("q\"b\\", 'q\\"b\\\\'), ("\u00e4\udcff", "\u00e4\udcff"),
    ("--path", "--path"), ("a\tb\nc", "a\\tb\\nc"), ("module", "module"), ("\x7f/", "\x7f/")])
def test_a_given_id_is_taken_as_it_is(php_host, id, stored):
    assert php_host.tamrix(*ADD, "cgi", "--id", id) == ok(id + "\n")
    assert php_host.registry == document(record(stored))
    assert php_host.tamrix("--list-json").out == document(record(stored, displayname="8.1.2"))


def test_an_id_with_a_control_byte_is_written_as_an_escape_that_the_next_load_refuses(php_host):
    assert php_host.tamrix(*ADD, "cgi", "--id", "a\x01") == ok("a\x01\n")
    assert php_host.registry == document(record("a\\u0001"))
    result = php_host.tamrix("--list")
    assert result.status == 1
    assert result.err.endswith(" Error occured at offset 20, character 'u'. \n")


def test_a_too_long_id_is_saved_as_null_which_the_next_load_refuses(php_host):
    assert php_host.tamrix(*ADD, "cgi", "--id", "a" * 4088) == ok("a" * 4088 + "\n")
    assert php_host.registry == document(record("ID")).replace('"ID"', "null")
    assert php_host.tamrix("--list") == failed(
        "Error reading /etc/ovt/php_versions.json: can not parse php_versions_info object : String is expected."
        " Error occured at offset 17, character 'n'. \n")


@pytest.mark.parametrize("count,stored", [(1362, '"' + "%FF" * 1362 + '"'), (1363, "null")])
def test_the_limit_counts_the_escaped_display_name(php_host, count, stored):
    assert php_host.tamrix(*ADD, "cgi", "--id", "x", "--displayname", "\udcff" * count) == ok("x\n")
    assert php_host.registry == document(record("x", displayname="NAME")).replace('"NAME"', stored)


def test_every_step_in_its_order(php_host):
    php_host.hook("10-hook", 'grep -c \'"id":"f"\' /etc/ovt/php_versions.json >>/opt/ovt/calls')
    php_host.hook("20-hook")
    result = php_host.tamrix(
        *ADD, "fpm", "--clipath", CLI, "--service", "php-fpm", "--poold", "/pool.d", "--id", "f")
    assert result == ok("f\n")
    assert php_host.calls == [
        f"{CGI} -n -v",
        f"{CLI} -n -v",
        "/opt/ovt/admin/sbin/quelmrc php-fpm exists",
        "/opt/ovt/admin/sbin/quotagate --set 8192 --service php-fpm --no-restart",
        HOOK + " add",
        "1",
        "/etc/ovt/php_configurator.d/20-hook add",
        DIRTY,
    ]
    assert php_host.registry == document(
        record("f", clipath=CLI, type="fpm", service="php-fpm", poold="/pool.d"))


def test_service_and_pool_of_another_type_are_ignored(php_host):
    assert php_host.tamrix(*ADD, "cgi", "--id", "c", "--service", "x", "--poold", "y") == ok("c\n")
    assert php_host.registry == document(record("c"))
    assert php_host.calls == [f"{CGI} -n -v", DIRTY]


def test_a_cli_of_another_version_is_warned_of(php_host):
    php_host.php(CLI, "PHP 8.1.3 (cli)\n")
    assert php_host.tamrix(*ADD, "cgi", "--id", "c", "--clipath", CLI) == ok(
        "c\n", "[Warning] versions of php-cgi and php-cli do not match: 8.1.2 != 8.1.3\n")
    assert php_host.registry == document(record("c", clipath=CLI))


def test_the_switch_skips_only_the_dirty_flag(php_host):
    php_host.hook("10-hook")
    assert php_host.tamrix(*ADD, "cgi", "--id", "c", "--no-set-dirty-flag") == ok("c\n")
    assert php_host.calls == [f"{CGI} -n -v", HOOK + " add"]
    assert php_host.registry == document(record("c"))


def test_a_loaded_duplicate_is_dropped_by_the_save(php_host):
    php_host.registry = document(record("a"), record("a", version="2"))
    assert php_host.tamrix(*ADD, "cgi", "--id", "b") == ok(
        "b\n", "[Warning] conflicting handler with id `a' found. Ignoring\n")
    assert php_host.registry == document(record("a"), record("b"))


def test_the_file_is_rewritten_in_place(php_host):
    php_host.registry = document(record("a"))
    path = php_host.path("/etc/ovt/php_versions.json")
    path.chmod(0o604)
    os.link(path, php_host.path("/etc/ovt/link"))
    php_host.tamrix(*ADD, "cgi", "--id", "b")
    assert php_host.read("/etc/ovt/link") == document(record("a"), record("b"))
    assert path.stat().st_mode & 0o777 == 0o604
    assert sorted(os.listdir(path.parent)) == [
        "link", "php_configurator.d", "php_versions.d", "php_versions.json"]


@pytest.mark.parametrize("umask,mode", [("022", 0o644), ("077", 0o600), ("000", 0o666)])
def test_a_new_file_gets_the_default_mode(php_host, umask, mode):
    assert php_host.shell(f'umask {umask}; exec "$@"', *ADD, "cgi", "--id", "c") == ok("c\n")
    assert php_host.path("/etc/ovt/php_versions.json").stat().st_mode & 0o777 == mode


def test_the_id_is_printed_once_although_children_follow(php_host):
    php_host.write("/etc/ovt/php_configurator.d/10-bad", "#!/no/such/shell\n", 0o755)
    assert php_host.tamrix(*ADD, "cgi", "--id", "once") == ok("once\n")
    assert "once" not in re.sub(r"PHP_ID = once\n", "", php_host.hook_log)


@pytest.mark.parametrize("content", [
    "openssl_conf = init\n[init]\nalg_section = evp\n[evp]\ndefault_properties = fips=yes\n",
    "openssl_conf = init\n[init]\nproviders = all\n[all]\nlegacy = on\n[on]\nactivate = 1\n",
    "broken"])
def test_the_computed_id_does_not_depend_on_the_library_configuration(php_host, content):
    php_host.write("/opt/ovt/openssl.cnf", content)
    result = php_host.tamrix(*ADD, "cgi", env={"OPENSSL_CONF": "/opt/ovt/openssl.cnf"})
    assert result == ok(CGI_ID + "\n")


def test_a_registry_that_cannot_be_written_is_reported_to_the_system_log_only(php_host):
    php_host.open_log()
    php_host.path("/etc/ovt/php_versions.json").mkdir()
    assert php_host.tamrix(*ADD, "cgi", "--id", "c") == ok("c\n")
    read, written = php_host.log_messages()
    for message in (read, written):
        assert message.startswith("<11>") and re.search(r" tamrix\[\d+\]: ", message)
    assert read.endswith(": Unable to read /etc/ovt/php_versions.json: not a regular file")
    assert written.endswith(": Unable to open /etc/ovt/php_versions.json: Is a directory")
    assert php_host.calls == [f"{CGI} -n -v", DIRTY]


def test_an_unreadable_registry_is_replaced_by_the_new_record(php_host):
    php_host.registry = ""
    assert php_host.tamrix(*ADD, "cgi", "--id", "c") == ok("c\n")
    assert php_host.registry == document(record("c"))


@pytest.mark.parametrize("words", [
    ["--id=c", f"--path={CGI}", f"--phpini={INI}", "--type=cgi"],
    ["--i", "c", "--pa", CGI, "--ph=" + INI, "--t", "cgi", "--no-set"],
    ["--id", "c", "stray", "--path", CGI, "--phpini", INI, "--type", "cgi", "", "more"],
    ["--id", "c", "--path", CGI, "--phpini", INI, "--type", "cgi", "--", "--id", "d", "--bogus"]])
def test_the_spellings_of_options(php_host, words):
    assert php_host.tamrix("--add", *words) == ok("c\n")
    assert php_host.registry == document(record("c"))


def test_a_value_may_look_like_an_option(php_host):
    assert php_host.tamrix(*ADD, "cgi", "--id", "c", "--displayname", "--id") == ok("c\n")
    assert php_host.registry == document(record("c", displayname="--id"))


def test_values_with_every_readable_control_byte_survive(php_host):
    ini = "/tab\t/newline\n/return\r/back\b/feed\f/\"quoted\"/\\/\x7f/\udc80"
    words = ["--add", "--path", CGI, "--phpini", ini, "--type", "cgi", "--id"]
    assert php_host.tamrix(*words, "c") == ok("c\n")
    stored = '/tab\\t/newline\\n/return\\r/back\\b/feed\\f/\\"quoted\\"/\\\\/\x7f/\udc80'
    assert php_host.registry == document(record("c", phpini=stored))
    assert php_host.tamrix(*words, "d") == ok("d\n")
    assert php_host.registry == document(record("c", phpini=stored), record("d", phpini=stored))


def test_a_php_ini_that_does_not_exist_is_not_looked_at(php_host):
    assert php_host.tamrix("--add", "--path", CGI, "--phpini", "", "--type", "cgi", "--id", "c") == ok("c\n")
    assert php_host.registry == document(record("c", phpini=""))
