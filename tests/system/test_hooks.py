"""Hook scripts and their log, seen through --add."""

import os
import re
import time

import pytest

from commands import ADD, DIRTY, PROBE
from private_host import HOOK_LOG, HOOKS, UNPRIVILEGED, fatal_file, ok
from registry_text import CGI, CLI, INI, document, record

VARIABLES = (
    f"PHP_CLI = \nPHP_ID = x\nPHP_INI = {INI}\nPHP_PATH = {CGI}\nPHP_TYPE = cgi\nPHP_VERSION = 8.1.2\n")


def log_record(name, out="", err="", code=0, variables=VARIABLES):
    return f"[TIME] Start: {HOOKS}/{name} add\n{variables}stdout: {out}\nstderr: {err}\nExit code: {code}\n"


def hooks_run(host):
    return [call for call in host.calls if call.startswith(HOOKS)]


def test_the_record_of_one_script(php_host):
    php_host.hook("10-hook", "printf out; printf 'err\\n' >&2; exit 3")
    assert php_host.tamrix(*ADD) == ok("x\n")
    assert php_host.hook_log == (
        "[TIME] Start: /etc/ovt/php_configurator.d/10-hook add\n"
        "PHP_CLI = \n"
        "PHP_ID = x\n"
        "PHP_INI = /opt/ovt/php/php.ini\n"
        "PHP_PATH = /opt/ovt/php/php-cgi\n"
        "PHP_TYPE = cgi\n"
        "PHP_VERSION = 8.1.2\n"
        "stdout: out\n"
        "stderr: err\n"
        "\n"
        "Exit code: 3\n")


def test_the_variables_reach_the_script_over_the_inherited_environment(php_host):
    php_host.hook("10-hook", "env | grep -e ^PHP_ -e ^OTHER | sort")
    php_host.tamrix(
        "--add", "--path", CGI, "--clipath", CLI, "--phpini", INI, "--type", "fastcgi", "--id", "a b'c",
        env={"PHP_ID": "caller's", "PHP_OTHER": "kept", "OTHER": "kept too"})
    variables = (
        f"PHP_CLI = {CLI}\nPHP_ID = a b'c\nPHP_INI = {INI}\nPHP_PATH = {CGI}\nPHP_TYPE = fastcgi\n"
        "PHP_VERSION = 8.1.2\n")
    seen = (
        f"OTHER=kept too\nPHP_CLI={CLI}\nPHP_ID=a b'c\nPHP_INI={INI}\nPHP_OTHER=kept\nPHP_PATH={CGI}\n"
        "PHP_TYPE=fastcgi\nPHP_VERSION=8.1.2\n")
    assert php_host.hook_log == log_record("10-hook", seen, variables=variables)


def test_the_script_gets_two_words_an_empty_input_and_empty_fields_as_set_variables(php_host):
    php_host.hook("10-hook", 'echo "$# $0 $1 [$(cat)] ${PHP_CLI-unset}"')
    php_host.tamrix(*ADD, stdin="caller's")
    assert php_host.hook_log == log_record("10-hook", f"1 {HOOKS}/10-hook add [] \n")


def test_scripts_run_in_plain_byte_order(php_host):
    for name in ("1", "10", "2", "10-a", "9-a", "Z", "a", "\u00e4", "B.sh", "a.sh~"):
        php_host.hook(name)
    php_host.tamrix(*ADD)
    assert hooks_run(php_host) == [
        f"{HOOKS}/{name} add" for name in ("1", "10", "10-a", "2", "9-a", "B.sh", "Z", "a", "a.sh~", "\u00e4")]


@pytest.mark.parametrize("mode,runs", [
    (0o700, True), (0o100, False), (0o744, True), (0o655, False), (0o011, False), (0o644, False)])
def test_only_the_owner_execute_bit_counts(php_host, mode, runs):
    php_host.hook("10-hook", mode=mode)
    php_host.tamrix(*ADD)
    if mode == 0o100:
        # Kept and started; a script must also be readable to be interpreted, unless root reads it anyway.
        assert php_host.hook_log.startswith(f"[TIME] Start: {HOOKS}/10-hook add\n")
    else:
        assert bool(hooks_run(php_host)) == runs
        assert php_host.hook_log == (log_record("10-hook") if runs else "")


def test_what_is_no_regular_file_is_skipped_without_a_word(php_host):
    folder = php_host.path(HOOKS)
    (folder / "folder").mkdir(mode=0o755)
    os.symlink("/no/such", folder / "dangling")
    os.symlink("loop", folder / "loop")
    os.mkfifo(folder / "fifo", 0o755)
    php_host.hook("folder/10-hook")
    assert php_host.tamrix(*ADD) == ok("x\n")
    assert php_host.hook_log == ""
    assert hooks_run(php_host) == []


def test_a_link_to_a_script_runs_under_the_link_s_name(php_host):
    php_host.recorder("/opt/ovt/script", "echo $0")
    os.symlink("/opt/ovt/script", php_host.path(HOOKS) / "10-link")
    php_host.tamrix(*ADD)
    assert php_host.hook_log == log_record("10-link", f"{HOOKS}/10-link\n")


def test_the_log_is_created_even_without_scripts_and_appended_to(php_host):
    php_host.tamrix(*ADD)
    assert php_host.hook_log == ""
    for hooks, records in (((), ""), (("10-hook",), log_record("10-hook"))):
        for name in hooks:
            php_host.hook(name)
        php_host.registry = ""
        php_host.write(HOOK_LOG, "kept\n")
        php_host.tamrix(*ADD)
        assert php_host.hook_log == "kept\n" + records


def test_a_script_for_which_there_is_no_process_is_logged_as_minus_one_and_the_next_runs(php_host):
    php_host.hook("1")
    php_host.hook("2")
    # The first process is the interpreter's.
    inject = ["-e", "inject=clone,?clone3,?fork,?vfork:error=EAGAIN:when=2"]
    assert php_host.traced(inject, *ADD)[0] == ok("x\n")
    assert php_host.hook_log == log_record("1", code=-1) + log_record("2")
    assert php_host.calls == [PROBE, f"{HOOKS}/2 add", DIRTY]


def test_each_line_of_a_record_is_written_at_once(php_host):
    php_host.hook("10-hook", "echo out; printf err >&2")
    result, trace = php_host.traced(["-y", "-s", "300", "-e", "trace=write,writev"], *ADD)
    assert result == ok("x\n")
    to_log = [line for line in trace.splitlines() if f"<{HOOK_LOG}>" in line]
    written = [re.search(r'"(.*)", (\d+)\) = \2$', line)[1] for line in to_log]
    assert written[0].endswith(f"] Start: {HOOKS}/10-hook add\\n")
    assert written[1:] == [
        "PHP_CLI = \\n", "PHP_ID = x\\n", f"PHP_INI = {INI}\\n", f"PHP_PATH = {CGI}\\n", "PHP_TYPE = cgi\\n",
        "PHP_VERSION = 8.1.2\\n", "stdout: out\\n\\n", "stderr: err\\n", "Exit code: 0\\n"]


def test_the_time_stamp_is_local_time_of_the_script_s_end(php_host):
    php_host.hook("10-hook", "sleep 1.2")
    env = {"TZ": "XXX-5:30"}
    before = time.time()
    php_host.tamrix(*ADD, env=env)
    after = time.time()
    stamp = php_host.read(HOOK_LOG)[1:24]
    seconds = time.mktime(time.strptime(stamp[:19], "%Y-%m-%d %H-%M-%S")) + time.timezone - 5.5 * 3600
    if time.localtime(before).tm_isdst:
        seconds -= time.timezone - time.altzone
    assert before + 1.1 < seconds + int(stamp[20:]) / 1000 + 0.002 and seconds <= after


@pytest.mark.parametrize("name,lay", [
    ("no folder", None), ("a FIFO", os.mkfifo), ("a folder", os.mkdir),
    ("a link loop", lambda path: path.symlink_to(path.name)),
    ("a full device", lambda path: path.symlink_to("/dev/full")),
    ("a dangling link", lambda path: path.symlink_to("/opt/ovt/no/such"))], ids=lambda value: str(value)[:15])
def test_a_log_that_cannot_be_written_is_passed_over_in_silence(php_host, name, lay):
    path = php_host.path(HOOK_LOG)
    for hook in ("1", "2"):
        php_host.hook(hook)
    php_host.open_log()
    if lay:
        lay(path)
        kind = path.lstat().st_mode
        assert php_host.tamrix(*ADD, timeout=20) == ok("x\n")
        assert path.lstat().st_mode == kind
    else:
        assert php_host.shell('exec bwrap --dev-bind / / --tmpfs /var/log -- "$@"', *ADD) == ok("x\n")
        assert php_host.hook_log is None
    assert php_host.calls == [PROBE, f"{HOOKS}/1 add", f"{HOOKS}/2 add", DIRTY]
    assert php_host.log_messages() == []


def test_a_log_that_a_script_moves_away_gets_the_other_records_too(php_host):
    php_host.hook("1", f"mv {HOOK_LOG} /var/log/quelm/moved")
    php_host.hook("2")
    php_host.tamrix(*ADD)
    assert php_host.hook_log is None
    os.rename(php_host.path("/var/log/quelm/moved"), php_host.path(HOOK_LOG))
    assert php_host.hook_log == log_record("1") + log_record("2")


def test_a_folder_of_scripts_that_may_not_be_read_ends_the_command_after_the_save(php_host):
    php_host.hook("10-hook")
    php_host.path(HOOKS).chmod(0)
    assert php_host.shell(UNPRIVILEGED, *ADD) == fatal_file(
        "directory iterator cannot open directory", "Permission denied", f"{HOOKS}/", out="x\n")
    php_host.path(HOOKS).chmod(0o755)
    assert php_host.registry == document(record("x"))
    assert php_host.calls == [PROBE]
    assert php_host.hook_log is None


@pytest.mark.parametrize("words,left,out", [
    (ADD, document(record("a"), record("b"), record("x")), "x\n"),
    (("--update", "--id", "a", "--displayname", "n"), document(record("a", displayname="n"), record("b")), ""),
    (("--remove", "--id", "a"), document(record("b")), "")], ids=["add", "update", "remove"])
def test_without_the_folder_the_change_is_saved_and_the_flag_not_set(php_host, words, left, out):
    php_host.registry = document(record("a"), record("b"))
    php_host.path(HOOKS).rmdir()
    assert php_host.tamrix(*words) == fatal_file(
        "directory iterator cannot open directory", "No such file or directory", f"{HOOKS}/", out)
    assert php_host.registry == left
    assert php_host.calls == ([PROBE] if words == ADD else [])
    assert php_host.hook_log is None
