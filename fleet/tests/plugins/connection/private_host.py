"""Connection plugin: enters a private host of this machine instead of a machine of its own.

A host's folder is given by ansible_private_host. Only /etc/ovt, /opt/ovt and /var/log/quelm outlive a task there, so
ansible_remote_tmp has to be below one of them. Without pipelining a module's file stays there for the task's time, as
on other hosts. The inventory that tests/hosts makes has all of it."""

import os
import pathlib
import shlex

from ansible.errors import AnsibleConnectionFailure, AnsibleError
from ansible.plugins.connection.local import Connection as Local

DOCUMENTATION = """
name: private_host
short_description: enter a private host
description: Runs commands in a private host of this machine.
author: the tamrix maintainers
options:
  folder:
    description: The private host's folder.
    required: true
    vars:
      - name: ansible_private_host
extends_documentation_fragment:
  - connection_pipelining
"""

SCRIPT = pathlib.Path(__file__).resolve().parents[4] / "tests/support/private-host"


class Connection(Local):
    transport = "private_host"

    def _connect(self):
        if not os.path.isdir(self.get_option("folder")):
            raise AnsibleConnectionFailure("no private host there")
        return super()._connect()

    def exec_command(self, cmd, in_data=None, sudoable=True):
        words = [str(SCRIPT), "exec", self.get_option("folder"), "--", "/bin/sh", "-c", cmd]
        return super().exec_command(shlex.join(words), in_data, sudoable)

    def put_file(self, in_path, out_path):
        self.carry(f"cat >{shlex.quote(out_path)}", pathlib.Path(in_path).read_bytes())

    def fetch_file(self, in_path, out_path):
        pathlib.Path(out_path).write_bytes(self.carry(f"cat {shlex.quote(in_path)}"))

    def carry(self, command, data=b""):
        status, out, err = self.exec_command(command, data, sudoable=False)
        if status != 0:
            raise AnsibleError(err.decode(errors="replace"))
        return out
