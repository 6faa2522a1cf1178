"""--add: what it refuses, with which words, in which order, and that nothing is changed then."""

import pytest

from private_host import failed, ok
from registry_text import CGI, CLI, INI, document, record

DESCRIPTION = (
    "Add handler options:\n"
    "  --id arg              handler id\n"
    "  --displayname arg     human readable handler name\n"
    "  --path arg            path to php-cgi\n"
    "  --clipath arg         path to php-cli\n"
    "  --phpini arg          path to php.ini\n"
    "  --type arg            php handler type : <cgi|fastcgi|fpm>\n"
    "  --no-set-dirty-flag   do not call depotctl --set-dirty-flag\n"
    "  --service arg         service name for fpm\n"
    "  --poold arg           path to pool.d for fpm\n"
)
OPTION_ERRORS = [
    (["--path", CGI, "--type", "cgi"], "the option '--phpini' is required but missing"),
    (["--path", CGI, "--phpini", INI], "the option '--type' is required but missing"),
    ([], "the option '--phpini' is required but missing"),
    (["--bogus"], "unrecognised option '--bogus'"),
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
]
BEFORE = document(record("old"))
ADD = ("--add", "--path", CGI, "--phpini", INI, "--type")
PROBE = f"{CGI} -n -v"
SERVICE = "/opt/ovt/admin/sbin/quelmrc php-fpm exists"
ULIMIT = "/opt/ovt/admin/sbin/quotagate --set 8192 --service php-fpm --no-restart"
FPM_MESSAGE = "Service name and pool.d should be specified for type `fpm'\n"
BROKEN = (
    "Error reading /etc/ovt/php_versions.json: can not parse php_versions_info object : JSON object is expected."
    " Error occured at offset 0, character 'x'. \n")


@pytest.fixture
def php_host(host):
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


@pytest.mark.parametrize("words,message", OPTION_ERRORS, ids=lambda value: " ".join(value)[:30])
def test_an_option_error_shows_the_options(php_host, words, message):
    refused(php_host, ["--add", *words], f"[Error] {message}\n\n{DESCRIPTION}\n")


def test_an_option_error_comes_before_a_broken_registry(php_host):
    php_host.registry = "x"
    refused(php_host, ["--add"], f"[Error] {OPTION_ERRORS[0][1]}\n\n{DESCRIPTION}\n", registry="x")


def test_a_missing_path_is_an_unexpected_error_on_both_streams(php_host):
    refused(
        php_host, ["--add", "--phpini", INI, "--type", "cgi"],
        "Fatal error: boost::wrapexcept<boost::bad_any_cast>"
        "(boost::bad_any_cast: failed conversion using boost::any_cast)\n", both_streams=True)


def test_module_is_refused(php_host):
    refused(php_host, [*ADD, "module"], "Unable to create custom handler with type `module'\n", [PROBE])


@pytest.mark.parametrize("word", ["FPM", "CGI", "FastCGI", " fpm", "fpm ", "", "cgi\n", "none"])
def test_an_unknown_type_is_refused_after_the_probe(php_host, word):
    refused(php_host, [*ADD, word], f"Unknown php handler type : {word}\n", [PROBE])


@pytest.mark.parametrize("word", ["module", "FPM"])
def test_a_missing_binary_comes_before_the_type(php_host, word):
    words = ["--add", "--path", "/no/such", "--phpini", INI, "--type", word]
    refused(php_host, words, "Binary /no/such doesn't exists\n")


@pytest.mark.parametrize("word", ["module", "FPM", "fpm"])
def test_a_broken_registry_comes_before_the_type(php_host, word):
    php_host.registry = "x"
    refused(php_host, [*ADD, word], BROKEN, [PROBE], registry="x")


def test_a_missing_binary_comes_before_a_broken_registry(php_host):
    php_host.registry = "x"
    words = ["--add", "--path", "/no/such", "--phpini", INI, "--type", "cgi"]
    refused(php_host, words, "Binary /no/such doesn't exists\n", registry="x")


@pytest.mark.parametrize("more", [[], ["--service", "php-fpm"], ["--poold", "/pool.d"]])
def test_fpm_without_service_and_pool_is_refused_before_any_tool_runs(php_host, more):
    refused(php_host, [*ADD, "fpm", *more], FPM_MESSAGE, [PROBE])


def test_a_failing_cli_comes_before_the_fpm_pair(php_host):
    php_host.php(CLI, status=1)
    refused(php_host, [*ADD, "fpm", "--clipath", CLI], f"can not get version from {CLI}\n",
            [PROBE, f"{CLI} -n -v"])


def test_an_empty_cli_path_is_probed_too(php_host):
    refused(php_host, [*ADD, "cgi", "--clipath", ""], "Binary  doesn't exists\n", [PROBE])


def test_an_unknown_service_is_refused_before_the_ulimit(php_host):
    php_host.tool("quelmrc", status=1)
    refused(php_host, [*ADD, "fpm", "--service", "php-fpm", "--poold", "/p"], "php-fpm: service not found.\n",
            [PROBE, SERVICE])


def test_a_duplicate_fpm_handler_is_refused_after_the_tools_ran(php_host):
    words = [*ADD, "fpm", "--service", "php-fpm", "--poold", "/p", "--id", "old"]
    refused(php_host, words, "Handler with id = `old' already exists\n", [PROBE, SERVICE, ULIMIT])


def test_a_duplicate_id_is_refused(php_host):
    refused(php_host, [*ADD, "cgi", "--id", "old"], "Handler with id = `old' already exists\n", [PROBE])


def test_an_empty_id_is_an_unexpected_error_on_both_streams(php_host):
    refused(php_host, [*ADD, "cgi", "--id", ""], "Fatal error: std::runtime_error(Undefined php handler id)\n",
            [PROBE], both_streams=True)


def test_without_the_hook_folder_the_record_is_saved_and_the_flag_not_set(php_host):
    php_host.remove("/etc/ovt/php_configurator.d/10-hook")
    php_host.path("/etc/ovt/php_configurator.d").rmdir()
    fatal = (
        "Fatal error: std::filesystem::__cxx11::filesystem_error(filesystem error: directory iterator cannot"
        " open directory: No such file or directory [/etc/ovt/php_configurator.d/])\n")
    assert php_host.tamrix(*ADD, "cgi", "--id", "new") == failed(fatal, "new\n" + fatal)
    assert php_host.registry == document(record("old"), record("new"))
    assert php_host.calls == [PROBE]
    assert php_host.hook_log is None


def test_a_failing_dirty_flag_does_not_undo_the_save(php_host):
    php_host.tool("depotctl", status=1, err="locked\n", out="ignored\n")
    assert php_host.tamrix(*ADD, "cgi", "--id", "new") == failed(
        "Failed to set depotctl dirty flag : locked\n\n", "new\n")
    assert php_host.registry == document(record("old"), record("new"))


def test_a_failing_hook_does_not_fail_the_command(php_host):
    php_host.hook("10-hook", "exit 7")
    assert php_host.tamrix(*ADD, "cgi", "--id", "new") == ok("new\n")
