"""The version banners of the PHP generations and build kinds: banners/NAME.banner is what such an interpreter
prints, NAME.version the version to find. A case is added by adding the two files."""

import pathlib

import pytest

from private_host import ok
from registry_text import CGI, INI, document, record

CASES = sorted(pathlib.Path(__file__).with_name("banners").glob("*.banner"))


@pytest.mark.parametrize("banner", CASES, ids=lambda path: path.stem)
def test_the_version_in_the_banner_of(host, banner):
    host.php(CGI, banner.read_bytes().decode())
    version = banner.with_suffix(".version").read_text(encoding="utf-8").strip()
    result = host.tamrix("--add", "--path", CGI, "--phpini", INI, "--type", "cgi", "--id", "x")
    assert result == ok("x\n")
    assert host.registry == document(record("x", version=version))


def test_there_are_banners():
    assert len(CASES) > 20
