#!/usr/bin/python3
"""by-type.py TYPE: one line per handler of the type: its identifier, a tab,
its path."""
import json
import subprocess
import sys

listing = subprocess.run(["tamrix", "--list-json"], stdout=subprocess.PIPE,
                         check=True).stdout
for handler in json.loads(listing)["php"]:
    if handler["type"] == sys.argv[1]:
        print(handler["id"], handler["path"], sep="\t")
