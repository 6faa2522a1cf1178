"""--update: what it changes, probes and refuses, and in which order."""

import pytest

from commands import CLI_PROBE, COMMANDS, DIRTY, HOOK, PROBE
from private_host import SBIN, failed, fatal, ok
from registry_text import CGI, CLI, INI, document, record

UPDATE = ("--update", "--id", "a")
OTHER = record("other", version="7")
UPDATED = f"{HOOK} update"
NEW, NEW_CLI = "/opt/ovt/new-cgi", "/opt/ovt/new-cli"
NEW_PROBE, NEW_CLI_PROBE = f"{NEW} -n -v", f"{NEW_CLI} -n -v"
MISMATCH = "[Warning] versions of php-cgi and php-cli do not match: {} != {}\n"
CHECKED = f"{SBIN}/quelmrc {{}} exists"
FPM = {"type": "fpm", "service": "s", "poold": "/p"}


def stored(**fields):
    return document(record("a", **{"version": "1.0", "displayname": "name", **fields}), OTHER)


@pytest.fixture
def full_host(php_host):
    php_host.php(NEW, "PHP 9.1\n")
    php_host.php(NEW_CLI, "PHP 9.2\n")
    php_host.registry = stored()
    php_host.hook("10-hook")
    return php_host


@pytest.mark.parametrize("before,words,fields,calls", [
    # What needs no probe makes none.
    ({}, ["--displayname", "new $version"], {"displayname": "new%20%24version"}, [UPDATED, DIRTY]),
    ({}, ["--displayname", ""], {"displayname": ""}, [UPDATED, DIRTY]),
    ({}, ["--type", "fastcgi"], {"type": "fastcgi"}, [UPDATED, DIRTY]),
    ({}, ["--type", "cgi"], {}, [UPDATED, DIRTY]),
    ({}, ["--type", "fpm"], {"type": "fpm"}, [UPDATED, DIRTY]),
    ({}, [], {}, [UPDATED, DIRTY]),
    ({}, ["--displayname", "n", "--no-set-dirty-flag"], {"displayname": "n"}, [UPDATED]),
    # A path or ini is probed again even when it is the same.
    ({}, ["--path", NEW], {"path": NEW, "version": "9.1"}, [NEW_PROBE, UPDATED, DIRTY]),
    ({}, ["--path", CGI], {"version": "8.1.2"}, [PROBE, UPDATED, DIRTY]),
    ({}, ["--phpini", "/new.ini"], {"phpini": "/new.ini", "version": "8.1.2"}, [PROBE, UPDATED, DIRTY]),
    ({}, ["--phpini", INI], {"version": "8.1.2"}, [PROBE, UPDATED, DIRTY]),
    ({}, ["--clipath", CLI], {"clipath": CLI, "version": "8.1.2"}, [PROBE, CLI_PROBE, UPDATED, DIRTY]),
    ({}, ["--clipath", ""], {"version": "8.1.2"}, [PROBE, UPDATED, DIRTY]),
    ({"clipath": CLI}, ["--clipath", ""], {"version": "8.1.2"}, [PROBE, UPDATED, DIRTY]),
    ({"clipath": CLI}, ["--phpini", INI], {"clipath": CLI, "version": "8.1.2"}, [PROBE, CLI_PROBE, UPDATED, DIRTY]),
    ({"type": "module"}, ["--phpini", INI], {"type": "module", "version": "8.1.2"}, [PROBE, UPDATED, DIRTY]),
    # Neither a probe nor a limit for a service.
    (FPM, ["--service", "new"], {**FPM, "service": "new"}, [CHECKED.format("new"), UPDATED, DIRTY]),
    (FPM, ["--poold", ""], {**FPM, "poold": ""}, [UPDATED, DIRTY]),
    (FPM, ["--type", "cgi"], {}, [UPDATED, DIRTY])])
def test_what_is_stored_and_called(full_host, before, words, fields, calls):
    full_host.registry = stored(**before)
    assert full_host.tamrix(*UPDATE, *words) == ok()
    assert full_host.registry == stored(**fields)
    assert full_host.calls == calls


@pytest.mark.parametrize("before,words,fields,versions,probes", [
    ({"clipath": CLI}, ["--path", NEW], {"path": NEW, "clipath": CLI, "version": "9.1"}, ("9.1", "8.1.2"),
     [NEW_PROBE, CLI_PROBE]),
    ({}, ["--clipath", NEW_CLI], {"clipath": NEW_CLI, "version": "8.1.2"}, ("8.1.2", "9.2"), [PROBE, NEW_CLI_PROBE])])
def test_a_php_cli_of_another_version_is_warned_of(full_host, before, words, fields, versions, probes):
    full_host.registry = stored(**before)
    assert full_host.tamrix(*UPDATE, *words) == ok(err=MISMATCH.format(*versions))
    assert full_host.registry == stored(**fields)
    assert full_host.calls == [*probes, UPDATED, DIRTY]


def test_everything_in_one_call(full_host):
    """The service is checked before the probes, the registry saved before the hooks, and no limit set."""
    full_host.hook("10-hook", "env | grep ^PHP_ | sort >>/opt/ovt/calls; cp /etc/ovt/php_versions.json /opt/ovt/seen")
    words = ["--displayname", "n", "--path", NEW, "--clipath", NEW_CLI, "--phpini", "/i", "--type", "fpm",
             "--service", "s", "--poold", "/p", "--no-set-dirty-flag"]
    assert full_host.tamrix(*UPDATE, *words) == ok(err=MISMATCH.format("9.1", "9.2"))
    assert full_host.registry == full_host.read("/opt/ovt/seen") == stored(
        displayname="n", path=NEW, clipath=NEW_CLI, phpini="/i", version="9.1", **FPM)
    assert full_host.calls == [
        CHECKED.format("s"), NEW_PROBE, NEW_CLI_PROBE, UPDATED, f"PHP_CLI={NEW_CLI}", "PHP_ID=a", "PHP_INI=/i",
        f"PHP_PATH={NEW}", "PHP_TYPE=fpm", "PHP_VERSION=9.1"]


def test_service_and_pool_directory_of_the_file_survive_a_switch_to_fpm(full_host):
    more = '"system":false,\n\t"service":"s",\n\t"poold":"/p"'
    full_host.registry = document(record("a")).replace('"system":false', more)
    assert full_host.tamrix(*UPDATE, "--type", "fpm") == ok()
    assert full_host.registry == document(record("a", **FPM))
    assert full_host.tamrix(*UPDATE, "--type", "cgi") == ok()
    assert full_host.tamrix(*UPDATE, "--type", "fpm") == ok()
    assert full_host.registry == document(record("a", type="fpm"))


def test_the_last_of_many_is_updated_in_place_whatever_its_id(full_host):
    records = [record(f"h{n}") for n in range(40)]
    full_host.registry = document(*records, record("fastcgi"))
    assert full_host.tamrix("--update", "--id", "fastcgi", "--path", NEW) == ok()
    assert full_host.registry == document(*records, record("fastcgi", path=NEW, version="9.1"))


# What --update refuses. Nothing is changed then.

BEFORE = document(record("a"), record("packaged", system=True), record("f", **FPM))
FOR_FPM = "--{} option is valid only for fpm handlers\n"
MODULE = "Unable to set custom handler type to `module'\n"
NO_FILE = "Binary /no/such doesn't exists\n"


def refused(host, words, result, calls=(), registry=BEFORE):
    host.registry = registry
    assert host.tamrix("--update", *words) == result
    assert host.registry == registry
    assert host.calls == list(calls)
    assert host.hook_log is None


@pytest.mark.parametrize("words,message", [
    (["--help"], "unrecognised option '--help'"),
    (["--id"], "the required argument for option '--id' is missing"),
    (["--id", "a", "--id", "a"], "option '--id' cannot be specified more than once"),
    (["--id", "a", "--p", "x"], "option '--p' is ambiguous and matches '--path', '--phpini', and '--poold'"),
    (["--id", "a", "--clipath="],
     "the argument for option '--clipath' should follow immediately after the equal sign")])
def test_an_option_error_shows_the_options(full_host, words, message):
    refused(full_host, words, COMMANDS["--update"].option_error(message))


@pytest.mark.parametrize("words", [[], ["--displayname", "x"]])
def test_a_missing_id_is_an_unexpected_error_before_the_load(full_host, words):
    refused(full_host, words, fatal("boost::wrapexcept<boost::bad_any_cast>(boost::bad_any_cast: failed conversion"
                                    " using boost::any_cast)"), registry="broken")


@pytest.mark.parametrize("words", [[], ["--displayname", "x"], ["--type", "module"], ["--path", "/no/such"]])
def test_a_system_handler_is_refused_first(full_host, words):
    refused(full_host, ["--id", "packaged", *words], failed(
        "Cannot modify system handler with id=`packaged': edit corresponding config file instead.\n"))


@pytest.mark.parametrize("id,words,message,calls", [
    ("absent", [], "Handler with id=`absent' not found\n", []),
    ("A", ["--displayname", "x"], "Handler with id=`A' not found\n", []),
    ("", ["--displayname", "x"], "Handler with id=`' not found\n", []),
    ("a", ["--type", "module"], MODULE, []),
    ("a", ["--path", "/no/such", "--type", "module"], MODULE, []),
    *(("a", ["--type", word], f"Unknown php handler type : {word}\n", [])
      for word in ("FPM", "", "fast", "Module", " module")),
    # Service and pool count for the type as it then is.
    ("a", ["--service", "x"], FOR_FPM.format("service"), []),
    ("a", ["--poold", "x"], FOR_FPM.format("poold"), []),
    ("a", ["--poold", "x", "--service", "y"], FOR_FPM.format("service"), []),
    ("a", ["--type", "fastcgi", "--service", "x"], FOR_FPM.format("service"), []),
    ("f", ["--type", "cgi", "--service", "x"], FOR_FPM.format("service"), []),
    ("f", ["--type", "cgi", "--poold", ""], FOR_FPM.format("poold"), []),
    # The probe comes last.
    ("a", ["--displayname", "new", "--path", "/no/such"], NO_FILE, []),
    ("a", ["--path", ""], "Binary  doesn't exists\n", []),
    ("a", ["--path", "/opt/ovt"], "can not get version from /opt/ovt\n", []),
    ("a", ["--clipath", "/no/such"], NO_FILE, [PROBE]),
    ("f", ["--service", "s", "--poold", "p", "--path", "/no/such"], NO_FILE, [CHECKED.format("s")])])
def test_a_refusal(full_host, id, words, message, calls):
    refused(full_host, ["--id", id, *words], failed(message), calls)


@pytest.mark.parametrize("service,hint", [("", ""), ("x.service", " Please retry without '.service' suffix.")])
def test_an_unknown_service_is_refused_before_the_probe(full_host, service, hint):
    full_host.tool("quelmrc", 1)
    refused(full_host, ["--id", "f", "--path", CGI, "--service", service],
            failed(f"{service}: service not found.{hint}\n"), [CHECKED.format(service)])


def test_an_interpreter_that_fails_now_refuses_even_a_new_ini(full_host):
    full_host.php(CGI, status=1)
    refused(full_host, [*UPDATE[1:], "--phpini", "/x"], failed(f"can not get version from {CGI}\n"), [PROBE])
