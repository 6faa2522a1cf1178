"""Debian's PHP: the version at hand is not the one that a text was written with."""

import re
import subprocess

import pytest

_DEPENDS = subprocess.run(["dpkg-query", "-W", "-f=${Depends}", "php-cgi"], capture_output=True, text=True, check=False)
_FOUND = re.search(r"php(\d+\.\d+)-cgi", _DEPENDS.stdout)
# As in the names of its programs, such as "8.2".
PHP = _FOUND[1] if _FOUND else "0.0"
needed = pytest.mark.skipif(not _FOUND, reason="php-cgi, php-cli and php-fpm are not installed")


def here(text):
    """A document's text, which is written with 8.2, with the version at hand."""
    return text.replace("php82", "php" + PHP.replace(".", "")).replace("8.2", PHP)


def any_version(text):
    """The text with every full version of this PHP as VERSION."""
    return re.sub(rf"\b{re.escape(PHP)}\.\d+\b", "VERSION", text)
