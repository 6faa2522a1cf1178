"""The documents: what they name exists, and they agree on version and date."""

import re
import time

import pytest

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
