"""What reaches the system log, read at a real /dev/log."""

import re

import pytest

from registry_text import CGI, INI, document, record

ADD = ("--add", "--path", CGI, "--phpini", INI, "--id", "x", "--type")
# Facility user-level (8) and the message's level make the number in front; the time follows.
MESSAGE = r"<{}>\w{{3}} [ \d]\d \d\d:\d\d:\d\d tamrix\[\d+\]: {}"


@pytest.fixture
def logged(host):
    host.php(CGI)
    host.open_log()
    return host


def expect(host, level, *texts):
    messages = host.log_messages()
    assert len(messages) == len(texts), messages
    for message, text in zip(messages, texts):
        assert re.fullmatch(MESSAGE.format(8 + level, text), message.rstrip("\0")), messages


def test_neither_log_variable_of_the_environment_is_consulted(logged):
    logged.path("/etc/ovt/php_versions.json").mkdir()
    result = logged.tamrix(*ADD, "cgi", env={"QUELM_LOG_TRACE_ID": "TRACE", "QUELM_LOG_LEVEL": "0"})
    assert (result.status, result.out, result.err) == (0, "x\n", "")
    expect(logged, 3, re.escape("Unable to read /etc/ovt/php_versions.json: not a regular file"),
           re.escape("Unable to open /etc/ovt/php_versions.json: Is a directory"))


def test_no_trace_identifier_is_made_for_the_children(logged):
    logged.hook("10-hook", 'echo "${QUELM_LOG_TRACE_ID-unset}" >/opt/ovt/trace')
    logged.tamrix(*ADD, "cgi")
    assert logged.read("/opt/ovt/trace") == "unset\n"


def test_warnings_pass_the_threshold(logged):
    logged.recorder("/opt/ovt/admin/sbin/quelmrc", "kill -KILL $$")
    logged.tamrix(*ADD, "fpm", "--service", "s", "--poold", "/p")
    expect(logged, 4, r"waitpid\((\d+)\)=\1: process '/opt/ovt/admin/sbin/quelmrc' killed by signal 9")


@pytest.mark.parametrize("signal", ['trap "" XFSZ; ', ""])
def test_a_save_that_is_cut_short_is_told_and_the_command_goes_on(logged, signal, plain_binary):
    logged.registry = document(*(record(f"r{n}") for n in range(10)))
    result = logged.shell(signal + 'ulimit -f 1; exec "$@"', *ADD, "cgi")
    assert (result.status, result.out, result.err) == (0, "x\n", "")
    expect(logged, 3, re.escape("Unable to write /etc/ovt/php_versions.json: File too large"))


def test_a_normal_run_logs_nothing(logged):
    logged.tamrix(*ADD, "cgi")
    assert logged.log_messages() == []
