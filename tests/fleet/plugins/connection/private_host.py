"""Connection plugin: a private host is entered instead of a machine. Modules arrive through standard input, as they
do over a real connection with pipelining; files are not carried."""

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

SCRIPT = pathlib.Path(__file__).resolve().parents[3] / "support/private-host"


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
        raise AnsibleError("files are not carried to private hosts")

    fetch_file = put_file
