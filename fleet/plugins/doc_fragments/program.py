# SPDX-License-Identifier: MIT
"""What the documentation of all modules has in common."""


class ModuleDocFragment:
    DOCUMENTATION = r"""
requirements:
  - tamrix on the host
  - Python 3.6 or later on the host
options:
  executable:
    description: The program.
    type: path
    default: /opt/ovt/admin/sbin/tamrix
  lock_timeout:
    description: How many seconds to wait for the lock before the task fails.
    type: int
    default: 300
notes:
  - The registry is not locked by the program. The task holds the lock on /etc/ovt that tamrix(8) has every caller
    take, as in C(flock /etc/ovt tamrix ...), from its first look at the registry until it ends. A hook script must
    not take it.
"""

    CHANGING = r"""
options:
  set_dirty_flag:
    description: Whether a change sets the package tool's dirty flag.
    type: bool
    default: true
"""
