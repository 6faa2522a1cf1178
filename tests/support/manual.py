"""The manual pages as data: their literal displays, and the commands and options that tamrix(8) describes.

A comment right before each literal display says what it is:
    .\\" console      commands behind "# " (continued by a backslash) and what they print
    .\\" file PATH    the file PATH of this tree
    .\\" registry     a registry file
    .\\" log          a record of the hook log
"""

import dataclasses
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDER = ROOT / "docs/man"
PAGES = sorted(FOLDER.iterdir())

ESCAPES = {"\\e": "\\", "\\&": "", "\\ ": " ", "\\(dq": '"', "\\(aq": "'", "\\(ga": "`", "\\(ti": "~", "\\(ha": "^"}
DISPLAY = re.compile(r'^(?:\.\\" (\w+)(?: (\S+))?\n)?\.Bd -literal.*\n((?:.*\n)*?)\.Ed$', re.MULTILINE)


def plain(source):
    """What the reader sees of a line; an escape that is not known is an error."""
    return re.sub(r"\\(\(..|.)", lambda found: ESCAPES[found[0]], source)


@dataclasses.dataclass
class Display:
    page: str
    label: str
    argument: str
    source: str

    @property
    def text(self):
        return plain(self.source)


def displays(page):
    found = [Display(page.name, *match.groups()) for match in DISPLAY.finditer(page.read_text(encoding="utf-8"))]
    assert len(found) == page.read_text(encoding="utf-8").count("\n.Bd ")
    return found


def displays_called(label):
    return [display for page in PAGES for display in displays(page) if display.label == label]


def session(text):
    """A console display as pairs of a command and what it prints."""
    pairs = []
    for part in re.split(r"^# ", text, flags=re.MULTILINE)[1:]:
        command, printed = re.fullmatch(r"((?:.*\\\n)*.*\n)((?:.*\n)*)", part).groups()
        pairs.append((command, printed))
    return pairs


def commands():
    """{command: its options} out of the headings and lists of tamrix(8)."""
    page = (FOLDER / "tamrix.8").read_text(encoding="utf-8")
    described = {}
    for heading, body in re.findall(r"^\.Ss (--\S+)\n((?:(?!\.S[sh] ).*\n)*)", page, re.MULTILINE):
        described[heading] = {"-" + option for option in re.findall(r"^\.It Fl (-\S+)", body, re.MULTILINE)}
    return described


def synopsis():
    """The same out of the synopsis, which names -h too."""
    page = (FOLDER / "tamrix.8").read_text(encoding="utf-8")
    body = re.search(r"^\.Sh SYNOPSIS\n((?:(?!\.Sh ).*\n)*)", page, re.MULTILINE)[1]
    named = {}
    for part in body.split(".Nm\n")[1:]:
        command, *options = ["-" + word for word in re.findall(r"\bFl (\S+)", part)]
        named[command] = set(options)
    return named


def needed_options():
    """{command: the options that its synopsis shows without brackets}."""
    page = (FOLDER / "tamrix.8").read_text(encoding="utf-8")
    body = re.search(r"^\.Sh SYNOPSIS\n((?:(?!\.Sh ).*\n)*)", page, re.MULTILINE)[1]
    needed = {}
    for part in body.split(".Nm\n")[1:]:
        command, *options = re.findall(r"^\.Fl (-\S+)", part, re.MULTILINE)
        needed["-" + command] = {"-" + option for option in options}
    return needed
