"""The manual pages as data: the commands and options that tamrix(8) describes, and what a reader sees of a page."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDER = ROOT / "docs/man"
PAGES = {page.name: page.read_text(encoding="utf-8") for page in sorted(FOLDER.iterdir())}

ESCAPES = {"\\e": "\\", "\\&": "", "\\ ": " ", "\\(dq": '"', "\\(aq": "'", "\\(ga": "`", "\\(ti": "~", "\\(ha": "^",
           "\\-": "-"}
MACROS = set("Ar Cm Dl Dq Em Ev Fl It Li Nm Ns Oc Oo Op Pa Pc Pf Po Ql Qq Sq Sy Va Xr".split())


def plain(source):
    """What the reader sees of a line; an escape that is not known is an error."""
    return re.sub(r"\\(\(..|.)", lambda found: ESCAPES[found[0]], source)


def words(page):
    """What the reader sees of a page, without its markup and quotes around phrases."""
    shown = []
    for line in PAGES[page].splitlines():
        if line.startswith('.\\"'):
            continue
        if line.startswith("."):
            line = " ".join(word for word in line[1:].split(" ")[1:] if word not in MACROS)
            line = re.sub(r'(?<!\S)"(.*?)"(?!\S)', r"\1", line)
        shown.append(plain(line))
    return " ".join(shown)


def commands():
    """{command: its options} out of the headings and lists of tamrix(8)."""
    return {heading: {"-" + option for option in re.findall(r"^\.It Fl (-\S+)", body, re.MULTILINE)}
            for heading, body in re.findall(r"^\.Ss (--\S+)\n((?:(?!\.S[sh] ).*\n)*)", PAGES["tamrix.8"], re.MULTILINE)}


def synopsis(option=r"\bFl (\S+)"):
    """The same out of the synopsis, which names -h too; with another pattern, those options that it finds."""
    body = re.search(r"^\.Sh SYNOPSIS\n((?:(?!\.Sh ).*\n)*)", PAGES["tamrix.8"], re.MULTILINE)[1]
    found = (["-" + word for word in re.findall(option, part, re.MULTILINE)] for part in body.split(".Nm\n")[1:])
    return {command: set(options) for command, *options in found}


def needed_options():
    """{command: the options that its synopsis shows without brackets}."""
    return synopsis(r"^\.Fl (-\S+)")
