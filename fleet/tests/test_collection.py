"""The collection as a whole: its version, its documentation, and what Ansible's own checkers say."""

import json
import pathlib
import re
import shutil
import subprocess

import pytest

from conftest import ROOT

# Those that need Python packages which ansible-test would fetch from the network. The one of them that finds most,
# validate-modules, is run by hand below.
ONLINE = ("ansible-doc", "import", "pep8", "pylint", "runtime-metadata", "validate-modules", "yamllint")
MODULES = ("php_handler", "php_handler_info", "php_reread")


@pytest.fixture(name="collections")
def installed(request, monkeypatch, tmp_path):
    """A copy of the installed collection: the checkers leave files beside what they check."""
    shutil.copytree(request.config.option.collections, tmp_path / "collections")
    monkeypatch.setenv("ANSIBLE_COLLECTIONS_PATH", str(tmp_path / "collections"))
    return tmp_path / "collections"


def run(*command, **where):
    done = subprocess.run(command, capture_output=True, text=True, check=False, stdin=subprocess.DEVNULL, **where)
    return done.returncode, done.stdout + done.stderr


def test_the_version_is_that_of_the_program():
    wanted = re.search(r"project\(tamrix VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]
    assert f"\nversion: {wanted}\n" in (ROOT / "fleet/galaxy.yml").read_text()
    assert re.search(r"^## (\S+)", (ROOT / "fleet/CHANGELOG.md").read_text(), re.MULTILINE)[1] == wanted


def test_ansible_doc_describes_modules_and_role(collections):
    names = [f"ovt.tamrix.{name}" for name in MODULES]
    status, text = run("ansible-doc", "--json", *names)
    assert status == 0, text
    described = json.loads(text)
    options = {name: set(described[f"ovt.tamrix.{name}"]["doc"]["options"]) for name in MODULES}
    common = {"executable", "lock_timeout"}
    assert options == {
        "php_handler": common | {"id", "state", "displayname", "path", "clipath", "phpini", "type", "service", "poold",
                                 "set_dirty_flag"},
        "php_handler_info": common,
        "php_reread": common | {"only_stale", "set_dirty_flag"}}
    status, text = run("ansible-doc", "-t", "role", "--json", "ovt.tamrix.php_handlers")
    role = json.loads(text)["ovt.tamrix.php_handlers"]["entry_points"]["main"]["options"]
    defaults = (collections / "ansible_collections/ovt/tamrix/roles/php_handlers/defaults/main.yml").read_text()
    assert set(role) == set(re.findall(r"^(\w+):", defaults, re.MULTILINE))
    for name in names:
        tasks = "".join(f"    {line}\n" for line in described[name]["examples"].splitlines())
        playbook = collections / f"{name}.yml"
        playbook.write_text(f"- hosts: all\n  tasks:\n{tasks}")
        status, text = run("ansible-playbook", "--syntax-check", "-i", "one,", playbook)
        assert status == 0, text


def test_ansible_lint_reports_nothing(collections):
    if not shutil.which("ansible-lint"):
        pytest.skip("ansible-lint is not installed")
    folder = collections / "ansible_collections/ovt/tamrix"
    shutil.copy(ROOT / "fleet/galaxy.yml", folder)
    status, text = run("ansible-lint", "--offline", "--strict", cwd=folder)
    assert status == 0, text
    assert "0 failure(s), 0 warning(s)" in re.sub(r"\x1b\[[0-9;]*m", "", text)


def test_ansible_test_sanity_reports_nothing(collections):
    folder = collections / "ansible_collections/ovt/tamrix"
    skipped = [word for name in ONLINE for word in ("--skip-test", name)]
    python = run("/usr/bin/python3", "-c", "import sys; print('%d.%d' % sys.version_info[:2])")[1].strip()
    status, text = run("ansible-test", "sanity", "--python", python, *skipped, cwd=folder)
    assert status == 0, text
    assert 'Running sanity test "shebang"' in text


def test_validate_modules_finds_only_the_licence(collections):
    pytest.importorskip("voluptuous")
    checker = pathlib.Path("/usr/lib/python3/dist-packages/ansible_test/_util/controller/sanity/validate-modules")
    if not checker.exists():
        pytest.skip("ansible-test is not installed")
    folder = collections / "ansible_collections/ovt/tamrix"
    _, text = run("env", f"PYTHONPATH={collections}:{checker}", "/usr/bin/python3", checker / "validate.py",
                  "--format", "plain", "--arg-spec", "--collection", "ansible_collections/ovt/tamrix",
                  "--collection-version", "1.0.0", "plugins/modules", cwd=folder)
    if "No module named 'antsibull_docs_parser'" in text:
        pytest.skip("antsibull-docs-parser is not installed")
    assert sorted(text.splitlines()) == [
        f"plugins/modules/{name}.py:0:0: Emissing-gplv3-license GPLv3 license header not found in the first 20 lines "
        "of the module" for name in MODULES]
