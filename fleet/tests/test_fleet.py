"""Playbooks on many hosts: the role, the example, and hosts that fail."""

import fcntl
import os
import shutil

from debian_php import PHP, any_version, needed
from registry_text import CGI, CLI, INI, document, package, record

ROLE = [{"name": "role", "ansible.builtin.import_role": {"name": "ovt.tamrix.php_handlers"}}]
HOOKS, FILES = "/etc/ovt/php_configurator.d", "/etc/ovt/php_versions.d"
HOOK = "#!/bin/sh\necho $1 $PHP_ID >>/opt/ovt/hooked\n"
STATE = {
    "php_handlers_package_files": [
        {"name": "service", "id": "service", "path": CGI, "clipath": CLI, "phpini": INI, "type": "fpm",
         "service": "php-fpm", "poold": "/pool"}],
    "php_handlers_hooks": [{"name": "10-note", "content": HOOK}],
    "php_handlers_custom": [
        {"id": "a", "displayname": "PHP $version", "path": CGI, "phpini": INI, "type": "cgi"},
        {"id": "unwanted", "state": "absent"}],
}
A = record("a", displayname="PHP%20%24version")
SERVICE = (record("service", clipath=CLI, type="fpm", system=True, service="php-fpm", poold="/pool")
           + "," + record("service-dedicated", clipath=CLI, type="fpm", system=True, service="php-fpm"))
CONF = f"""displayname=$version
path={CGI}
clipath={CLI}
phpini={INI}
type=fpm
id=service
service=php-fpm
poold=/pool
"""


def test_the_role_brings_hosts_to_the_described_state(fleet):
    fleet = fleet("new", "used")
    used = fleet["used"]
    used.registry = document(record("other"), record("unwanted"), A.replace('"cgi"', '"fastcgi"'),
                             record("old", displayname="name", system=True))
    used.write(f"{FILES}/old.conf", package(id="old"))
    used.hook("90-old")
    wanted = {**STATE, "php_handlers_package_files_absent": ["old"], "php_handlers_hooks_absent": ["90-old"]}
    before = fleet.registries()

    told = fleet.play(ROLE, "--check", "--diff", **wanted)
    assert (told.status, fleet.registries(), fleet.calls()) == (0, before, {"new": [], "used": []}), told.text
    assert not fleet["new"].exists(f"{FILES}/service.conf") and used.exists(f"{HOOKS}/90-old")
    assert "which handlers a reread would bring, drop or change is not known" in " ".join(told.text.split())
    assert '+type=fpm\n' in told.text and '-    "type": "fastcgi"' in told.text

    run = fleet.play(ROLE, **wanted)
    assert run.status == 0, run.text
    for task, hosts in [("Lay package files", {"new", "used"}), ("Remove package files", {"used"}),
                        ("Lay hook scripts", {"new", "used"}), ("Remove hook scripts", {"used"}),
                        ("Keep custom handlers", {"new", "used"})]:
        assert told.changed(task) == run.changed(task) == hosts, task
    after = {"new": document(SERVICE, A), "used": document(record("other"), A, SERVICE)}
    assert fleet.registries() == after
    for host in fleet.hosts.values():
        assert (host.read(f"{FILES}/service.conf"), host.read(f"{HOOKS}/10-note")) == (CONF, HOOK)
        assert host.path(f"{HOOKS}/10-note").stat().st_mode & 0o777 == 0o755
    assert fleet["new"].read("/opt/ovt/hooked") == "add a\n"
    assert used.read("/opt/ovt/hooked") == "update a\nremove a\n"
    assert not used.exists(f"{FILES}/old.conf") and not used.exists(f"{HOOKS}/90-old")

    fleet.forget_calls()
    again = fleet.play(ROLE, **wanted)
    assert (again.status, again.changed(), fleet.registries()) == (0, set(), after), again.text
    # Not one interpreter was started, and no sibling tool either.
    assert fleet.calls() == {"new": [], "used": []}

    smaller = {"php_handlers_package_files_absent": ["service"], "php_handlers_custom_only": True,
               "php_handlers_custom": STATE["php_handlers_custom"][:1], "php_handlers_set_dirty_flag": False}
    told = fleet.play(ROLE, "--check", **smaller)
    run = fleet.play(ROLE, **smaller)
    assert told.changed("not described") == run.changed("not described") == {"used"}
    assert run.changed("Take up the package files") == {"new", "used"}
    assert fleet.registries() == {"new": document(A), "used": document(A)}
    assert not any("depotctl" in call for calls in fleet.calls().values() for call in calls)


def test_check_mode_before_tamrix_is_installed_says_what_it_cannot_know(fleet):
    fleet = fleet("bare")
    uninstall(fleet["bare"])
    run = fleet.play(ROLE, "--check", **STATE)
    assert run.status == 0, run.text
    assert "tamrix is not installed, so check mode cannot know what would become of its handlers" in run.text


def test_a_description_that_is_wrong_is_refused_before_anything_is_done(fleet):
    fleet = fleet("one")
    run = fleet.play(ROLE, php_handlers_package_files=[{"name": "x", "path": CGI, "phpini": INI, "type": "php"}])
    assert run.status == 2
    assert "value of type must be one of: module, cgi, fastcgi, fpm, got: php" in run.text
    assert set(run.results()) == {"one"} and fleet["one"].registry is None


@needed
def test_the_example_brings_every_host_to_the_same_handlers(fleet):
    fleet = fleet("one", "two")
    fleet["two"].registry = document(record("mine"), record("site-old"))
    run = fleet.play("ovt.tamrix.example", php=PHP)
    assert run.status == 0, run.text
    fpm = {"path": f"/usr/sbin/php-fpm{PHP}", "clipath": f"/usr/bin/php{PHP}", "version": "VERSION", "type": "fpm",
           "phpini": f"/etc/php/{PHP}/fpm/php.ini", "displayname": "PHP%20%24version%20as%20a%20service",
           "system": True, "service": f"php{PHP}-fpm"}
    system = [record("php-fpm", **fpm, poold=f"/etc/php/{PHP}/fpm/pool.d"), record("php-fpm-dedicated", **fpm)]
    site = record("site-cgi", f"/usr/bin/php-cgi{PHP}", f"/usr/bin/php{PHP}", f"/etc/php/{PHP}/cgi/php.ini", "VERSION",
                  "PHP%20%24version")
    assert {name: any_version(text) for name, text in fleet.registries().items()} == {
        "one": document(*system, site), "two": document(record("mine"), *system, site)}
    again = fleet.play("ovt.tamrix.example", php=PHP)
    assert (again.status, again.changed()) == (0, set())


def test_odd_values_pass_through_ansible_and_a_play_may_name_the_collection_once(fleet):
    fleet = fleet("one")
    odd = ["{{ lookup('env', 'HOME') }}", "a'b\"c\\", "$(touch /opt/ovt/x)", "-"]

    def task(name, **arguments):
        return {"name": name, name: {"id": "{{ item }}", **arguments},
                "loop": [{"__ansible_unsafe": value} for value in odd]}

    run = fleet.play([task("ovt.tamrix.php_handler", path=CGI, phpini=INI, type="cgi"),
                      {**task("php_handler", state="absent"), "collections": ["ovt.tamrix"]}])
    assert run.status == 0, run.text
    (added,) = run.results("ovt.tamrix.php_handler")["one"]
    assert [result["handler"]["id"] for result in added["results"]] == odd
    assert fleet["one"].registry == document()
    assert not fleet["one"].exists("/opt/ovt/x")


def uninstall(host):
    host.remove("binary")
    host.remove("/opt/ovt/admin/sbin/tamrix")


def kill_the_task(host):
    """The interpreter ends the module that had it started: a host that goes away in the middle."""
    host.recorder(CGI, "task=$(awk '{ print $4 }' /proc/$PPID/stat)\nkill -9 $task\nexec sleep 60")


def test_each_failing_host_says_why_and_a_later_run_mends_what_it_can(fleet):
    fleet = fleet("well", "missing", "broken", "locked", "sibling", "killed", "gone")
    uninstall(fleet["missing"])
    fleet["broken"].registry = "x"
    held = os.open(fleet["locked"].path("/etc/ovt"), os.O_RDONLY)
    fcntl.flock(held, fcntl.LOCK_EX)
    fleet["sibling"].tool("depotctl", status=1, err="no disk")
    kill_the_task(fleet["killed"])
    shutil.rmtree(fleet["gone"].folder)

    run = fleet.play(ROLE, **STATE, php_handlers_lock_timeout=1)
    assert run.status == 4, run.text
    failures = run.failures()
    assert {host: outcome for host, (outcome, _) in failures.items()} == {
        "missing": "failed", "broken": "failed", "locked": "failed", "sibling": "failed", "killed": "failed",
        "gone": "unreachable"}
    tamrix = "/opt/ovt/admin/sbin/tamrix"
    assert failures["missing"][1] == f"{tamrix} is missing: install the package tamrix on this host"
    assert failures["broken"][1].startswith("Error reading /etc/ovt/php_versions.json: ")
    assert failures["locked"][1] == "another caller has held the lock on /etc/ovt for 1 s; lslocks shows which"
    assert failures["sibling"][1] == (
        "Failed to set depotctl dirty flag : no disk\n"
        f"The registry is changed all the same; mend the cause, then run: {tamrix} --reread")
    assert run.results("Take up")["killed"][0]["rc"] == 128 + 9
    assert "no private host there" in run.text
    assert fleet["well"].registry == document(SERVICE, A)
    assert fleet["killed"].registry is None

    # What kept them from it ends; the program, a registry and a machine are put back by hand.
    os.close(held)
    fleet["missing"].path("binary").symlink_to(os.readlink(fleet["well"].path("binary")))
    fleet["missing"].write(tamrix)
    fleet["broken"].registry = document(record("mine"))
    fleet["sibling"].tool("depotctl")
    fleet["killed"].php(CGI)
    later = fleet.play(ROLE, "--limit", "!gone", **STATE)
    assert (later.status, later.failures()) == (0, {}), later.text
    registries = fleet.registries()
    assert registries.pop("gone") is None
    assert registries.pop("broken") == document(record("mine"), SERVICE, A)
    assert registries == dict.fromkeys(registries, document(SERVICE, A))
    assert later.changed() == {"missing", "broken", "locked", "sibling", "killed"}
