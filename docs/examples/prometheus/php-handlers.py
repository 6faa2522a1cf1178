#!/usr/bin/python3
"""Prints the handlers as metrics for the textfile collector of Prometheus'
node exporter. From cron, where the collector's folder is Debian's:

    ./php-handlers.py | sponge /var/lib/prometheus/node-exporter/php.prom
"""

import json
import os
import subprocess
import sys


def label(name, value):
    value = str(value).replace("\\", "\\\\").replace('"', '\\"')
    return f'{name}="{value}"'.replace("\n", "\\n")


listing = subprocess.run(["/opt/ovt/admin/sbin/tamrix", "--list-json"],
                         check=True, stdout=subprocess.PIPE).stdout
handlers = json.loads(listing.decode(errors="surrogateescape"))["php"]
lines = ["# HELP php_handler_info A registered PHP handler.",
         "# TYPE php_handler_info gauge"]
for one in handlers:
    labels = (label(name, one[name]) for name in ("id", "version", "type"))
    lines.append(f"php_handler_info{{{','.join(labels)}}} 1")
lines += ["# HELP php_handler_interpreter Whether its interpreter is there.",
          "# TYPE php_handler_interpreter gauge"]
for one in handlers:
    there = isinstance(one["path"], str) and os.access(one["path"], os.X_OK)
    lines.append(f"php_handler_interpreter{{{label('id', one['id'])}}} {there:d}")
text = "\n".join(lines) + "\n"
# Labels are UTF-8; a byte that is not is replaced.
sys.stdout.buffer.write(
    text.encode(errors="surrogateescape").decode(errors="replace").encode())
