#!/usr/bin/python3
"""The documents of tests/registry/documents, whose file handlers.txt explains the format, and the banners of
tests/commands/banners.

    documents.py FOLDER     writes each into a file of its own below FOLDER/documents and FOLDER/banners, as seeds for
                            the fuzzers"""

import dataclasses
import pathlib
import re
import sys

TESTS = pathlib.Path(__file__).resolve().parents[1]
FOLDER = TESTS / "registry/documents"
ESCAPE = re.compile(r"<([0-9A-F]{2})>|<([^>]*)\*(\d+)>|@\(([^)]*)\)")
SMALLEST = '{"id":"%s","path":"p","version":"v","displayname":"d","phpini":"i","type":"cgi"}'
SMALLEST_FIELDS = {"path": "p", "version": "v", "displayname": "d", "phpini": "i", "type": "cgi"}
MESSAGES = {
    "2": "JSON document has ended prematurely. Check that all strings are properly ended.",
    "3": "Any value is expected, but was not found.",
    "6": "Invalid or unsupported number format. Check that there are no floating point numbers.",
    "7": "String is expected.",
    "8": "Invalid escape sequence found in string.",
    "9": "Invalid character found in string. Check that strings do not contain control characters.",
    "10": "Invalid or unsupported Unicode character or escape sequence found in string. UTF8 encoded characters"
          " and '\\u' escape sequences are not supported.",
    "11": "JSON object is expected.",
    "12": "JSON name separator (':') is expected inside an object.",
    "13": "JSON value separator (',') or end of object is expected.",
    "14": "Some required fields are missing from the JSON object. Check that input JSON document conforms to schema.",
    "15": "JSON array is expected.",
    "16": "JSON value separator (',') or end of array is expected.",
    "17": "Boolean value is expected.",
    "18": "'null' is expected."}


@dataclasses.dataclass
class Document:
    name: str
    verdicts: list
    text: str
    records: list = dataclasses.field(default_factory=list)
    warnings: list = dataclasses.field(default_factory=list)


def report(verdict):
    """What tamrix prints for a refused document, nothing for an accepted one."""
    start = "Error reading /etc/ovt/php_versions.json: "
    if verdict.startswith("type "):
        return f"{start}Unknown php handler type : {verdict[5:]}\n"
    found = re.fullmatch(r"(\d+) at (\d+) ('.*')", verdict)
    return "" if verdict == "accepted" else (
        f"{start}can not parse php_versions_info object : {MESSAGES[found[1]]} Error occured at offset {found[2]},"
        f" character {found[3]}. \n")


def resolved(line):
    def replacement(found):
        if found[1]:
            return chr(int(found[1], 16))
        return found[2] * int(found[3]) if found[3] else SMALLEST % found[4]
    return ESCAPE.sub(replacement, line)


def documents(file):
    """Those of one file; a text has a character per byte."""
    found = []
    for line in (FOLDER / file).read_text(encoding="ascii").splitlines():
        if line.startswith("|"):
            found[-1].text += "\n" + resolved(line[2:])
        elif line.startswith("> "):
            found[-1].records.append(dict(resolved(field).split("=", 1) for field in line[2:].split("|")))
        elif line.startswith("! "):
            found[-1].warnings.append(line[2:] + "\n")
        elif line and line[0] != "#":
            name, *verdicts, text = line.split(" | ", 3 if file == "values.txt" else 2)
            found.append(Document(name, verdicts, resolved(text)))
    return found


def banners():
    """Name and text of each."""
    before = ""
    for block in re.findall(r"^([^#|\n].*)\n((?:\|.*\n)+)", (TESTS / "commands/banners").read_text(), re.MULTILINE):
        name, kinds, _ = block[0].split(" | ")
        before = block[1].replace("|...\n", "".join(before.splitlines(keepends=True)[-2:]))
        text = ESCAPE.sub(lambda found: chr(int(found[1], 16)), re.sub("^\\| ?", "", before, flags=re.MULTILINE))
        yield from ((f"{name}-{kind}", text.replace("*", kind)) for kind in kinds.split())


def main(folder):
    folder = pathlib.Path(folder)
    for kind in ("documents", "banners"):
        (folder / kind).mkdir(parents=True, exist_ok=True)
    for file in ("handlers.txt", "syntax.txt", "values.txt"):
        for document in documents(file):
            (folder / "documents" / f"{file}-{document.name}").write_bytes(document.text.encode("latin-1"))
    for name, text in banners():
        (folder / "banners" / name).write_bytes(text.encode("latin-1"))


if __name__ == "__main__":
    main(sys.argv[1])
