"""--update: what it refuses, and that nothing is changed then."""

import pytest

from private_host import failed
from registry_text import CGI, CLI, document, record

DESCRIPTION = (
    "Update handler options:\n"
    "  --id arg              handler id\n"
    "  --displayname arg     human readable handler name\n"
    "  --path arg            path to php-cgi\n"
    "  --clipath arg         path to php-cli\n"
    "  --phpini arg          path to php.ini\n"
    "  --type arg            php handler type : <cgi|fastcgi>\n"
    "  --no-set-dirty-flag   do not call depotctl --set-dirty-flag\n"
    "  --service arg         service name for fpm\n"
    "  --poold arg           path to pool.d for fpm\n"
)
UPDATE = ("--update", "--id", "a")
BEFORE = document(record("a"), record("packaged", system=True), record("f", type="fpm", service="s", poold="p"))
PROBE = f"{CGI} -n -v"
NO_ID = (
    "Fatal error: boost::wrapexcept<boost::bad_any_cast>"
    "(boost::bad_any_cast: failed conversion using boost::any_cast)\n")
SERVICE_MESSAGE = "--service option is valid only for fpm handlers\n"
POOL_MESSAGE = "--poold option is valid only for fpm handlers\n"


@pytest.fixture
def full_host(host):
    host.php(CGI)
    host.php(CLI)
    host.hook("10-hook")
    host.registry = BEFORE
    return host


def refused(host, words, message, calls=(), both_streams=False, registry=BEFORE):
    assert host.tamrix(*words) == failed(message, message if both_streams else "")
    assert host.registry == registry
    assert host.calls == list(calls)
    assert host.hook_log is None


@pytest.mark.parametrize("words,message", [
    (["--bogus"], "unrecognised option '--bogus'"),
    (["--help"], "unrecognised option '--help'"),
    (["--id"], "the required argument for option '--id' is missing"),
    (["--id", "a", "--id", "a"], "option '--id' cannot be specified more than once"),
    (["--id", "a", "--p", "x"], "option '--p' is ambiguous and matches '--path', '--phpini', and '--poold'"),
    (["--id", "a", "--clipath="],
     "the argument for option '--clipath' should follow immediately after the equal sign")])
def test_an_option_error_shows_the_options(full_host, words, message):
    refused(full_host, ["--update", *words], f"[Error] {message}\n\n{DESCRIPTION}\n")


@pytest.mark.parametrize("words", [[], ["--displayname", "x"]])
def test_a_missing_id_is_an_unexpected_error_before_the_load(full_host, words):
    full_host.registry = "broken"
    refused(full_host, ["--update", *words], NO_ID, both_streams=True, registry="broken")


@pytest.mark.parametrize("id", ["absent", "A", ""])
def test_an_absent_id_is_refused_without_blanks_around_the_equals_sign(full_host, id):
    refused(full_host, ["--update", "--id", id, "--displayname", "x"], f"Handler with id=`{id}' not found\n")


@pytest.mark.parametrize("words", [[], ["--displayname", "x"], ["--type", "module"], ["--path", "/no/such"]])
def test_a_system_handler_is_refused_first(full_host, words):
    refused(full_host, ["--update", "--id", "packaged", *words],
            "Cannot modify system handler with id=`packaged': edit corresponding config file instead.\n")


def test_module_is_refused(full_host):
    refused(full_host, [*UPDATE, "--type", "module"], "Unable to set custom handler type to `module'\n")


@pytest.mark.parametrize("word", ["FPM", "", "fast", "Module", " module"])
def test_an_unknown_type_is_refused(full_host, word):
    refused(full_host, [*UPDATE, "--type", word], f"Unknown php handler type : {word}\n")


@pytest.mark.parametrize("id,words,message", [
    ("a", ["--service", "x"], SERVICE_MESSAGE),
    ("a", ["--poold", "x"], POOL_MESSAGE),
    ("a", ["--poold", "x", "--service", "y"], SERVICE_MESSAGE),
    ("a", ["--type", "fastcgi", "--service", "x"], SERVICE_MESSAGE),
    ("f", ["--type", "cgi", "--service", "x"], SERVICE_MESSAGE),
    ("f", ["--type", "cgi", "--poold", ""], POOL_MESSAGE)])
def test_service_and_pool_are_refused_for_the_type_as_it_then_is(full_host, id, words, message):
    refused(full_host, ["--update", "--id", id, *words], message)


def test_an_unknown_service_is_refused_before_the_probe(full_host):
    full_host.tool("quelmrc", 1)
    refused(full_host, ["--update", "--id", "f", "--path", CGI, "--service", "x.service"],
            "x.service: service not found. Please retry without '.service' suffix.\n",
            ["/opt/ovt/admin/sbin/quelmrc x.service exists"])


def test_a_type_is_refused_before_a_bad_path_is_probed(full_host):
    refused(full_host, [*UPDATE, "--path", "/no/such", "--type", "module"],
            "Unable to set custom handler type to `module'\n")


@pytest.mark.parametrize("words,message,calls", [
    (["--path", "/no/such"], "Binary /no/such doesn't exists\n", []),
    (["--path", ""], "Binary  doesn't exists\n", []),
    (["--path", "/opt/ovt"], "can not get version from /opt/ovt\n", []),
    (["--clipath", "/no/such"], "Binary /no/such doesn't exists\n", [PROBE])])
def test_a_failing_probe_refuses_the_update(full_host, words, message, calls):
    refused(full_host, [*UPDATE, "--displayname", "new", *words], message, calls)


def test_an_interpreter_that_fails_now_refuses_even_a_new_ini(full_host):
    full_host.php(CGI, status=1)
    refused(full_host, [*UPDATE, "--phpini", "/x"], f"can not get version from {CGI}\n", [PROBE])


def test_a_pool_refusal_comes_after_the_service_check(full_host):
    words = ["--update", "--id", "f", "--service", "s", "--poold", "p", "--path", "/no/such"]
    refused(full_host, words, "Binary /no/such doesn't exists\n", ["/opt/ovt/admin/sbin/quelmrc s exists"])
