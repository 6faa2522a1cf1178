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


@dataclasses.dataclass
class Document:
    name: str
    verdicts: list
    text: str


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
        elif line and line[0] not in "#>!":
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
