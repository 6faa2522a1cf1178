"""The sibling tools, seen through --add and --update."""

import time

import pytest

from commands import ADD, DIRTY, PROBE
from private_host import SBIN, failed, ok
from registry_text import CGI, INI, document, record

FPM = ("--add", "--path", CGI, "--phpini", INI, "--id", "x", "--type", "fpm", "--poold", "/p", "--service")
NO_PROGRAM = (
    "tamrix: forkExecvPipes: execv() failed: No such file or directory\n\n"
    "System error 2: No such file or directory\n")


def test_the_dirty_flag_call_has_one_word_and_an_empty_input(php_host):
    php_host.recorder(f"{SBIN}/depotctl", 'echo "$# [$(cat)]" >>/opt/ovt/calls; echo shown; echo shown >&2')
    assert php_host.tamrix(*ADD, stdin="caller's") == ok("x\n")
    assert php_host.calls == [PROBE, DIRTY, "1 []"]


def spoil_tool(host, name, how, err="not shown\n"):
    if how == "missing":
        host.remove(f"{SBIN}/{name}")
    elif how == "no program":
        host.write(f"{SBIN}/{name}", "exit 0\n", 0o755)
    elif how == "killed":
        host.recorder(f"{SBIN}/{name}", "kill -9 $$")
    else:
        host.tool(name, how, err, "not shown\n")


# The tool's words are shown untrimmed.
@pytest.mark.parametrize("how,err", [
    (1, ""), (1, "locked\n"), (3, "no newline"), (255, "a\nb\n\n"), ("killed", ""), ("missing", NO_PROGRAM)])
def test_a_failing_dirty_flag_fails_after_the_save(php_host, how, err):
    spoil_tool(php_host, "depotctl", how, err)
    assert php_host.tamrix(*ADD) == failed(f"Failed to set depotctl dirty flag : {err}\n", "x\n")
    assert php_host.registry == document(record("x"))


@pytest.mark.parametrize("words,left", [
    (("--update", "--id", "a", "--displayname", "n"), document(record("a", displayname="n"), record("b"))),
    (("--remove", "--id", "a"), document(record("b"))), (("--reread",), document(record("a"), record("b")))])
def test_a_failing_dirty_flag_undoes_no_change(php_host, words, left):
    php_host.registry = document(record("a"), record("b"))
    php_host.tool("depotctl", 1, "locked\n")
    assert php_host.tamrix(*words) == failed("Failed to set depotctl dirty flag : locked\n\n")
    assert php_host.registry == left


@pytest.mark.parametrize("how,err", [
    (1, ""), (1, "no such service\n"), (1, "no newline"), ("killed", ""), ("missing", NO_PROGRAM)])
def test_a_failing_ulimit_is_only_told(php_host, how, err):
    spoil_tool(php_host, "quotagate", how, err)
    assert php_host.tamrix(*FPM, "php-fpm") == ok("x\n", f"[Error] Failed to set default ulimit: {err}\n")
    assert php_host.registry == document(record("x", type="fpm", service="php-fpm", poold="/p"))
    assert php_host.calls[-1] == DIRTY


@pytest.mark.parametrize("name,hint", [
    ("php-fpm", ""), ("php-fpm.service", " Please retry without '.service' suffix."),
    (".service", " Please retry without '.service' suffix."), ("php.service.x", ""), ("php.Service", ""),
    ("service", ""), ("", "")])
@pytest.mark.parametrize("how", [1, 255, "killed", "missing", "no program"])
def test_a_service_that_is_not_found(php_host, name, hint, how):
    spoil_tool(php_host, "quelmrc", how)
    assert php_host.tamrix(*FPM, name) == failed(f"{name}: service not found.{hint}\n")
    assert php_host.registry is None


@pytest.mark.parametrize("name", ["php-fpm", "php-fpm.service", "with blank", ""])
def test_a_service_that_exists_is_taken_as_given(php_host, name):
    php_host.tool("quelmrc", 0, "not shown\n", "not shown\n")
    assert php_host.tamrix(*FPM, name) == ok("x\n")
    assert php_host.registry == document(record("x", type="fpm", service=name, poold="/p"))


def test_the_words_of_both_tools(php_host):
    for name in ("quelmrc", "quotagate"):
        php_host.recorder(f"{SBIN}/{name}", 'for word; do echo "<$word>" >>/opt/ovt/calls; done')
    php_host.tamrix(*FPM, "a b", "--no-set-dirty-flag")
    assert php_host.calls == [
        PROBE, f"{SBIN}/quelmrc a b exists", "<a b>", "<exists>",
        f"{SBIN}/quotagate --set 8192 --service a b --no-restart",
        "<--set>", "<8192>", "<--service>", "<a b>", "<--no-restart>"]


def test_the_service_tool_inherits_standard_input(php_host):
    php_host.recorder(f"{SBIN}/quelmrc", 'echo "[$(cat)]" >>/opt/ovt/calls')
    php_host.recorder(f"{SBIN}/quotagate", 'echo "[$(cat)]" >>/opt/ovt/calls')
    assert php_host.tamrix(*FPM, "s", stdin="caller's") == ok("x\n")
    assert php_host.calls[2] == "[caller's]"
    assert php_host.calls[4] == "[]"


def test_a_service_tool_that_ignores_its_closed_outputs_is_waited_for(php_host):
    php_host.recorder(f"{SBIN}/quelmrc", "exec >&- 2>&-\nsleep 1.5\nexit 0")
    assert php_host.tamrix(*FPM, "s") == ok("x\n")


def test_a_background_process_of_the_service_tool_is_not_waited_for(php_host):
    """What it leaves behind and holds its outputs is given up after a second of silence."""
    php_host.recorder(f"{SBIN}/quelmrc", "sleep 60 &\nexit 0")
    before = time.monotonic()
    assert php_host.tamrix(*FPM, "s", timeout=30) == ok("x\n")
    assert 1 <= time.monotonic() - before < 15
