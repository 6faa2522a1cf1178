"""php_handler on one host: what is called, what the registry holds, what the task says."""

import fcntl
import os
import subprocess

import pytest

from conftest import RECORDER
from private_host import TAMRIX
from registry_text import CGI, CLI, INI, document, record

LIST = "--list-json|"
NEW = {"id": "a", "displayname": "PHP $version", "path": CGI, "clipath": CLI, "phpini": INI, "type": "cgi"}
PLAIN = {"id": "a", "path": CGI, "phpini": INI, "type": "cgi"}
STORED = record("a", displayname="PHP%20%24version", clipath=CLI)
LISTED = {"id": "a", "path": CGI, "clipath": CLI, "phpini": INI, "version": "8.1.2", "displayname": "PHP 8.1.2",
          "type": "cgi", "system": False}
DIRTY = "/opt/ovt/admin/sbin/depotctl --set-dirty-flag"
both_modes = pytest.mark.parametrize("check", [False, True], ids=["run", "check"])


def changed(host, **arguments):
    result = host.handler(**arguments)
    assert "failed" not in result, result
    return result["changed"]


def failure(host, **arguments):
    """The message of a task that fails and leaves the registry as it is."""
    before = host.registry
    result = host.handler(**arguments)
    assert (result.get("failed"), host.registry) == (True, before)
    return result["msg"]


def predicted(host, **arguments):
    """The result in check mode, which changes nothing."""
    before = host.registry
    result = host.handler(check=True, **arguments)
    assert (host.registry, host.words, host.calls) == (before, [LIST], [])
    return result


# Present


def test_a_handler_is_created_and_a_second_run_changes_nothing(host):
    result = host.handler(**NEW)
    assert (result["changed"], result["handler"], "diff" in result) == (True, LISTED, False)
    assert host.registry == document(STORED)
    assert host.calls[-1] == DIRTY
    assert host.words == [
        LIST, f"--add|--id=a|--displayname=PHP $version|--path={CGI}|--clipath={CLI}|--phpini={INI}|--type=cgi|", LIST]
    host.forget_calls()
    again = host.handler(**NEW)
    assert (again["changed"], again["handler"], host.registry) == (False, LISTED, document(STORED))
    assert (host.words, host.calls) == ([LIST], [])


def test_a_changed_field_updates_only_that(host):
    host.registry = document(record("z"), STORED)
    assert changed(host, **{**NEW, "type": "fastcgi"})
    assert host.registry == document(record("z"), STORED.replace('"type":"cgi"', '"type":"fastcgi"'))
    assert (host.words, host.calls) == ([LIST, "--update|--id=a|--type=fastcgi|", LIST], [DIRTY])
    assert changed(host, id="a", type="cgi", set_dirty_flag=False)
    assert (host.words[1], host.calls) == ("--update|--id=a|--type=cgi|--no-set-dirty-flag|", [DIRTY])
    assert not changed(host, id="a", phpini=INI)
    assert host.registry == document(record("z"), STORED)


@pytest.mark.parametrize("id", [
    "a'b\"c\\", "$(touch /opt/ovt/x)", "`touch /opt/ovt/x`;&|<>*?[a]{b,c}", "-", "--", "--id=b", "=", " ", " a ",
    "a\nb", "a\tb\r", "%s %1$s", "Gr\u00fc\u00dfe \u2713", "$version", "~", "#", "@x", "\u00a0"])
def test_odd_identifiers_are_added_found_changed_and_removed(host, id):
    result = host.handler(**{**PLAIN, "id": id})
    assert (result["changed"], result["handler"]["id"]) == (True, id)
    assert changed(host, id=id, displayname="new")
    assert changed(host, id=id, state="absent")
    assert host.registry == document()
    assert not host.exists("/opt/ovt/x")


@pytest.mark.parametrize("value", ["-x", "--id=b", "a=b", " ", "~ $HOME", "Grüße \"'\\ 100%"])
def test_odd_names_arrive_as_they_are_and_settle(host, value):
    host.registry = document(STORED)
    result = host.handler(id="a", displayname=value, env={"version": "wrong"})
    assert (result["changed"], result["handler"]["displayname"]) == (True, value)
    assert not changed(host, id="a", displayname=value)


def test_the_placeholder_is_never_filled_from_the_environment(host):
    assert changed(host, **NEW, env={"version": "wrong"})
    assert host.registry == document(STORED)


def test_empty_values_are_given(host):
    host.registry = document(STORED)
    assert changed(host, id="a", displayname="", clipath="")
    assert host.registry == document(record("a", displayname="", clipath=""))
    assert not changed(host, id="a", displayname="", clipath="")
    assert changed(host, **{**NEW, "id": "b", "clipath": ""})
    assert host.registry == document(record("a", displayname=""), record("b", displayname="PHP%20%24version"))


def test_a_plain_name_that_happens_to_fit_is_mended_once_the_version_changes(host):
    plain = record("a", displayname="PHP%208.1.2", clipath=CLI)
    host.registry = document(plain)
    assert not changed(host, id="a", displayname="PHP $version")
    host.registry = document(plain.replace('"8.1.2"', '"8.1.3"'))
    assert changed(host, id="a", displayname="PHP $version")
    assert host.registry == document(STORED.replace('"8.1.2"', '"8.1.3"'))


@pytest.mark.parametrize("wanted, stored", [("PHP $version", "PHP%208.1.2"), ("PHP 8.1.2", "PHP%20%24version")])
def test_one_run_settles_name_and_path_together(host, wanted, stored):
    newer = host.php("/opt/ovt/php/php-cgi8.3", "PHP 8.3.1 (cgi-fcgi)\n")
    host.registry = document(record("a", displayname=stored))
    result = host.handler(id="a", displayname=wanted, path=newer)
    assert (result["changed"], result["handler"]["displayname"]) == (True, wanted.replace("$version", "8.3.1"))
    assert not changed(host, id="a", displayname=wanted, path=newer)


def test_a_handler_becomes_an_fpm_one_and_back(host):
    host.registry = document(STORED)
    fpm = {"id": "a", "type": "fpm", "service": "php-fpm", "poold": "/pool"}
    assert changed(host, **fpm)
    assert host.registry == document(
        record("a", displayname="PHP%20%24version", clipath=CLI, type="fpm", service="php-fpm", poold="/pool"))
    assert not changed(host, **fpm)
    assert changed(host, id="a", type="cgi")
    assert host.registry == document(STORED)
    # Without a service, as the program allows it.
    assert changed(host, id="a", type="fpm")
    assert host.registry == document(record("a", displayname="PHP%20%24version", clipath=CLI, type="fpm"))


def test_a_module_handler_keeps_its_type_and_may_lose_it(host):
    host.registry = document(record("a", type="module"))
    assert changed(host, id="a", displayname="new")
    assert host.registry == document(record("a", type="module", displayname="new"))
    assert changed(host, id="a", type="cgi")


def test_warnings_of_the_program_are_warnings_of_the_task(host):
    host.php(CLI, "PHP 8.0.30 (cli)\n")
    result = host.handler(**NEW)
    assert (result["changed"], len(result["warnings"])) == (True, 1)
    assert "8.0.30" in result["warnings"][0]


def test_of_a_doubled_identifier_the_first_one_counts(host):
    host.registry = document(record("a"), record("a", type="fastcgi"))
    warnings = ["[Warning] conflicting handler with id `a' found. Ignoring"]
    result = host.handler(id="a", type="cgi")
    assert (result["changed"], result["warnings"]) == (False, warnings)
    # The program prints it twice: the change itself drops the second one.
    result = host.handler(id="a", displayname="new")
    assert (result["changed"], result["warnings"], host.registry) == (
        True, warnings, document(record("a", displayname="new")))


# Absent


def test_a_handler_is_removed_and_a_second_run_changes_nothing(host):
    host.registry = document(record("a"), record("b"))
    result = host.handler(id="a", state="absent")
    assert (result["changed"], result["handler"], host.registry) == (True, None, document(record("b")))
    assert host.words == [LIST, "--remove|--id=a|", LIST]
    assert not changed(host, id="a", state="absent")
    assert (host.words, host.registry) == ([LIST], document(record("b")))


# Check and diff mode


def test_check_mode_tells_an_addition(host):
    result = predicted(host, **NEW)
    assert (result["changed"], result["handler"]) == (True, {**LISTED, "version": None, "displayname": None})


def test_check_mode_tells_an_update_only_where_there_is_one_and_guesses_no_version(host):
    host.registry = document(STORED)
    result = predicted(host, **{**NEW, "type": "fastcgi"})
    assert (result["changed"], result["handler"]) == (True, {**LISTED, "type": "fastcgi"})
    assert predicted(host, **NEW)["changed"] is False
    moved = {**LISTED, "path": "/opt/ovt/php/other", "version": None}
    assert predicted(host, id="a", path=moved["path"])["handler"] == {**moved, "displayname": None}
    assert predicted(host, id="a", path=moved["path"], displayname="x")["handler"] == {**moved, "displayname": "x"}


def test_check_mode_tells_a_removal(host):
    assert predicted(host, id="a", state="absent")["changed"] is False
    host.registry = document(STORED)
    result = predicted(host, id="a", state="absent")
    assert (result["changed"], result["handler"]) == (True, None)


def test_what_check_mode_tells_is_what_a_run_does(host):
    host.registry = document(record("a", displayname="old"))
    fpm = {"id": "a", "displayname": "$version $version", "type": "fpm", "service": "s", "poold": "/p"}
    told = predicted(host, diff=True, **fpm)
    assert told["handler"]["displayname"] == "8.1.2 8.1.2"
    real = host.handler(diff=True, **fpm)
    assert (told["handler"], told["diff"]) == (real["handler"], real["diff"])
    assert host.words and host.calls
    host.forget_calls()
    told = predicted(host, id="a", type="cgi")
    assert told["handler"] == host.handler(id="a", type="cgi")["handler"]


def test_diff_shows_before_and_after(host):
    header = {"before_header": "a", "after_header": "a"}
    assert host.handler(diff=True, **NEW)["diff"] == {**header, "before": {}, "after": LISTED}
    assert host.handler(diff=True, id="a", displayname="mine")["diff"] == {
        **header, "before": LISTED, "after": {**LISTED, "displayname": "mine"}}
    assert host.handler(diff=True, id="a", state="absent")["diff"] == {
        **header, "before": {**LISTED, "displayname": "mine"}, "after": {}}


# Refusals


def test_a_system_handler_is_refused_with_the_words_of_the_program(host):
    host.registry = document(record("s", system=True))
    before = host.registry
    for arguments, text in [
            ({"type": "fastcgi"}, "Cannot modify system handler with id=`s': edit corresponding config file instead."),
            ({"state": "absent"}, "Handler with id = `s' is provided by some package.\n"
                                  "Please deinstall it or edit appropriate config in /etc/ovt/php_versions.d")]:
        result = host.handler(id="s", **arguments)
        assert text in result["msg"] and result["failed"] and host.registry == before
        assert (result["rc"], result["stderr"].strip(), result["stdout"]) == (1, result["msg"], "")
        assert (failure(host, id="s", check=True, **arguments)
                == "handler s is a system handler and would be refused")
    assert not changed(host, id="s", type="cgi")


def test_a_missing_interpreter_is_refused_with_the_words_of_the_program(host):
    assert "/opt/ovt/php/none" in failure(host, **{**PLAIN, "path": "/opt/ovt/php/none"})


@both_modes
def test_a_new_handler_needs_its_values_and_a_service_belongs_to_fpm(host, check):
    needs = "handler a is not registered; to add it, give "
    foreign = "handler a: only type fpm has service and poold"
    assert failure(host, check=check, id="a") == needs + "path, phpini, type"
    assert failure(host, check=check, id="a", path=CGI, type="cgi") == needs + "phpini"
    assert failure(host, check=check, **{**PLAIN, "type": "fpm"}) == needs + "service, poold"
    assert failure(host, check=check, **PLAIN, service="x", poold="/p") == foreign
    host.registry = document(record("a"))
    assert failure(host, check=check, **PLAIN, service="x", poold="/p") == foreign
    assert set(host.words) == {LIST}


@both_modes
@pytest.mark.parametrize("id", ["module", "cgi", "fastcgi"])
def test_an_identifier_that_a_reread_drops_is_refused_or_warned_of(host, check, id):
    assert (failure(host, check=check, **{**PLAIN, "id": id})
            == f"a reread would drop a handler with the identifier {id}: choose another")
    host.registry = document(record(id))
    result = host.handler(check=check, id=id, type="fastcgi")
    assert (result["changed"], result["warnings"]) == (
        True, [f"a reread will drop handler {id}, because that identifier is the packages'"])
    host.registry = document(record(id, system=True))
    assert "warnings" not in host.handler(check=check, id=id, type="cgi")
    host.registry = document(record(id))
    result = host.handler(check=check, id=id, state="absent")
    assert (result["changed"], "warnings" in result) == (True, False)


@pytest.mark.parametrize("field, value, why", [
    ("id", "a\x01b", "holds a control character"), ("service", "\x00", "holds a NUL"),
    ("displayname", " " * 1363, "is too long")], ids=["control", "nul", "long"])
@both_modes
def test_what_would_make_the_registry_unreadable_is_refused(host, check, field, value, why):
    host.registry = document(record("a", type="fpm", service="s", poold="/p"))
    assert (failure(host, check=check, **{"id": "a", field: value})
            == f"{field} {why}, and the handler could not be read again")
    assert host.words == []


@pytest.mark.parametrize("field, value", [
    ("displayname", "\x01\x1f\n"), ("id", "\b\f"), ("poold", "/" * 4087), ("id", '"' * 2043),
    ("displayname", " " * 1362), ("service", "\x7f")],
    ids=["displayname", "id", "long-poold", "long-id", "long-displayname", "service"])
def test_what_the_registry_can_hold_is_not_refused(host, field, value):
    new = {**PLAIN, "type": "fpm", "service": "s", "poold": "/p", field: value}
    result = host.handler(**new)
    assert (result["changed"], result["handler"][field]) == (True, value)
    assert not changed(host, **new)


def test_an_empty_identifier_is_refused_with_the_words_of_the_program(host):
    assert "Undefined php handler id" in failure(host, **{**PLAIN, "id": ""})
    assert not changed(host, id="", state="absent")


def test_bytes_that_are_no_text_are_passed_by(host):
    host.registry = document(record("a", path="/\udcff"), record("\udcfe"))
    before = host.registry
    assert not changed(host, id="a", displayname="$version")
    assert not changed(host, id="b", state="absent")
    assert host.registry == before
    assert changed(host, diff=True, id="a", type="fastcgi")
    assert host.registry == document(record("a", path="/\udcff", type="fastcgi"), record("\udcfe"))


# Failures


@both_modes
def test_a_broken_registry_is_left_as_it_is(host, check):
    host.registry = document(record("a"))[:-5]
    for arguments in (PLAIN, {"id": "a", "state": "absent"}):
        assert failure(host, check=check, **arguments).startswith("Error reading /etc/ovt/php_versions.json: ")


@both_modes
def test_a_host_without_the_program_is_told_what_to_install(host, check):
    host.remove(RECORDER)
    assert failure(host, check=check, **PLAIN) == f"{RECORDER} is missing: install the package tamrix on this host"


@pytest.mark.parametrize("arguments, said", [
    (PLAIN, "handler a is not listed"),
    ({"id": "b", "displayname": "new"}, "handler b is listed with another displayname"),
    ({"id": "b", "state": "absent"}, "handler b is still listed")])
def test_a_change_that_did_not_last_is_a_failure(host, arguments, said):
    host.registry = document(record("b"))
    host.program(f'case $1 in --list-json) exec {TAMRIX} "$@" ;; esac')
    assert (failure(host, **arguments)
            == f"the program reported success, but {said}; see the system log of the host")


MEND = "\nThe registry is changed all the same; mend the cause, then run: "


@pytest.mark.parametrize("arguments, mend", [
    ({**PLAIN, "id": "a b"}, f"{RECORDER} --update '--id=a b'"),
    ({"id": "c", "type": "fastcgi"}, f"{RECORDER} --update --id=c"),
    ({"id": "c", "state": "absent"}, "/opt/ovt/admin/sbin/depotctl --set-dirty-flag")])
def test_a_failure_after_the_save_is_a_change_and_says_what_to_run(host, arguments, mend):
    host.registry = document(record("c"))
    host.tool("depotctl", status=3, err="no disk")
    result = host.handler(**arguments)
    assert (result["failed"], result["changed"], result["rc"]) == (True, True, 1)
    assert result["msg"] == "Failed to set depotctl dirty flag : no disk" + MEND + mend
    host.forget_calls()
    host.tool("depotctl")
    assert host.run("/bin/sh", "-c", mend).status == 0
    assert host.calls == [DIRTY]
    assert not changed(host, **arguments)


def test_a_program_that_is_killed_after_the_save_has_made_a_change(host):
    host.program(f'{TAMRIX} "$@"; case $1 in --add) kill -9 $$ ;; esac')
    result = host.handler(**PLAIN)
    assert (result["failed"], result["changed"]) == (True, True)
    assert result["msg"] == f"--add was killed by signal 9{MEND}{RECORDER} --update --id=a"


def test_a_failure_before_the_save_is_no_change(host):
    host.tool("quelmrc", status=1)
    result = host.handler(**{**PLAIN, "type": "fpm", "service": "none", "poold": "/p"})
    assert (result["failed"], result["changed"], host.registry) == (True, False, None)
    assert MEND not in result["msg"]


@pytest.mark.parametrize("listing", ["", "[]", '{"php":[{}]}', "{"])
def test_a_listing_that_is_not_understood_is_a_failure(host, listing):
    host.program(f"printf %s '{listing}'")
    assert failure(host, **PLAIN).startswith("--list-json is not understood: ")


def test_a_program_that_fails_without_a_word_is_a_failure(host):
    host.program("exit 3")
    assert failure(host, **PLAIN) == "--list-json ended with status 3"


# The lock


@both_modes
def test_the_lock_of_other_callers_is_waited_for(host, check):
    held = os.open(host.path("/etc/ovt"), os.O_RDONLY)
    fcntl.flock(held, fcntl.LOCK_EX)
    assert (failure(host, check=check, **PLAIN, lock_timeout=0)
            == "another caller has held the lock on /etc/ovt for 0 s; lslocks shows which")
    assert host.words == []
    holder = subprocess.Popen(["sleep", "1"], pass_fds=[held])
    os.close(held)
    assert changed(host, check=check, **PLAIN)
    assert holder.wait() == 0


def test_a_task_holds_the_lock_and_nothing_that_it_leaves_behind_does(host):
    probe = "flock --shared --nonblock /etc/ovt true && echo free || echo held"
    host.program(f'({probe}) >>/opt/ovt/lock\nexec {TAMRIX} "$@"')
    assert changed(host, **PLAIN)
    assert host.read("/opt/ovt/lock") == "held\n" * 3
    assert subprocess.run(["flock", "--nonblock", host.path("/etc/ovt"), "true"]).returncode == 0
