#!/usr/bin/python
# SPDX-License-Identifier: MIT
"""Ansible module: one custom PHP handler of a host, registered or not.

The listing is read before and after; --add, --update and --remove are called for what differs. Messages are
passed on and never interpreted. Everything that the listing cannot tell is said in the notes below."""

DOCUMENTATION = r"""
module: php_handler
short_description: Keep custom PHP handlers with tamrix
description:
  - Registers, changes and removes one custom PHP handler of the host's registry.
  - Hosts do not know each other; each play that names many hosts brings each of them to the described state.
author: the tamrix authors (!UNKNOWN)
extends_documentation_fragment:
  - ovt.tamrix.program
  - ovt.tamrix.program.changing
attributes:
  check_mode:
    description: Changes nothing and tells what would change.
    support: full
  diff_mode:
    description: Shows the handler as C(tamrix --list-json) has it, before and after.
    support: full
options:
  id:
    description: The handler's identifier. It is never computed, because a task must find its handler again.
    type: str
    required: true
  state:
    description: Whether the handler is registered.
    type: str
    choices: [present, absent]
    default: present
  displayname:
    description:
      - The name for people; C($version) in it follows the version.
      - A new handler without one gets C($version).
    type: str
  path:
    description: The php-cgi executable, for type C(fpm) the fpm one. A new handler needs it.
    type: str
  clipath:
    description: The matching php-cli executable. Empty means none.
    type: str
  phpini:
    description: The php.ini. A new handler needs it.
    type: str
  type:
    description: How sites run the interpreter. A new handler needs it.
    type: str
    choices: [cgi, fastcgi, fpm]
  service:
    description: The fpm service, for type C(fpm) only. A new handler of that type needs it.
    type: str
  poold:
    description: The fpm pool directory, for type C(fpm) only. A new handler of that type needs it.
    type: str
notes:
  - An option that is not given leaves its value alone; a new handler gets the program's default.
  - The listing shows display names with the version filled in, so a name with C($version) counts as set when
    the listed name is the wanted one with the listed version. A handler that was given C(PHP 8.2.7) as plain
    text is therefore left alone by C(PHP $version) until its version changes; the next run then mends it.
  - Where a change probes the version again, check mode cannot know the version, nor a name that may hold it;
    they are null there.
  - Check mode does not start interpreters or ask for services; what the program refuses because of them shows
    only in a real run.
  - A system handler comes from a package file. A task that would change one fails.
  - The identifiers C(module), C(cgi) and C(fastcgi) are the packages'. C(tamrix --reread), which package scripts
    call, removes a custom handler with one of them silently. A new handler with one of them is refused; one that is
    registered gives a warning, unless a package describes it.
  - A value that the registry could not be read with again, because of a control character or its length, is
    refused before anything is asked of the program.
"""

EXAMPLES = r"""
- name: PHP 8.2 for every site
  ovt.tamrix.php_handler:
    id: php82-cgi
    displayname: PHP $version
    path: /usr/bin/php-cgi8.2
    clipath: /usr/bin/php8.2
    phpini: /etc/php/8.2/cgi/php.ini
    type: cgi

- name: The same as a service
  ovt.tamrix.php_handler:
    id: php82-fpm
    path: /usr/sbin/php-fpm8.2
    phpini: /etc/php/8.2/fpm/php.ini
    type: fpm
    service: php8.2-fpm
    poold: /etc/php/8.2/fpm/pool.d

- name: A new name, and nothing else
  ovt.tamrix.php_handler:
    id: php82-cgi
    displayname: The fast one

- name: Not offered any more
  ovt.tamrix.php_handler:
    id: php74-cgi
    state: absent
"""

RETURN = r"""
handler:
  description:
    - The handler as C(tamrix --list-json) shows it afterwards, with its version; null when there is none.
    - In check mode what it would show; what only a real run can tell is null.
  returned: success
  type: dict
  sample:
    id: php82-cgi
    path: /usr/bin/php-cgi8.2
    clipath: /usr/bin/php8.2
    phpini: /etc/php/8.2/cgi/php.ini
    version: 8.2.7
    displayname: PHP 8.2.7
    type: cgi
    system: false
rc:
  description: The program's exit status.
  returned: when the program fails
  type: int
stdout:
  description: What the failing program printed.
  returned: when the program fails
  type: str
stderr:
  description:
    - The failing program's error text, which is the task's message too.
    - When the registry was changed before the failure, C(changed) is true and the message says what to run.
  returned: when the program fails
  type: str
"""

import string

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.ovt.tamrix.plugins.module_utils.registry import (
    CHANGING_OPTIONS, DEPOTCTL, FIELDS, FPM_FIELDS, RESERVED, Registry, command_line, expanded)

# An update that is given one of these reads the version again.
PROBED = ("path", "clipath", "phpini")

# The longest value, in bytes as the registry file has it.
LIMIT = 4087
# There a display name is percent-encoded but for these; in other values these take two bytes.
PLAIN = (string.ascii_letters + string.digits + "-._~").encode()
DOUBLED = b'\b\t\n\f\r"\\'

ARGUMENTS = {
    "id": {"type": "str", "required": True},
    "state": {"type": "str", "choices": ["present", "absent"], "default": "present"},
    "displayname": {"type": "str"},
    "path": {"type": "str"},
    "clipath": {"type": "str"},
    "phpini": {"type": "str"},
    "type": {"type": "str", "choices": ["cgi", "fastcgi", "fpm"]},
    "service": {"type": "str"},
    "poold": {"type": "str"},
    **CHANGING_OPTIONS,
}


def words(command, id, values):
    """`values` as options; a value that begins with a dash or is empty arrives as it is."""
    words = [command]
    for name, value in {"id": id, **values}.items():
        words += [f"--{name}={value}"] if value else [f"--{name}", ""]
    return words


def differences(wanted, listed):
    """The wanted values that the listing does not show."""
    different = {}
    for name, value in wanted.items():
        shown = expanded(value, listed["version"]) if name == "displayname" else value
        if shown != listed.get(name, ""):
            different[name] = value
    return different


def updates(wanted, listed):
    """What an update must be given. The name goes along with whatever probes the version again: the listing
    does not tell a placeholder from plain text, and only one of them would follow."""
    needed = differences(wanted, listed)
    if "displayname" in wanted and any(name in needed for name in PROBED):
        needed["displayname"] = wanted["displayname"]
    return needed


def may_follow(name, listed):
    """Whether a name may hold the version; the listed one, when none is given, shows no more than its text."""
    if name is not None:
        return "$version" in name
    return (listed["version"] or "") in (listed["displayname"] or "")


def predicted_new(id, wanted):
    new = {"id": id, "path": None, "clipath": "", "phpini": None, "version": None,
           "displayname": "$version", "type": None, "system": False, **wanted}
    if "$version" in new["displayname"]:
        new["displayname"] = None
    return new


def predicted_change(listed, changes):
    """The listing after an update, None where only a real one can tell."""
    after = {**listed, **changes}
    if after["type"] == "fpm":
        after = {**dict.fromkeys(FPM_FIELDS, ""), **after}
    else:
        after = {name: value for name, value in after.items() if name not in FPM_FIELDS}
    name = changes.get("displayname")
    if any(field in changes for field in PROBED):
        after["version"] = None
        if may_follow(name, listed):
            after["displayname"] = None
    elif name is not None:
        after["displayname"] = expanded(name, listed["version"])
    return after


def flaw(name, value):
    """Why the handler could not be read again with the value in it, None where it could."""
    data = value.encode()
    if 0 in data:
        return "holds a NUL"
    controls = sum(byte < 0x20 and byte not in DOUBLED for byte in data)
    length = len(data) + sum(byte in DOUBLED for byte in data) + 5 * controls
    if name == "displayname":
        # The registry has it percent-encoded, the listing does not.
        length = max(length, sum(1 if byte in PLAIN else 3 for byte in data))
    elif controls:
        return "holds a control character"
    return "is too long" if length > LIMIT else None


def refuse_unreadable(module):
    for name in ("id",) + FIELDS:
        why = flaw(name, module.params[name] or "")
        if why:
            module.fail_json(msg=f"{name} {why}, and the handler could not be read again")


def wanted_values(module, listed):
    """The given values, checked for what the program would ignore or could not say well."""
    id = module.params["id"]
    wanted = {name: module.params[name] for name in FIELDS if module.params[name] is not None}
    kind = wanted.get("type") or (listed or {}).get("type")
    if kind != "fpm":
        foreign = [name for name in FPM_FIELDS if wanted.pop(name, "")]
        if foreign and kind:
            module.fail_json(msg=f"handler {id}: only type fpm has {' and '.join(foreign)}")
    if listed is None:
        needed = ("path", "phpini", "type") + (FPM_FIELDS if kind == "fpm" else ())
        missing = [name for name in needed if name not in wanted]
        if missing:
            module.fail_json(msg=f"handler {id} is not registered; to add it, give {', '.join(missing)}")
    return wanted


def refuse_system_handler(module, listed):
    """For check mode; in a real run the program refuses, in its own words."""
    if listed["system"]:
        module.fail_json(msg=f"handler {listed['id']} is a system handler and would be refused")


def check_reserved(module, id, listed):
    """An identifier that a reread drops, unless a package describes it."""
    if id not in RESERVED or (listed and listed["system"]):
        return
    if listed is None:
        module.fail_json(msg=f"a reread would drop a handler with the identifier {id}: choose another")
    module.warn(f"a reread will drop handler {id}, because that identifier is the packages'")


def present(module, registry, id, listed):
    """Returns whether something changes, and the handler afterwards."""
    wanted = wanted_values(module, listed)
    check_reserved(module, id, listed)
    again = command_line(registry.program, *words("--update", id, {}))
    if listed is None:
        if module.check_mode:
            return True, predicted_new(id, wanted)
        # An empty php-cli would be asked for its version.
        given = {name: value for name, value in wanted.items() if name != "clipath" or value}
        registry.change(words("--add", id, given), again)
    else:
        changes = updates(wanted, listed)
        if not changes:
            return False, listed
        if module.check_mode:
            refuse_system_handler(module, listed)
            return True, predicted_change(listed, changes)
        registry.change(words("--update", id, changes), again)
    after = registry.by_id.get(id)
    registry.require(after is not None, f"handler {id} is not listed")
    lost = differences(wanted, after)
    registry.require(not lost, f"handler {id} is listed with another {', '.join(lost)}")
    return True, after


def absent(module, registry, id, listed):
    if listed is None:
        return False, None
    if module.check_mode:
        refuse_system_handler(module, listed)
    else:
        registry.change(words("--remove", id, {}), f"{DEPOTCTL} --set-dirty-flag")
        registry.require(id not in registry.by_id, f"handler {id} is still listed")
    return True, None


def main():
    module = AnsibleModule(argument_spec=ARGUMENTS, supports_check_mode=True)
    refuse_unreadable(module)
    registry = Registry(module)
    id = module.params["id"]
    listed = registry.by_id.get(id)
    steps = {"present": present, "absent": absent}[module.params["state"]]
    changed, after = steps(module, registry, id, listed)
    result = {"changed": changed, "handler": after}
    if module._diff:
        result["diff"] = {"before_header": id, "after_header": id, "before": listed or {}, "after": after or {}}
    module.exit_json(**result)


if __name__ == "__main__":
    main()
