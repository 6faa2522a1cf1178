"""--add: what it stores, prints, calls and refuses, and in which order."""

import os
import re

import pytest

from commands import ADD, CLI_PROBE, COMMANDS, DIRTY, HOOK, PROBE
from private_host import HOOKS, REGISTRY, SBIN, failed, fatal, ok
from registry_text import CGI, CLI, INI, document, record

# sha1 of "$version /opt/ovt/php/php-cgi /opt/ovt/php/php.ini cgi", and of the same with other names and types.
CGI_ID = "e516cdbfb8dd9628f74d76d62e404c8c9bffeb05"
FASTCGI_ID = "0ae8618c78c0ba874bbae0495f1503f1126ed1be"
EMPTY_NAME_ID = "61b11cdaac97068f2b64d1dc912e545138bbb518"
BARE = ("--add", "--path", CGI, "--phpini", INI, "--type")
FPM = (*BARE, "fpm", "--id", "x")
SERVICE = f"{SBIN}/quelmrc php-fpm exists"
ULIMIT = f"{SBIN}/quotagate --set 8192 --service php-fpm --no-restart"
EXISTS = "Handler with id = `{}' already exists\n"


def test_without_id_a_computed_one_is_printed_and_stored(php_host):
    assert php_host.tamrix(*BARE, "cgi") == ok(CGI_ID + "\n")
    assert php_host.registry == document(record(CGI_ID))
    assert php_host.calls == [PROBE, DIRTY]
    php_host.php(CGI, "PHP 9.0 (cgi-fcgi)\n")
    # The same again, whatever the version.
    assert php_host.tamrix(*BARE, "cgi") == failed(EXISTS.format(CGI_ID))
    assert php_host.registry == document(record(CGI_ID))
    assert php_host.tamrix(*BARE, "fastcgi") == ok(FASTCGI_ID + "\n")
    assert php_host.tamrix(*BARE, "cgi", "--displayname", "") == ok(EMPTY_NAME_ID + "\n")
    assert php_host.registry == document(
        record(CGI_ID), record(FASTCGI_ID, type="fastcgi", version="9.0"),
        record(EMPTY_NAME_ID, displayname="", version="9.0"))


def test_a_display_name_is_stored_escaped_and_read_back(php_host):
    name = "PHP 8.1 (custom) $version \u00e4\udcff\"~-._"
    assert php_host.tamrix(*ADD, "--displayname", name) == ok("x\n")
    assert php_host.registry == document(
        record("x", displayname="PHP%208.1%20%28custom%29%20%24version%20%C3%A4%FF%22~-._"))
    assert ('\t"displayname":"PHP 8.1 (custom) 8.1.2 \u00e4\udcff\\"~-._",\n'
            in php_host.tamrix("--list-json").out)


@pytest.mark.parametrize("id,stored", [
    ("plain", "plain"), (" with blanks ", " with blanks "), ("q\"b\\", 'q\\"b\\\\'), ("\u00e4\udcff", "\u00e4\udcff"),
    ("--path", "--path"), ("a\tb\nc", "a\\tb\\nc"), ("module", "module"), ("\x7f/", "\x7f/")])
def test_a_given_id_is_taken_as_it_is(php_host, id, stored):
    assert php_host.tamrix(*BARE, "cgi", "--id", id) == ok(id + "\n")
    assert php_host.registry == document(record(stored))
    assert php_host.tamrix("--list-json").out == document(record(stored, displayname="8.1.2"))


@pytest.mark.parametrize("id,stored,offset,shown", [
    ("a\x01", '"a\\u0001"', 20, "u"), ("a" * 4087, '"' + "a" * 4087 + '"', 0, ""), ("a" * 4088, "null", 17, "n")],
    ids=["control byte", "longest", "too long"])
def test_what_cannot_be_stored_is_written_as_something_that_the_next_load_refuses(php_host, id, stored, offset, shown):
    assert php_host.tamrix(*BARE, "cgi", "--id", id) == ok(id + "\n")
    assert php_host.registry == document(record("ID")).replace('"ID"', stored)
    refusal = f" Error occured at offset {offset}, character '{shown}'. \n"
    assert php_host.tamrix("--list").err.endswith(refusal if shown else "")


@pytest.mark.parametrize("count,stored", [(1362, '"' + "%FF" * 1362 + '"'), (1363, "null")])
def test_the_limit_counts_the_escaped_display_name(php_host, count, stored):
    assert php_host.tamrix(*ADD, "--displayname", "\udcff" * count) == ok("x\n")
    assert php_host.registry == document(record("x", displayname="NAME")).replace('"NAME"', stored)


def test_values_with_every_readable_control_byte_survive(php_host):
    ini = "/tab\t/newline\n/return\r/back\b/feed\f/\"quoted\"/\\/\x7f/\udc80"
    stored = '/tab\\t/newline\\n/return\\r/back\\b/feed\\f/\\"quoted\\"/\\\\/\x7f/\udc80'
    for id in "cd":
        assert php_host.tamrix("--add", "--path", CGI, "--phpini", ini, "--type", "cgi", "--id", id) == ok(f"{id}\n")
    assert php_host.registry == document(record("c", phpini=stored), record("d", phpini=stored))


def test_every_step_in_its_order(php_host):
    php_host.hook("10-hook", f'grep -c \'"id":"x"\' {REGISTRY} >>/opt/ovt/calls')
    php_host.hook("20-hook")
    words = ("--clipath", CLI, "--service", "php-fpm", "--poold", "/pool.d")
    assert php_host.tamrix(*FPM, *words) == ok("x\n")
    # The saved registry is what hooks see.
    assert php_host.calls == [PROBE, CLI_PROBE, SERVICE, ULIMIT, f"{HOOK} add", "1", f"{HOOKS}/20-hook add", DIRTY]
    assert php_host.registry == document(record("x", clipath=CLI, type="fpm", service="php-fpm", poold="/pool.d"))


def test_the_registry_is_saved_before_the_id_is_printed(php_host):
    # Nobody reads the id: the signal of the broken pipe ends the program at that moment.
    php_host.hook("10-hook")
    php_host.shell('mkfifo /tmp/pipe; : </tmp/pipe & exec 3>/tmp/pipe; wait; trap - PIPE; "$@" >&3', *ADD)
    assert php_host.registry == document(record("x"))
    assert php_host.calls == [PROBE]


@pytest.mark.parametrize("words,fields,calls", [
    ((*ADD, "--service", "x", "--poold", "y"), {}, [PROBE, f"{HOOK} add", DIRTY]),
    ((*ADD, "--no-set-dirty-flag"), {}, [PROBE, f"{HOOK} add"]),
    ((*FPM, "--service", "php-fpm", "--poold", ""), {"type": "fpm", "service": "php-fpm"},
     [PROBE, SERVICE, ULIMIT, f"{HOOK} add", DIRTY]),
    (("--add", "--path", CGI, "--phpini", "", "--type", "cgi", "--id", "x"), {"phpini": ""},
     [PROBE, f"{HOOK} add", DIRTY]),
    (("--add", "--path", CGI, "--phpini", "/no/such", "--type", "cgi", "--id", "x"), {"phpini": "/no/such"},
     [PROBE, f"{HOOK} add", DIRTY])],
    ids=["service and pool of another type", "without the flag", "empty pool", "empty php.ini", "missing php.ini"])
def test_what_is_stored_and_called(php_host, words, fields, calls):
    php_host.hook("10-hook")
    assert php_host.tamrix(*words) == ok("x\n")
    assert php_host.registry == document(record("x", **fields))
    assert php_host.calls == calls


def test_a_cli_of_another_version_is_warned_of(php_host):
    php_host.php(CLI, "PHP 8.1.3 (cli)\n")
    assert php_host.tamrix(*ADD, "--clipath", CLI) == ok(
        "x\n", "[Warning] versions of php-cgi and php-cli do not match: 8.1.2 != 8.1.3\n")
    assert php_host.registry == document(record("x", clipath=CLI))


def test_a_loaded_duplicate_is_dropped_by_the_save(php_host):
    php_host.registry = document(record("a"), record("a", version="2"))
    assert php_host.tamrix(*ADD) == ok("x\n", "[Warning] conflicting handler with id `a' found. Ignoring\n")
    assert php_host.registry == document(record("a"), record("x"))


def test_the_file_is_rewritten_in_place(php_host):
    """Two names and an owner's mode survive, because the file is never replaced by another."""
    php_host.registry = document(record("a"))
    path = php_host.path(REGISTRY)
    path.chmod(0o604)
    os.link(path, php_host.path("/etc/ovt/link"))
    php_host.tamrix(*ADD)
    assert php_host.read("/etc/ovt/link") == document(record("a"), record("x"))
    assert path.stat().st_mode & 0o777 == 0o604
    assert sorted(os.listdir(path.parent)) == ["link", "php_configurator.d", "php_versions.d", "php_versions.json"]


@pytest.mark.parametrize("umask,mode", [("022", 0o644), ("077", 0o600), ("000", 0o666)])
def test_a_new_file_gets_the_default_mode(php_host, umask, mode):
    assert php_host.shell(f'umask {umask}; exec "$@"', *ADD) == ok("x\n")
    assert php_host.path(REGISTRY).stat().st_mode & 0o777 == mode


def test_the_id_is_printed_once_although_children_follow(php_host):
    php_host.write(HOOK, "#!/no/such/shell\n", 0o755)
    assert php_host.tamrix(*BARE, "cgi", "--id", "once") == ok("once\n")
    assert "once" not in re.sub(r"PHP_ID = once\n", "", php_host.hook_log)


@pytest.mark.parametrize("content", [
    "openssl_conf = init\n[init]\nalg_section = evp\n[evp]\ndefault_properties = fips=yes\n",
    "openssl_conf = init\n[init]\nproviders = all\n[all]\nlegacy = on\n[on]\nactivate = 1\n",
    "openssl_conf = init\n[init]\nproviders = p\n[p]\nfips = f\n[f]\nactivate = 1\n", "broken\n[", "", None])
def test_the_computed_id_does_not_depend_on_the_library_configuration(php_host, content):
    php_host.write("/opt/ovt/openssl.cnf", content or "")
    where = {"OPENSSL_CONF": "/no/such" if content is None else "/opt/ovt/openssl.cnf", "OPENSSL_MODULES": "/no/such"}
    assert php_host.tamrix(*BARE, "cgi", env=where) == ok(CGI_ID + "\n")


@pytest.mark.parametrize("words", [
    ["--id=x", f"--path={CGI}", f"--phpini={INI}", "--type=cgi"],
    ["--i", "x", "--pa", CGI, "--ph=" + INI, "--t", "cgi", "--no-set"],
    ["--id", "x", "stray", "--path", CGI, "--phpini", INI, "--type", "cgi", "", "more"],
    ["--id", "x", "--path", CGI, "--phpini", INI, "--type", "cgi", "--", "--id", "d", "--bogus"]])
def test_the_spellings_of_options(php_host, words):
    assert php_host.tamrix("--add", *words) == ok("x\n")
    assert php_host.registry == document(record("x"))


def test_a_value_may_look_like_an_option(php_host):
    assert php_host.tamrix(*ADD, "--displayname", "--id") == ok("x\n")
    assert php_host.registry == document(record("x", displayname="--id"))


# What --add refuses. Nothing is saved then and no hook runs.

BEFORE = document(record("old"))
FPM_MESSAGE = "Service name and pool.d should be specified for type `fpm'\n"
PATH, TYPE = ("--path", CGI), ("--phpini", INI, "--type")
GONE = "Binary /no/such doesn't exists\n"
BROKEN = (
    f"Error reading {REGISTRY}: can not parse php_versions_info object : JSON object is expected."
    " Error occured at offset 0, character 'x'. \n")


def refused(host, words, result, calls=(), registry=BEFORE):
    host.hook("10-hook")
    host.registry = registry
    assert host.tamrix("--add", *words) == result
    assert host.registry == registry
    assert host.calls == list(calls)
    assert host.hook_log is None


@pytest.mark.parametrize("registry", [BEFORE, "x"], ids=["", "before a broken registry"])
@pytest.mark.parametrize("words,message", [
    (["--path", CGI, "--type", "cgi"], "the option '--phpini' is required but missing"),
    (["--path", CGI, "--phpini", INI], "the option '--type' is required but missing"),
    ([], "the option '--phpini' is required but missing"),
    (["--help"], "unrecognised option '--help'"),
    (["-x"], "unrecognised option '-x'"),
    (["--id"], "the required argument for option '--id' is missing"),
    (["--path", "a", "--path", "b"], "option '--path' cannot be specified more than once"),
    (["--p", "a"], "option '--p' is ambiguous and matches '--path', '--phpini', and '--poold'"),
    (["--displayname="],
     "the argument for option '--displayname' should follow immediately after the equal sign"),
    (["--no-set-dirty-flag=1"], "option '--no-set-dirty-flag' does not take any arguments"),
    (["--no-set-dirty-flag="],
     "the argument for option '--no-set-dirty-flag' should follow immediately after the equal sign"),
], ids=lambda value: " ".join(value)[:30])
def test_an_option_error_shows_the_options(php_host, words, message, registry):
    refused(php_host, words, COMMANDS["--add"].option_error(message), registry=registry)


def test_a_missing_path_is_an_unexpected_error(php_host):
    refused(php_host, [*TYPE, "cgi"], fatal(
        "boost::wrapexcept<boost::bad_any_cast>(boost::bad_any_cast: failed conversion using boost::any_cast)"))


@pytest.mark.parametrize("word", ["FPM", "CGI", "FastCGI", " fpm", "fpm ", "", "cgi\n", "none", "module"])
@pytest.mark.parametrize("cli", [(), ("--clipath", "/gone")])
def test_the_type_is_refused_after_the_probe_and_before_that_of_the_php_cli(php_host, word, cli):
    message = ("Unable to create custom handler with type `module'" if word == "module"
               else f"Unknown php handler type : {word}")
    refused(php_host, [*PATH, *TYPE, word, *cli], failed(message + "\n"), [PROBE])


@pytest.mark.parametrize("word", ["module", "FPM", "fpm", "cgi"])
def test_a_missing_binary_comes_before_a_broken_registry_and_that_before_the_type(php_host, word):
    refused(php_host, ["--path", "/no/such", *TYPE, word], failed(GONE), registry="x")
    refused(php_host, [*PATH, *TYPE, word], failed(BROKEN), [PROBE], registry="x")


@pytest.mark.parametrize("words,message,calls", [
    (("fpm",), FPM_MESSAGE, [PROBE]),
    (("fpm", "--service", "php-fpm"), FPM_MESSAGE, [PROBE]),
    (("fpm", "--poold", "/pool.d"), FPM_MESSAGE, [PROBE]),
    (("fpm", "--clipath", "/no/such"), GONE, [PROBE]),
    (("cgi", "--clipath", ""), "Binary  doesn't exists\n", [PROBE]),
    (("cgi", "--id", "old"), EXISTS.format("old"), [PROBE]),
    # The limit stays set.
    (("fpm", "--service", "php-fpm", "--poold", "/p", "--id", "old"), EXISTS.format("old"), [PROBE, SERVICE, ULIMIT])])
def test_a_refusal_after_the_probe(php_host, words, message, calls):
    refused(php_host, [*PATH, *TYPE, *words], failed(message), calls)


def test_a_failing_php_cli_comes_before_the_fpm_pair(php_host):
    php_host.php(CLI, status=1)
    refused(php_host, [*PATH, *TYPE, "fpm", "--clipath", CLI], failed(f"can not get version from {CLI}\n"),
            [PROBE, CLI_PROBE])


def test_an_unknown_service_is_refused_before_the_ulimit(php_host):
    php_host.tool("quelmrc", status=1)
    refused(php_host, [*PATH, *TYPE, "fpm", "--service", "php-fpm", "--poold", "/p"],
            failed("php-fpm: service not found.\n"), [PROBE, SERVICE])


def test_an_empty_id_is_an_unexpected_error(php_host):
    refused(php_host, [*PATH, *TYPE, "cgi", "--id", ""], fatal("std::runtime_error(Undefined php handler id)"), [PROBE])
