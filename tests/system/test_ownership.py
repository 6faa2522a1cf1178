"""Who owns a record: every command on a custom, a system and a built-in record of every type. Each cell's
outcome is written down in OUTCOMES."""

import pytest

from private_host import failed, ok
from registry_text import CGI, EMPTY, INI, document, record

TYPES = ("module", "cgi", "fastcgi", "fpm")
OWNERS = {
    "custom": {"id": "own"},
    "system": {"id": "own", "system": True},
    "built-in": {"id": "fastcgi"},
    "built-in system": {"id": "module", "system": True},
}
# (command, owner): what becomes of the record, whatever its type. A refusal keeps it.
OUTCOMES = {
    ("--update", "custom"): "changed", ("--update", "system"): "kept",
    ("--update", "built-in"): "changed", ("--update", "built-in system"): "kept",
    ("--remove", "custom"): "gone", ("--remove", "system"): "kept",
    ("--remove", "built-in"): "gone", ("--remove", "built-in system"): "kept",
    ("--reread", "custom"): "changed", ("--reread", "system"): "gone",
    ("--reread", "built-in"): "gone", ("--reread", "built-in system"): "gone",
    **{("--add", owner): "kept" for owner in OWNERS}}


def words(command, id):
    return {
        "--update": ["--update", "--id", id, "--phpini", INI],
        "--remove": ["--remove", "--id", id],
        "--reread": ["--reread"],
        "--add": ["--add", "--id", id, "--path", CGI, "--phpini", INI, "--type", "cgi"],
    }[command]


def result(command, id, outcome):
    if command == "--add":
        return failed(f"Handler with id = `{id}' already exists\n")
    if outcome != "kept":
        return ok()
    if command == "--update":
        return failed(f"Cannot modify system handler with id=`{id}': edit corresponding config file instead.\n")
    return failed(
        f"Handler with id = `{id}' is provided by some package.\n"
        "Please deinstall it or edit appropriate config in /etc/ovt/php_versions.d\n")


@pytest.mark.parametrize("type", TYPES)
@pytest.mark.parametrize("command,owner", OUTCOMES)
def test_cell(php_host, command, owner, type):
    outcome = OUTCOMES[command, owner]
    fields = {"type": type, "version": "1.0", "displayname": "n", "service": "s", "poold": "/p", **OWNERS[owner]}
    php_host.registry = document(record(**fields))
    assert php_host.tamrix(*words(command, fields["id"])) == result(command, fields["id"], outcome)
    assert php_host.registry == {
        "kept": document(record(**fields)),
        "changed": document(record(**{**fields, "version": "8.1.2"})),
        "gone": EMPTY,
    }[outcome]
