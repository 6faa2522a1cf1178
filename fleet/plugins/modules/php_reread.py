#!/usr/bin/python
# SPDX-License-Identifier: MIT
"""Ansible module: take up the package files and probe the versions again."""

DOCUMENTATION = r"""
module: php_reread
short_description: Reread package files and PHP versions with tamrix
description:
  - Runs C(tamrix --reread), which takes up the files in /etc/ovt/php_versions.d, probes every handler's version again
    and removes handlers whose interpreter is missing.
  - Reports a change when the listing afterwards has other handlers, or a handler with another version or other values.
    The order of the listing does not count.
author: the tamrix authors (!UNKNOWN)
extends_documentation_fragment:
  - ovt.tamrix.program
  - ovt.tamrix.program.changing
attributes:
  check_mode:
    description: Does not reread; a warning says what is not known.
    support: partial
    details: Which handlers come, go or change needs every interpreter to be started, which check mode does not do.
  diff_mode:
    description: Shows the handlers that came, went or changed, before and after.
    support: full
options:
  only_stale:
    description:
      - Reread only when the listed system handlers are not those that the package files describe; the versions are
        not probed for that. A run that was interrupted before its reread is thus completed by the next one.
      - A file whose handler cannot be listed, because it is faulty or its interpreter is, leads to a reread each time,
        and to the program's warning.
    type: bool
    default: false
"""

EXAMPLES = r"""
- name: Describe Debian's PHP 8.2
  ansible.builtin.copy:
    src: php82-cgi.conf
    dest: /etc/ovt/php_versions.d/php82-cgi.conf
    mode: "0644"

- name: Take up what changed
  ovt.tamrix.php_reread:
    only_stale: true
"""

RETURN = r"""
added:
  description: Identifiers that are listed now and were not.
  returned: when a reread was made
  type: list
  elements: str
removed:
  description: Identifiers that were listed and are not any more.
  returned: when a reread was made
  type: list
  elements: str
updated:
  description: Identifiers that are listed with another version or other values.
  returned: when a reread was made
  type: list
  elements: str
handlers:
  description: The handlers as C(tamrix --list-json) shows them afterwards.
  returned: success
  type: list
  elements: dict
rc:
  description: The program's exit status.
  returned: when the program fails
  type: int
stdout:
  description: What the failing program printed.
  returned: when the program fails
  type: str
stderr:
  description: The failing program's error text, which is the task's message too.
  returned: when the program fails
  type: str
"""

import os

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.ovt.tamrix.plugins.module_utils.registry import (
    CHANGING_OPTIONS, FIELDS, FOLDER, FPM_FIELDS, Registry, command_line, expanded)

PACKAGE_FILES = FOLDER + "/php_versions.d"
# An fpm handler has a twin for dedicated pools.
TWIN = "-dedicated"
UNKNOWN = "check mode starts no interpreter: which handlers a reread would bring, drop or change is not known"


def package_file(path):
    """Its values by key, as far as the first section; a comment is a key that nobody asks for."""
    values = {}
    with open(path, encoding="utf-8", errors="surrogateescape") as file:
        for line in map(str.strip, file):
            if line.startswith("["):
                break
            key, equals, value = line.partition("=")
            if equals:
                values[key.strip()] = value.strip()
    return values


def package_files():
    try:
        paths = [f"{PACKAGE_FILES}/{name}" for name in os.listdir(PACKAGE_FILES) if name.endswith(".conf")]
    except OSError:
        return []
    return [package_file(path) for path in paths if os.path.isfile(path)]


def describes(values, handler):
    """Whether a package file's values are those of a listed handler or, but for the pool, of its twin."""
    fpm = values.get("type") == "fpm"
    twin = fpm and handler["id"].endswith(TWIN) and not handler.get("poold")
    wanted = {name: values.get(name, "") for name in FIELDS if fpm or name not in FPM_FIELDS}
    wanted["displayname"] = expanded(wanted["displayname"], handler["version"])
    if twin:
        wanted["poold"] = ""
    if "id" in values:
        wanted["id"] = values["id"] + (TWIN if twin else "")
    return all(handler.get(name) == value for name, value in wanted.items())


def stale(handlers):
    files = package_files()
    listed = [handler for handler in handlers if handler["system"]]
    return (any(not any(describes(file, handler) for handler in listed) for file in files)
            or any(not any(describes(file, handler) for file in files) for handler in listed))


def main():
    module = AnsibleModule(
        argument_spec={"only_stale": {"type": "bool", "default": False}, **CHANGING_OPTIONS}, supports_check_mode=True)
    registry = Registry(module)
    if module.params["only_stale"] and not stale(registry.handlers):
        module.exit_json(changed=False, handlers=registry.handlers)
    if module.check_mode:
        module.warn(UNKNOWN)
        module.exit_json(changed=False, handlers=registry.handlers)
    before = registry.by_id
    registry.change(["--reread"], command_line(registry.program, "--reread"))
    after = registry.by_id
    result = {
        "added": [id for id in after if id not in before],
        "removed": [id for id in before if id not in after],
        "updated": [id for id in after if id in before and after[id] != before[id]],
    }
    different = sum(result.values(), [])
    if module._diff:
        result["diff"] = {
            "before_header": "handlers", "before": {id: before[id] for id in different if id in before},
            "after_header": "handlers", "after": {id: after[id] for id in different if id in after}}
    module.exit_json(changed=bool(different), handlers=registry.handlers, **result)


if __name__ == "__main__":
    main()
