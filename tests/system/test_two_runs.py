"""Many runs at once. Nothing guards the registry: each run reads the whole file and later rewrites it in place.

What that allows, and what these tests therefore accept:
- The last save wins; what other runs changed since its load is lost.
- A save first empties the file. A run that loads in that moment (milliseconds, where the file system first waits for
  its disk) finds an empty registry and saves its own change alone: then all earlier records are lost, not only
  concurrent changes.
- A load in the middle of a save of several pages can find half a document: that run is refused with the reader's
  report and changes nothing.
- A short document can be laid over a longer one; the reader stops at the closing brace.
What holds all the same: no run crashes or hangs, each record that is found is whole, and once all have ended every
load succeeds and the last one's change is there. With flock around each run nothing is lost at all."""

import json

import pytest

from commands import ADD
from private_host import PACKAGES, REGISTRY, SBIN, TAMRIX
from registry_text import CGI, INI, document, package, record

AT_ONCE = 50
# Starts the commands in its input all at once, each with an input of its own, and prints what became of them.
DRIVER = """
import json, subprocess, sys
commands = json.load(sys.stdin)
runs = [subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        for words in commands]
results = []
for run in runs:
    out, err = run.communicate(timeout=60)
    results.append([run.returncode, out.decode(), err.decode()])
json.dump(results, sys.stdout)
"""
REFUSED = f"Error reading {REGISTRY}: can not parse php_versions_info object : "


@pytest.fixture
def busy_host(host):
    """Whose programs record no calls."""
    host.write(CGI, "#!/bin/sh\necho PHP 8.1.2\n", 0o755)
    host.write(INI)
    host.write(f"{SBIN}/depotctl", "#!/bin/true\n", 0o755)
    return host


def at_once(host, commands, around=()):
    words = [[*around, TAMRIX, *command] for command in commands]
    result = host.run("/usr/bin/python3", "-c", DRIVER, stdin=json.dumps(words))
    assert (result.status, result.err) == (0, "")
    return json.loads(result.out)


def add(id):
    return (*ADD[:-1], id)


def loaded(host):
    """What a later run finds, which must be records of ours, whole and once each."""
    result = host.tamrix("--list-json")
    assert (result.status, result.err) == (0, "")
    found = [handler["id"] for handler in json.loads(result.out)["php"]]
    assert len(set(found)) == len(found)
    assert result.out == document(*(record(id, displayname="8.1.2") for id in found))
    return found


@pytest.mark.parametrize("records", [0, 10, 300])
def test_additions_at_once_leave_a_registry_that_loads(busy_host, rounds, records):
    old = [f"old{n}" for n in range(records)]
    for turn in rounds:
        busy_host.registry = document(*(record(id) for id in old))
        new = [f"new{turn}-{n}" for n in range(AT_ONCE)]
        succeeded = []
        for id, (status, out, err) in zip(new, at_once(busy_host, [add(id) for id in new]), strict=True):
            if status == 0:
                assert (out, err) == (f"{id}\n", "")
                succeeded.append(id)
            else:
                assert status == 1 and out == "" and err.startswith(REFUSED), (status, out, err)
        found = loaded(busy_host)
        assert set(found) <= {*old, *succeeded}
        assert found[-1] in succeeded


def test_all_kinds_of_changes_at_once_leave_a_registry_that_loads(busy_host, rounds):
    busy_host.write(f"{PACKAGES}/p.conf", package(id="packed", name="8.1.2"))
    old = [f"old{n}" for n in range(20)]
    commands = (
        [add(f"new{n}") for n in range(13)] + [("--remove", "--id", f"old{n}") for n in range(13)]
        + [("--update", "--id", f"old{n}", "--path", CGI) for n in range(10)] + [("--reread",)] * 4
        + [("--list-json",)] * 10)
    assert len(commands) == AT_ONCE
    for turn in rounds:
        busy_host.registry = document(*(record(id) for id in old))
        for words, (status, out, err) in zip(commands, at_once(busy_host, commands), strict=True):
            gone = {"--remove": (0, f"[Warning] Handler with id `{words[-1]}' does not exist\n"),
                    "--update": (1, f"Handler with id=`{words[-3]}' not found\n")} if len(words) > 2 else {}
            assert ((status, err) in ((0, ""), gone.get(words[0]))
                    or status == 1 and err.startswith(REFUSED)), (words, status, err)
        result = busy_host.tamrix("--list-json")
        assert (result.status, result.err) == (0, "")
        expected = {**{id: False for id in old}, **{words[-1]: False for words in commands[:13]}, "packed": True}
        found = json.loads(result.out)["php"]
        assert result.out == document(*(
            record(handler["id"], displayname="8.1.2", system=expected[handler["id"]]) for handler in found))


def test_with_a_lock_around_each_run_nothing_is_lost(busy_host):
    """As the manual does it: the folder is the lock."""
    old = [f"old{n}" for n in range(10)]
    busy_host.registry = document(*(record(id) for id in old))
    new = [f"new{n}" for n in range(AT_ONCE)]
    results = at_once(busy_host, [add(id) for id in new], ["/usr/bin/flock", "/etc/ovt"])
    assert results == [[0, f"{id}\n", ""] for id in new]
    found = loaded(busy_host)
    assert found[:10] == old and set(found[10:]) == set(new)
