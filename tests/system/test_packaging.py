"""What the packages are made with, as far as it can be seen without making them."""

import pathlib
import re
import subprocess

import pytest

from manual import ROOT

NEWS = """Words for readers.

tamrix 1.10.0 (2027-03-02)

  * One thing,
    told in two lines.
  * Another thing.

tamrix 1.9.1 (2026-12-31)

  * Repaired.
"""
DEB = """tamrix (1.10.0) stable; urgency=medium

  * One thing,
    told in two lines.
  * Another thing.

 -- A B <a@b>  Tue, 02 Mar 2027 00:00:00 +0000

tamrix (1.9.1) stable; urgency=medium

  * Repaired.

 -- A B <a@b>  Thu, 31 Dec 2026 00:00:00 +0000

"""
RPM = """* Tue Mar 02 2027 A B <a@b> - 1.10.0-1
- One thing,
  told in two lines.
- Another thing.
* Thu Dec 31 2026 A B <a@b> - 1.9.1-1
- Repaired.
"""


@pytest.mark.parametrize("kind, log", [("deb", DEB), ("rpm", RPM)])
def test_news_becomes_a_change_log(tmp_path, kind, log):
    (tmp_path / "NEWS").write_text(NEWS)
    done = subprocess.run([ROOT / "packaging/changelog", kind, tmp_path / "NEWS", "A B <a@b>"], capture_output=True,
                          text=True, env={"PATH": "/usr/bin:/bin", "TZ": "Asia/Tokyo", "LC_ALL": "C.UTF-8"})
    assert (done.returncode, done.stdout, done.stderr) == (0, log, "")


@pytest.mark.parametrize("words", [[], ["zip"]])
def test_a_package_of_no_known_kind_is_refused(words):
    done = subprocess.run([ROOT / "packaging/build", *words], capture_output=True, text=True)
    assert (done.returncode, done.stdout, done.stderr) == (2, "", "usage: packaging/build deb|rpm [FOLDER]\n")


CURL = pathlib.Path("/usr/share/doc/libcurl4-openssl-dev/copyright")


@pytest.mark.skipif(not CURL.exists(), reason="libcurl4-openssl-dev is not installed")
def test_the_packages_carry_the_notice_that_curl_asks_for():
    """Years and line ends differ between releases."""
    ours, theirs = (" ".join(re.sub(r"(?m)^ \.$", "", path.read_text(encoding="utf-8")).split())
                    for path in (ROOT / "packaging/copyright", CURL))
    for wanted in (r"Permission to use, copy, modify, and distribute .*? authorization of the copyright holder\.",
                   r"(?<=Copyright: )[\d ,-]+(\w+ \w+)"):
        found = re.search(wanted, theirs)
        assert (found[1] if found.lastindex else found[0]) in ours
