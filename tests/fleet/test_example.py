"""The example playbook with Debian's PHP, and the module's documentation as ansible-doc reads it."""

import importlib.util
import json
import subprocess

from conftest import NAMES, ROOT
from debian_php import any_version
from registry_text import document, record

EXAMPLE = ROOT / "fleet/example.yml"
CGI = record("site-cgi", "/usr/bin/php-cgi8.2", "/usr/bin/php8.2", "/etc/php/8.2/cgi/php.ini", "VERSION",
             "PHP%20%24version", "cgi")
FPM = record("site-fpm", "/usr/sbin/php-fpm8.2", "/usr/bin/php8.2", "/etc/php/8.2/fpm/php.ini", "VERSION",
             "PHP%20%24version%20as%20a%20service", "fpm", False, "php8.2-fpm", "/etc/php/8.2/fpm/pool.d")


def test_the_example_brings_every_host_to_the_same_handlers(fleet):
    fleet["two"].registry = document(record("mine"), record("site-old"))
    before = fleet.registries()
    run = fleet.playbook(EXAMPLE, "--check", "--diff")
    told = run.changed()
    assert (run.status, fleet.registries()) == (0, before), run.text
    run = fleet.playbook(EXAMPLE)
    assert run.status == 0, run.text
    assert run.changed() == told == {"one": [True, True, False], "two": [True, True, True],
                                     "three": [True, True, False]}
    after = fleet.registries()
    assert {name: any_version(text) for name, text in after.items()} == {
        "one": document(CGI, FPM), "two": document(record("mine"), CGI, FPM), "three": document(CGI, FPM)}
    run = fleet.playbook(EXAMPLE)
    assert (run.status, run.changed()) == (0, dict.fromkeys(NAMES, [False, False, False]))
    assert fleet.registries() == after


def described(fleet):
    done = subprocess.run(["/usr/bin/ansible-doc", "-M", ROOT / "fleet/library", "--json", "php_handler"],
                          capture_output=True, text=True, check=True, env=fleet.environment())
    return json.loads(done.stdout)["php_handler"]


def test_the_documentation_names_every_option_as_the_module_has_it(fleet):
    spec = importlib.util.spec_from_file_location("php_handler", ROOT / "fleet/library/php_handler.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    options = described(fleet)["doc"]["options"]
    for option in options.values():
        assert option.pop("description")
    assert options == module.ARGUMENTS


def test_the_examples_in_the_documentation_are_accepted(fleet):
    file = fleet.folder / "examples.yml"
    tasks = "".join(f"    {line}\n" for line in described(fleet)["examples"].splitlines())
    file.write_text(f"- hosts: all\n  gather_facts: false\n  tasks:\n{tasks}")
    run = fleet.playbook(file, ANSIBLE_LIBRARY=str(ROOT / "fleet/library"))
    assert run.status == 0, run.text
    assert run.changed() == dict.fromkeys(NAMES, [True, True, True, False])
