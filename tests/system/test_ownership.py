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
KEPT, CHANGED, GONE = "kept", "changed", "gone"
# (command, owner): the outcome for module, cgi, fastcgi and fpm. A refusal keeps the record.
OUTCOMES = {
    ("--update", "custom"): (CHANGED, CHANGED, CHANGED, CHANGED),
    ("--update", "system"): (KEPT, KEPT, KEPT, KEPT),
    ("--update", "built-in"): (CHANGED, CHANGED, CHANGED, CHANGED),
    ("--update", "built-in system"): (KEPT, KEPT, KEPT, KEPT),
    ("--remove", "custom"): (GONE, GONE, GONE, GONE),
    ("--remove", "system"): (KEPT, KEPT, KEPT, KEPT),
    ("--remove", "built-in"): (GONE, GONE, GONE, GONE),
    ("--remove", "built-in system"): (KEPT, KEPT, KEPT, KEPT),
    ("--reread", "custom"): (CHANGED, CHANGED, CHANGED, CHANGED),
    ("--reread", "system"): (GONE, GONE, GONE, GONE),
    ("--reread", "built-in"): (GONE, GONE, GONE, GONE),
    ("--reread", "built-in system"): (GONE, GONE, GONE, GONE),
    ("--add", "custom"): (KEPT, KEPT, KEPT, KEPT),
    ("--add", "system"): (KEPT, KEPT, KEPT, KEPT),
    ("--add", "built-in"): (KEPT, KEPT, KEPT, KEPT),
    ("--add", "built-in system"): (KEPT, KEPT, KEPT, KEPT),
}
CELLS = [
    (command, owner, type, outcome)
    for (command, owner), row in OUTCOMES.items() for type, outcome in zip(TYPES, row)]


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
    if outcome is not KEPT:
        return ok()
    if command == "--update":
        return failed(f"Cannot modify system handler with id=`{id}': edit corresponding config file instead.\n")
    return failed(
        f"Handler with id = `{id}' is provided by some package.\n"
        "Please deinstall it or edit appropriate config in /etc/ovt/php_versions.d\n")


@pytest.mark.parametrize("command,owner,type,outcome", CELLS)
def test_cell(host, command, owner, type, outcome):
    host.php(CGI)
    host.write(INI)
    fields = {"type": type, "version": "1.0", "displayname": "n", "service": "s", "poold": "/p", **OWNERS[owner]}
    host.registry = document(record(**fields))
    assert host.tamrix(*words(command, fields["id"])) == result(command, fields["id"], outcome)
    assert host.registry == {
        KEPT: document(record(**fields)),
        CHANGED: document(record(**{**fields, "version": "8.1.2"})),
        GONE: EMPTY,
    }[outcome]
