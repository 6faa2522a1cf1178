"""Debian's PHP 8.2 in documents and their tests: the version at hand is not the one that a text was written
with."""

import os
import re

import pytest

INSTALLED = all(os.path.exists(path) for path in ("/usr/bin/php-cgi8.2", "/usr/bin/php8.2", "/usr/sbin/php-fpm8.2"))
needed = pytest.mark.skipif(not INSTALLED, reason="php8.2-cgi, php8.2-cli and php8.2-fpm are not installed")


def any_version(text):
    """The text with every PHP 8.2 version as 8.2.N."""
    return re.sub(r"\b8\.2\.\d+\b", "8.2.N", text)
