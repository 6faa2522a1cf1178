#!/usr/bin/python3
"""by-type.py TYPE: one line per handler of the type: its identifier, a tab,
its path. Bytes that are not UTF-8 are passed on unchanged."""
import json
import subprocess
import sys

BYTES = {"encoding": "utf-8", "errors": "surrogateescape"}
listing = subprocess.run(["tamrix", "--list-json"], stdout=subprocess.PIPE,
                         check=True, **BYTES).stdout
sys.stdout.reconfigure(**BYTES)
for handler in json.loads(listing)["php"]:
    if handler["type"] == sys.argv[1]:
        print(handler["id"], handler["path"], sep="\t")
