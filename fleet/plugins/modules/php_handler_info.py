#!/usr/bin/python
# SPDX-License-Identifier: MIT
"""Ansible module: the PHP handlers of a host."""

DOCUMENTATION = r"""
module: php_handler_info
short_description: List the PHP handlers that tamrix keeps
description:
  - Returns the listing of the host's registry, by identifier and by type.
  - Changes nothing and starts no interpreter.
author: the tamrix authors (!UNKNOWN)
extends_documentation_fragment:
  - ovt.tamrix.program
attributes:
  check_mode:
    description: Returns the same in check mode.
    support: full
  diff_mode:
    description: There is nothing to compare.
    support: none
"""

EXAMPLES = r"""
- name: List the handlers
  ovt.tamrix.php_handler_info:
  register: php

- name: Fail where no fpm handler is registered
  ansible.builtin.assert:
    that: php.by_type.fpm | length > 0
"""

RETURN = r"""
handlers:
  description: The handlers as C(tamrix --list-json) shows them, in its order.
  returned: success
  type: list
  elements: dict
  sample:
    - id: php82-cgi
      path: /usr/bin/php-cgi8.2
      clipath: /usr/bin/php8.2
      phpini: /etc/php/8.2/cgi/php.ini
      version: 8.2.7
      displayname: PHP 8.2.7
      type: cgi
      system: false
by_id:
  description: The same handlers, each under its identifier.
  returned: success
  type: dict
by_type:
  description: The identifiers of each type's handlers; all four types are there.
  returned: success
  type: dict
  sample:
    module: []
    cgi: [php82-cgi]
    fastcgi: []
    fpm: []
"""

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.ovt.tamrix.plugins.module_utils.registry import READING_OPTIONS, Registry

TYPES = ("module", "cgi", "fastcgi", "fpm")


def main():
    module = AnsibleModule(argument_spec=READING_OPTIONS, supports_check_mode=True)
    registry = Registry(module)
    by_type = {type: [id for id, handler in registry.by_id.items() if handler["type"] == type] for type in TYPES}
    module.exit_json(changed=False, handlers=registry.handlers, by_id=registry.by_id, by_type=by_type)


if __name__ == "__main__":
    main()
