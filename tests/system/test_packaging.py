"""What the packages are made with, as far as it can be seen without making them; tests/packaging makes them."""

import datetime
import pathlib
import re
import subprocess

import pytest

from manual import ROOT
from private_host import ok


def text(path):
    return (ROOT / path).read_text(encoding="utf-8")


def test_version_and_date_are_the_same_everywhere():
    version, day = re.search(r"^tamrix (\S+) \((\S+)\)$", text("NEWS"), re.MULTILINE).groups()
    date = datetime.date.fromisoformat(day)
    assert f"project(tamrix VERSION {version} " in text("CMakeLists.txt")
    assert text("debian/changelog").startswith(f"tamrix ({version}) ")
    stamp = re.search(r"^ -- The tamrix authors <tamrix@example.org>  (.*)$", text("debian/changelog"), re.MULTILINE)[1]
    assert stamp == f"{date:%a, %d %b %Y} 00:00:00 +0000"
    assert re.search(r"^version: (.*)$", text("fleet/galaxy.yml"), re.MULTILINE)[1] == version
    recipe = text("packaging/tamrix.spec")
    assert re.search(r"^Version: +(.*)$", recipe, re.MULTILINE)[1] == version
    log = f"%changelog\n* {date:%a %b %d %Y} The tamrix authors <tamrix@example.org> - {version}-1\n"
    assert log in recipe


@pytest.mark.parametrize("words", [[], ["zip"]])
def test_a_package_of_no_known_kind_is_refused(words):
    done = subprocess.run([ROOT / "packaging/build", *words], capture_output=True, text=True)
    assert (done.returncode, done.stdout, done.stderr) == (2, "", "usage: packaging/build deb|srpm [FOLDER]\n")


CURL = pathlib.Path("/usr/share/doc/libcurl4-openssl-dev/copyright")


@pytest.mark.skipif(not CURL.exists(), reason="libcurl4-openssl-dev is not installed")
def test_the_packages_carry_the_notice_that_curl_asks_for():
    """Years and line ends differ between releases."""
    ours, theirs = (" ".join(re.sub(r"(?m)^ \.$", "", path.read_text(encoding="utf-8")).split())
                    for path in (ROOT / "debian/copyright", CURL))
    for wanted in (r"Permission to use, copy, modify, and distribute .*? authorization of the copyright holder\.",
                   r"(?<=Copyright: )[\d ,-]+(\w+ \w+)"):
        found = re.search(wanted, theirs)
        assert (found[1] if found.lastindex else found[0]) in ours


@pytest.mark.parametrize("tool, flock, status, message", [
    ("", 'exec /usr/bin/flock "$@"', 0, None),
    (None, 'exec /usr/bin/flock "$@"', 0, None),
    ("echo no disk >&2; exit 1", 'exec /usr/bin/flock "$@"', 1, "Failed to set depotctl dirty flag : no disk"),
    ("", "exit 75", 75, "/etc/ovt has been locked for a minute; run tamrix --reread later"),
], ids=["with the package tool", "without it", "a failure", "a lock that is kept"])
def test_the_reread_of_package_managers(host, tool, flock, status, message):
    """The dirty flag is set where there is a package tool; what is printed is logged, too."""
    if tool is None:
        host.remove("/opt/ovt/admin/sbin/depotctl")
    else:
        host.recorder("/opt/ovt/admin/sbin/depotctl", tool)
    host.recorder("/opt/ovt/bin/flock", flock)
    host.write("/opt/ovt/reread", text("packaging/reread"), 0o755)
    host.open_log()
    done = host.run("/opt/ovt/reread", env={"PATH": "/opt/ovt/bin:/usr/bin:/bin"})
    assert (done.status, done.out, done.err) == (status, "", f"{message}\n" if message else "")
    switch = "" if tool is not None else " --no-set-dirty-flag"
    calls = ["/opt/ovt/bin/flock --timeout 60 --conflict-exit-code 75 /etc/ovt "
             f"/opt/ovt/admin/sbin/tamrix --reread{switch}"]
    if tool is not None and flock != "exit 75":
        calls.append("/opt/ovt/admin/sbin/depotctl --set-dirty-flag")
    assert host.calls == calls
    assert [sent.partition("tamrix: ")[2] for sent in host.log_messages()] == ([message] if message else [])


def test_the_reread_of_package_managers_needs_the_program(host):
    host.write("/opt/ovt/reread", text("packaging/reread").replace("admin=/opt/ovt/admin/sbin", "admin=/nowhere"), 0o755)
    assert host.run("/opt/ovt/reread") == ok()
