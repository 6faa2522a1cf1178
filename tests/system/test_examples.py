"""The examples that are installed with the package do what their first lines say."""

import json
import pathlib
import re
import shutil
import subprocess
import time

import pytest

import debian_php
from manual import ROOT
from private_host import HOOKS, PACKAGES, REGISTRY, SCRIPT, ok
from registry_text import document, record

EXAMPLES = ROOT / "docs/examples"
FPM = {"type": "fpm", "service": "my-fpm", "poold": "/opt/ovt/pool"}


def install(host, example, folder, mode=0o755):
    return host.write(f"{folder}/{example.name}", example.read_bytes(), mode)


@debian_php.needed
def test_the_package_files_register_debians_php(host):
    shutil.copy(SCRIPT.with_name("siblings") / "quelmrc", host.path("/opt/ovt/admin/sbin"))
    for example in (EXAMPLES / "php_versions.d").iterdir():
        host.write(f"{PACKAGES}/{example.name}", debian_php.here(example.read_text(encoding="utf-8")))
    assert host.tamrix("--reread") == ok()
    listed = {handler["id"]: handler for handler in json.loads(host.tamrix("--list-json").out)["php"]}
    assert {id: handler["type"] for id, handler in listed.items()} == {
        debian_php.here(f"php82-{name}"): name.split("-")[0] for name in ("cgi", "fastcgi", "fpm", "fpm-dedicated")}
    for handler in listed.values():
        assert re.fullmatch(re.escape(handler["version"]) + r" by Debian \(\w+\)", handler["displayname"])
        assert handler["system"]


def test_a_dated_copy_of_the_registry_is_kept_after_each_change(host):
    install(host, EXAMPLES / "php_configurator.d/10-keep-registry", HOOKS)
    host.registry = document(record("a"), record("b"))
    copies = "/var/backups/tamrix/php_versions.json.*"
    day = time.strftime("%Y-%m-%d")
    # One run: only /etc/ovt, /opt/ovt and the log folder of the host outlive it.
    result = host.shell(
        f'"$@" --update --id a --displayname new && cp {REGISTRY} /opt/ovt/first && "$@" --remove --id b\n'
        f'set -- {copies}; echo $#; cmp "$1" /opt/ovt/first; cmp "$2" {REGISTRY}; echo "$@"')
    count, names, *rest = result.out.splitlines()
    assert (result.status, result.err, count, rest) == (0, "", "2", [])
    # The day may have changed meanwhile.
    assert day <= time.strftime("%Y-%m-%d")
    assert re.fullmatch(r"(\S+\.\d{4}-\d\d-\d\dT\d\d-\d\d-\d\d\.\d{9} ?){2}", names)
    assert host.hook_log.count("Exit code: 0\n") == 2


@pytest.mark.parametrize("words, reloads", [
    (["--update", "--id", "f", "--displayname", "x"], ["reload my-fpm"]),
    (["--update", "--id", "c", "--displayname", "x"], []),
    (["--remove", "--id", "c"], []),
    (["--remove", "--id", "last"], []),
    (["--update", "--id", "no service", "--displayname", "x"], []),
], ids=["changed-fpm", "changed-cgi", "removed-before-fpm", "removed-last-fpm", "fpm-without-service"])
def test_the_service_of_the_changed_handler_is_reloaded(host, words, reloads):
    install(host, EXAMPLES / "php_configurator.d/20-reload-service", HOOKS)
    host.registry = document(record("c"), record("f", **FPM), record("no service", type="fpm"), record("last", **FPM))
    host.recorder("/opt/ovt/bin/systemctl")
    assert host.tamrix(*words, env={"PATH": "/opt/ovt/bin:/usr/bin:/bin"}) == ok()
    assert [call for call in host.calls if "systemctl" in call] == [
        f"/opt/ovt/bin/systemctl {call}" for call in reloads]
    assert "Exit code: 0\n" in host.hook_log and "stderr: \n" in host.hook_log


@pytest.mark.parametrize("script,breaking", [
    ('PATH=/opt/ovt/bin "$@"', ":"),
    ('PATH=/opt/ovt/bin:$PATH "$@"', "echo broken >/etc/ovt/php_versions.json")],
    ids=["no program to look it up", "no listing"])
def test_a_service_that_cannot_be_looked_up_shows_in_the_log(host, script, breaking):
    install(host, EXAMPLES / "php_configurator.d/20-reload-service", HOOKS)
    host.registry = document(record("f", **FPM))
    host.recorder("/opt/ovt/bin/systemctl")
    host.hook("10-break", breaking)
    assert host.shell(script, "--update", "--id", "f", "--displayname", "x") == ok()
    assert re.search(r"Exit code: [1-9]\d*\n$", host.hook_log)
    assert "systemctl" not in "".join(host.calls)


@pytest.mark.parametrize("words,message", [
    (["--update", "--id=--odd %s id", "--displayname", "x"],
     "update: --odd %s id, PHP 8.1.2 (cgi) at /opt/ovt/php/php-cgi"),
    # Without another handler, whichever the hooks are told of.
    (["--remove", "--id", "a"], "remove: a handler is gone"),
    (["--remove", "--id", "last"], "remove: a handler is gone")])
def test_the_change_is_sent_to_the_system_log(host, words, message):
    install(host, EXAMPLES / "php_configurator.d/30-tell-syslog", HOOKS)
    host.registry = document(record("a"), record("--odd %s id"), record("last"))
    host.open_log()
    assert host.tamrix(*words) == ok()
    (sent,) = host.log_messages()
    assert sent.endswith(f"php-handlers: {message}")


def reader_commands():
    """The jq program's first line is the command that runs it."""
    first = (EXAMPLES / "readers/by-type.jq").read_text(encoding="utf-8").splitlines()[0]
    return [first.removeprefix("# "), "./by-type.py cgi", "./by-type.sh cgi"]


def read_listing(host, command, **more):
    shutil.copytree(EXAMPLES / "readers", host.path("/opt/ovt/readers"))
    return host.run("/bin/sh", "-c", f"cd /opt/ovt/readers && {command}",
                    env={"PATH": "/opt/ovt/admin/sbin:/usr/bin:/bin", **more})


@pytest.mark.parametrize("command", reader_commands(), ids=["jq", "python", "shell"])
def test_a_reader_prints_the_handlers_of_a_type(host, command):
    host.registry = document(
        record("a", path="/one path"), record("b", type="fastcgi"), record("f", **FPM),
        record("c", path="/x", displayname="%22type%22%3A%22cgi%22%2C", system=True))
    assert read_listing(host, command) == ok("a\t/one path\nc\t/x\n")


@pytest.mark.parametrize("command", reader_commands(), ids=["jq", "python", "shell"])
def test_a_reader_fails_without_a_listing(host, command):
    host.registry = "broken"
    done = read_listing(host, command)
    assert done.status != 0 and done.out == ""
    assert done.err.startswith("Error reading /etc/ovt/php_versions.json: ")


@pytest.mark.parametrize("locale", ["C", "C.UTF-8"])
@pytest.mark.parametrize("command, shown", zip(reader_commands(), ["\ufffd", "\udcff", "\udcff"]),
                         ids=["jq", "python", "shell"])
def test_a_reader_copes_with_a_path_that_is_no_utf_8(host, command, shown, locale):
    host.registry = document(record("a", path="/\udcff"), record("b", path="/b"))
    assert read_listing(host, command, LC_ALL=locale) == ok(f"a\t/{shown}\nb\t/b\n")


@pytest.mark.parametrize("command, shown", zip(reader_commands(), ["", "None", "null"]), ids=["jq", "python", "shell"])
def test_a_reader_shows_a_value_that_is_left_out(host, command, shown):
    host.registry = document(record("a", path="/" * 4088))
    assert read_listing(host, command) == ok(f"a\t{shown}\n")


def unit(name):
    """The lines NAME=VALUE of a unit, in their order."""
    lines = (EXAMPLES / f"systemd/tamrix-keep-registry.{name}").read_text(encoding="utf-8").splitlines()
    return [tuple(line.split("=", 1)) for line in lines if re.match(r"\w+=", line)]


def test_systemd_keeps_a_dated_copy_of_the_registry(host):
    assert ("PathChanged", REGISTRY) in unit("path")
    # As systemd reads it: two percent signs are one.
    commands = [value.replace("%%", "%") for name, value in unit("service") if name == "ExecStart"]
    host.registry = document(record("a"))
    result = host.run("/bin/sh", "-ec", "\n".join(commands) + f"""
        set -- /var/backups/tamrix/*; echo $#; cmp "$1" {REGISTRY}; echo "$1" """)
    assert (result.status, result.err, result.out.splitlines()[0]) == (0, "", "1")
    copy = result.out.splitlines()[1]
    assert re.fullmatch(r"/var/backups/tamrix/php_versions\.json\.\d{4}-\d\d-\d\dT\d\d-\d\d-\d\d\.\d{9}", copy)


@pytest.mark.skipif(not shutil.which("systemd-analyze"), reason="systemd-analyze is not installed")
def test_systemd_accepts_the_units():
    units = sorted(map(str, (EXAMPLES / "systemd").iterdir()))
    done = subprocess.run(["systemd-analyze", "verify", *units], capture_output=True, text=True)
    assert (done.returncode, [line for line in done.stderr.splitlines() if "keep-registry" in line]) == (0, [])


def metrics(host):
    return host.run(host.write("/opt/ovt/metrics", (EXAMPLES / "prometheus/php-handlers.py").read_bytes(), 0o755))


def test_prometheus_sees_each_handler_and_whether_its_interpreter_is_there(host):
    host.php("/opt/ovt/php/php-cgi")
    host.registry = document(record("a", path="/opt/ovt/php/php-cgi"), record("f", path="/gone", **FPM),
                             record('q\\"b\\\\\\n\udcff', path="/gone"))
    assert metrics(host) == ok("""\
# HELP php_handler_info A registered PHP handler.
# TYPE php_handler_info gauge
php_handler_info{id="a",version="8.1.2",type="cgi"} 1
php_handler_info{id="f",version="8.1.2",type="fpm"} 1
php_handler_info{id="q\\"b\\\\\\n\ufffd",version="8.1.2",type="cgi"} 1
# HELP php_handler_interpreter Whether its interpreter is there.
# TYPE php_handler_interpreter gauge
php_handler_interpreter{id="a"} 1
php_handler_interpreter{id="f"} 0
php_handler_interpreter{id="q\\"b\\\\\\n\ufffd"} 0
""")


def test_prometheus_gets_nothing_without_a_listing(host):
    host.registry = "broken"
    done = metrics(host)
    assert (done.status, done.out) == (1, "")


def stand_ins(host):
    for tool in (EXAMPLES / "stand-ins/sbin").iterdir():
        install(host, tool, "/opt/ovt/admin/sbin")


def test_the_stand_ins_answer_as_the_panels_tools(host):
    stand_ins(host)
    host.php("/opt/ovt/php/php-fpm")
    add = ["--add", "--id", "f", "--path", "/opt/ovt/php/php-fpm", "--phpini", "/dev/null", "--type", "fpm",
           "--poold", "/opt/ovt/pool", "--service"]
    service = next(pathlib.Path("/usr/lib/systemd/system").glob("*.service")).stem
    assert host.tamrix(*add, "no-such-service").status == 1
    assert host.tamrix(*add, service) == ok("f\n")
    assert re.fullmatch(f"{re.escape(service)} \\d+\n", host.read("/opt/ovt/var/service.limits"))
    assert host.read("/opt/ovt/var/depot.dirty") == "package state is dirty\n"
