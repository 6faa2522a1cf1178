"""The version probe, seen through --add."""

import os

import pytest

from private_host import UNPRIVILEGED, failed, ok
from registry_text import CGI, INI, document, record

ADD = ("--add", "--phpini", INI, "--type", "cgi", "--id", "x", "--path")
PARSED = {
    "a cgi banner": ("PHP 7.4.33-nmm1 (cgi-fcgi) (built: Nov  8 2022 11:33:53)\nCopyright\n", "7.4.33"),
    "a cli banner": ("PHP 8.1.2 (cli) (built: x)\n", "8.1.2"),
    "no dots": ("PHP 8 (cli)\n", "8"),
    "a trailing dot": ("PHP 8.1.\n", "8.1"),
    "nothing behind the number": ("PHP 8.1", "8.1"),
    "no final newline": ("x\nPHP 5.2.17 x", "5.2.17"),
    "a carriage return": ("PHP 8.1.2\r\n", "8.1.2"),
    "a warning before it": ("Warning: module 'x' already loaded\nPHP 8.2.0 (cli)\n", "8.2.0"),
    "the first of two": ("PHP 1.1\nPHP 2.2\n", "1.1"),
    "a tab for the blank": ("PHP\t8.3.1\n", "8.3.1"),
    "bytes beyond ASCII in the tail": ("PHP 8.1\udcff\u00e4\n", "8.1"),
    "leading zeros": ("PHP 007.01x\n", "007.01"),
    "many groups": ("PHP 1.2.3.4.5.6.7.8\n", "1.2.3.4.5.6.7.8"),
}
NOT_PARSED = {
    "nothing": "",
    "a leading blank": " PHP 8.1.2\n",
    "lower case": "php 8.1.2\n",
    "no number": "PHP x\n",
    "two blanks": "PHP  8.1\n",
    "several lines": "a\n\nb",
    "a word before it": "xPHP 8.1\n",
}


@pytest.mark.parametrize("name", PARSED)
def test_the_version_is_found_with(host, name):
    banner, version = PARSED[name]
    host.php(CGI, banner)
    assert host.tamrix(*ADD, CGI) == ok("x\n")
    assert host.registry == document(record("x", version=version))


@pytest.mark.parametrize("name", NOT_PARSED)
def test_the_whole_output_is_shown_for(host, name):
    host.php(CGI, NOT_PARSED[name])
    assert host.tamrix(*ADD, CGI) == failed("Unable to parse php version : " + NOT_PARSED[name] + "\n")
    assert host.registry is None


def test_the_binary_is_run_with_n_and_v_and_an_empty_input(host):
    host.recorder(CGI, 'echo "input: $(cat)" >>/opt/ovt/calls\necho "PHP 8.1.2"')
    assert host.tamrix(*ADD, CGI, "--no-set-dirty-flag", stdin="caller's") == ok("x\n")
    assert host.calls == [f"{CGI} -n -v", "input: "]


def test_the_environment_is_inherited(host):
    host.recorder(CGI, 'echo "PHP 1.$INHERITED"')
    assert host.tamrix(*ADD, CGI, env={"INHERITED": "42"}) == ok("x\n")
    assert host.registry == document(record("x", version="1.42"))


def test_standard_error_is_not_looked_at(host):
    host.php(CGI, "PHP 8.1.2\n", err="PHP 9.9\n")
    assert host.tamrix(*ADD, CGI) == ok("x\n")
    host.php(CGI, "", err="PHP 9.9\n")
    assert host.tamrix(*ADD, CGI) == failed("Unable to parse php version : \n")


@pytest.mark.parametrize("status", [1, 2, 255])
def test_a_non_zero_status_fails_although_the_banner_matches(host, status):
    host.php(CGI, status=status)
    assert host.tamrix(*ADD, CGI) == failed(f"can not get version from {CGI}\n")


def test_a_binary_killed_by_a_signal_fails(host):
    host.recorder(CGI, 'echo "PHP 8.1"; kill -9 $$')
    assert host.tamrix(*ADD, CGI) == failed(f"can not get version from {CGI}\n")


@pytest.mark.parametrize("path", ["", "/no/such", "no-slash", "/etc/passwd/x", "/opt/ovt/dangling"])
def test_nothing_at_the_path(host, path):
    os.symlink("/no/such", host.path("/opt/ovt/dangling"))
    assert host.tamrix(*ADD, path) == failed(f"Binary {path} doesn't exists\n")


def test_a_folder_passes_the_existence_test_and_fails_to_run(host):
    assert host.tamrix(*ADD, "/opt/ovt") == failed("can not get version from /opt/ovt\n")


def test_a_file_that_is_not_executable_fails_to_run(host):
    host.write(CGI, "PHP 8.1\n")
    assert host.tamrix(*ADD, CGI) == failed(f"can not get version from {CGI}\n")


def test_a_file_without_interpreter_line_is_run_by_the_shell(host):
    host.write(CGI, 'echo "shell $1 $2"\n', 0o755)
    assert host.tamrix(*ADD, CGI) == failed("Unable to parse php version : shell -n -v\n\n")
    host.write(CGI, "", 0o755)
    assert host.tamrix(*ADD, CGI) == failed("Unable to parse php version : \n")


def test_a_link_to_a_binary_is_followed(host):
    host.php(CGI)
    os.symlink(CGI, host.path("/opt/ovt/link"))
    assert host.tamrix(*ADD, "/opt/ovt/link") == ok("x\n")
    assert host.registry == document(record("x", path="/opt/ovt/link"))


def test_a_link_loop_is_the_file_system_s_own_error(host):
    os.symlink("/opt/ovt/loop", host.path("/opt/ovt/loop"))
    fatal = (
        "Fatal error: std::filesystem::__cxx11::filesystem_error(filesystem error: status: Too many levels of"
        " symbolic links [/opt/ovt/loop])\n")
    assert host.tamrix(*ADD, "/opt/ovt/loop") == failed(fatal, fatal)


def test_a_too_long_path_is_the_file_system_s_own_error(host):
    path = "/" + "x" * 300
    fatal = (
        "Fatal error: std::filesystem::__cxx11::filesystem_error(filesystem error: status: File name too long"
        f" [{path}])\n")
    assert host.tamrix(*ADD, path) == failed(fatal, fatal)


def test_a_forbidden_folder_is_the_file_system_s_own_error(host):
    host.php("/opt/ovt/closed/php")
    host.path("/opt/ovt/closed").chmod(0)
    fatal = (
        "Fatal error: std::filesystem::__cxx11::filesystem_error(filesystem error: status: Permission denied"
        " [/opt/ovt/closed/php])\n")
    assert host.shell(UNPRIVILEGED, *ADD, "/opt/ovt/closed/php") == failed(fatal, fatal)
    host.path("/opt/ovt/closed").chmod(0o755)


def test_a_slashless_path_is_looked_up_in_the_path_but_must_exist_here(host):
    host.php("/opt/ovt/bin/php-x", "PHP 8.1\n")
    host.php("/opt/ovt/here/php-x", "PHP 9.1\n")
    script = 'cd /opt/ovt/here && PATH=/opt/ovt/bin:$PATH && exec "$@"'
    assert host.shell(script, *ADD, "php-x") == ok("x\n")
    assert host.registry == document(record("x", path="php-x", version="8.1"))


def test_every_call_runs_the_binary_anew(host):
    host.php(CGI)
    assert host.tamrix(*ADD, CGI, "--clipath", CGI, "--no-set-dirty-flag") == ok("x\n")
    assert host.calls == [f"{CGI} -n -v"] * 2


def test_large_outputs_on_both_streams(host):
    host.recorder(CGI, "head -c 1000000 /dev/zero | tr '\\0' e >&2\nhead -c 1000000 /dev/zero | tr '\\0' o\necho\n"
                       'echo "PHP 8.1"')
    assert host.tamrix(*ADD, CGI) == ok("x\n")


def test_a_version_of_very_many_groups_does_no_harm(host):
    host.recorder(CGI, "printf 'PHP 1'\nhead -c 200000 /dev/zero | sed 's/\\x00/.1/g'")
    result = host.tamrix(*ADD, CGI)
    if result.status == 0:
        assert result == ok("x\n")
    else:
        assert result.status == 1
        assert result.err.startswith("Fatal error: boost::wrapexcept<std::runtime_error>(")
        assert result.out == result.err


def test_a_very_long_line_is_no_trouble(host):
    host.recorder(CGI, "printf 'PHP 8.1 '\nhead -c 2000000 /dev/zero | tr '\\0' o")
    assert host.tamrix(*ADD, CGI) == ok("x\n")
    assert host.registry == document(record("x", version="8.1"))
