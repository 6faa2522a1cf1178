"""The documents: what they name exists, and the manual explains every message of the program."""

import re
import time

import pytest

import manual
from manual import PAGES, ROOT

DOCUMENTS = [*ROOT.glob("*.md"), *ROOT.glob("docs/*.md")]
IDS = [str(path.relative_to(ROOT)) for path in DOCUMENTS]
TOP = "|".join(sorted(path.name for path in ROOT.iterdir() if path.is_dir() and path.name != "build"))


def text_of(path):
    return path.read_text(encoding="utf-8")


def test_the_first_page_is_short():
    assert len(text_of(ROOT / "README.md").splitlines()) <= 100


@pytest.mark.parametrize("document", DOCUMENTS, ids=IDS)
def test_what_a_document_names_or_links_exists(document):
    code = re.findall(r"`([^`\n]+)`", text_of(document))
    # NAME, or another word in capitals, stands for what a reader chooses.
    named = {path for words in code for path in re.findall(rf"(?<![\w/.-])(?:{TOP})/[\w./*-]*", words)
             if not re.search(r"[A-Z]{3}(?!.*\.(?:md|txt))", path)}
    named |= {f"tests/**/{name}" for name in re.findall(r"`(test_[\w*]+\.py)`", text_of(document))}
    linked = re.findall(r"\]\((?!\w+:|#)([^)#\s]+)", text_of(document))
    missing = [path for path in named if not list(ROOT.glob(path.rstrip("/.")))]
    missing += [path for path in linked if not (document.parent / path).exists()]
    assert not missing, f"{document.name} names {missing}"


def test_the_version_and_its_date_are_the_same_everywhere():
    version, date = re.search(r"^tamrix (\S+) \((.*)\)$", text_of(ROOT / "NEWS"), re.MULTILINE).groups()
    assert re.search(r"VERSION (\d+\.\d+\.\d+)", text_of(ROOT / "CMakeLists.txt"))[1] == version
    for page in PAGES.values():
        found = re.search(r"^\.Dd (.*)$", page, re.MULTILINE)[1]
        assert time.strptime(found, "%B %d, %Y") == time.strptime(date, "%Y-%m-%d")


# Texts in the sources that are no messages of the program, or cannot come from it.
EXCEPTIONS = {
    r"lib/process/lib/panel/": "for the panel's other programs",
    r"lib/process/lib/(ExecCmd|Exceptions)\.cpp: ": "reports of a runner that hooks do not use",
    r"StartAsUser\.cpp: .*(chdir|chroot|groups|setgid|setuid|getpwnam|not found|forbidden|setenv)":
        "no command becomes another user",
    r"(PlainChild\.cpp: fork_execv: |Capture\.cpp: .*execution failed)": "for the panel's other programs",
    r"cli/Dispatcher\.cpp: (.*\\t|Usage)": "the usage, which --help prints",
    r"SiblingTools\.cpp: is (stopped|running)": "for the panel's other programs",
    r"RegistryWriter\.cpp: display name:": "a heading of --list",
    r"HookRunner\.cpp: ": "the hook log, which php_configurator.d(5) describes",
    r"JsonError\.cpp: (OK|JSON array or object has|Number |'null' is unex|Encount|Custom|unknown)": "no step gives these",
}
LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
# What stands between the parts of one message: operands of + or <<.
JOINED = re.compile(r'\s*|[^",;{}]*(?:\+|<<)[^",;{}]*')


def messages():
    """(file, parts) of each text of the sources that has two words or more; %s and the like are between parts."""
    for room in ("base", "cli", "commands", "host", "lib", "registry"):
        for file in sorted((ROOT / room).rglob("*.cpp")):
            source = re.sub(r"(?m)^\s*#.*$|//.*$", "", text_of(file))
            source = re.sub(r"\b(add\w*Text|addFlag|add_options\(\)|CommandOptions options)\([^;]*;", "", source)
            previous, parts = 0, []
            for found in [*LITERAL.finditer(source), None]:
                if found is None or not JOINED.fullmatch(source[previous:found.start()]):
                    if re.search(r"[A-Za-z]{3}.* [A-Za-z]{2}|[a-z]{3}: $", " ".join(parts)):
                        yield str(file.relative_to(ROOT)), parts
                    parts = []
                if found:
                    separate = "" if source[previous:found.start()].strip() == "" and parts else None
                    pieces = re.split(r"%\w+|%\d%|\\n", found[1])
                    parts = [*parts[:-1], parts[-1] + pieces[0], *pieces[1:]] if separate == "" else [*parts, *pieces]
                    previous = found.end()


def test_the_manual_explains_every_message():
    shown = re.sub(r"\s", "", manual.words("tamrix.8"))
    missing = []
    for file, parts in messages():
        pieces = [re.escape(re.sub(r"\s", "", part.replace('\\"', '"').replace("\\\\", "\\"))) for part in parts]
        if not re.search(".{0,60}?".join(pieces), shown) and not any(
                re.search(pattern, f"{file}: {' ... '.join(parts)}") for pattern in EXCEPTIONS):
            missing.append(f"{file}: {' ... '.join(parts)}")
    assert not missing, "docs/man/tamrix.8 does not explain:\n" + "\n".join(missing)
