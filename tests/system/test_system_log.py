"""What reaches the system log, read at a real /dev/log. What a failed read or save tells: test_hostile_files.py."""

import re

import pytest

from commands import ADD, play
from private_host import REGISTRY, SBIN, failed, ok

FPM = (*ADD[:-3], "fpm", "--id", "x", "--service", "s", "--poold", "/p")
# Facility user-level (8) and the message's level make the number in front; the time follows.
MESSAGE = r"<{}>\w{{3}} [ \d]\d \d\d:\d\d:\d\d tamrix\[\d+\]: {}"


@pytest.fixture
def logged(php_host):
    php_host.open_log()
    return php_host


def expect(host, level, *texts):
    messages = host.log_messages()
    assert len(messages) == len(texts), messages
    for message, text in zip(messages, texts):
        assert re.fullmatch(MESSAGE.format(8 + level, text), message), messages


def test_neither_log_variable_of_the_environment_is_consulted(logged):
    logged.path(REGISTRY).mkdir()
    assert logged.tamrix(*ADD, env={"QUELM_LOG_TRACE_ID": "TRACE", "QUELM_LOG_LEVEL": "0"}) == ok("x\n")
    expect(logged, 3, re.escape(f"Unable to read {REGISTRY}: not a regular file"),
           re.escape(f"Unable to open {REGISTRY}: Is a directory"))


def test_no_trace_identifier_is_made_for_the_children(logged):
    logged.hook("10-hook", 'echo "${QUELM_LOG_TRACE_ID-unset}" >/opt/ovt/trace')
    logged.tamrix(*ADD)
    assert logged.read("/opt/ovt/trace") == "unset\n"


def test_a_service_tool_killed_by_a_signal_is_warned_of(logged):
    logged.recorder(f"{SBIN}/quelmrc", "kill -KILL $$")
    assert logged.tamrix(*FPM) == failed("s: service not found.\n")
    expect(logged, 4, rf"waitpid\((\d+)\)=\1: process '{SBIN}/quelmrc' killed by signal 9")


def test_a_normal_run_of_any_command_logs_nothing(furnished):
    furnished.open_log()
    play(furnished, furnished.tamrix)
    assert furnished.log_messages() == []
