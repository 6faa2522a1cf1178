"""Debian's own PHP, through every command."""

import os
import re
import shutil
import subprocess

import pytest

from debian_php import PHP, needed
from private_host import PACKAGES, SCRIPT, failed, ok
from registry_text import document, package, record

CGI, CLI, FPM = f"/usr/bin/php-cgi{PHP}", f"/usr/bin/php{PHP}", f"/usr/sbin/php-fpm{PHP}"
INI = f"/etc/php/{PHP}/{{}}/php.ini"
POOL = f"/etc/php/{PHP}/fpm/pool.d"
SERVICE = f"php{PHP}-fpm"
SIBLINGS = SCRIPT.with_name("siblings")

pytestmark = needed


@pytest.fixture
def real_host(host):
    """A host with the working stand-ins of the sibling tools."""
    for tool in SIBLINGS.iterdir():
        shutil.copy(tool, host.path("/opt/ovt/admin/sbin"))
    return host


@pytest.fixture
def version():
    """The version by Debian's packages, not by the binary's banner."""
    shown = subprocess.run(["dpkg-query", "-W", "-f=${Version}", f"php{PHP}-cgi"], capture_output=True, text=True)
    return re.match(r"(?:\d+:)?([\d.]+)", shown.stdout)[1]


def test_cgi_and_fastcgi_are_added_and_listed(real_host, version):
    ini = INI.format("cgi")
    assert real_host.tamrix(
        "--add", "--path", CGI, "--clipath", CLI, "--phpini", ini, "--type", "cgi", "--id", "c") == ok("c\n")
    assert real_host.tamrix("--add", "--path", CGI, "--phpini", ini, "--type", "fastcgi", "--id", "f") == ok("f\n")
    assert real_host.registry == document(
        record("c", path=CGI, clipath=CLI, phpini=ini, version=version),
        record("f", path=CGI, phpini=ini, version=version, type="fastcgi"))
    assert re.search(rf"\n +c +{re.escape(version)} +{re.escape(version)} +cgi +{CGI} +{CLI} +{ini} +\n",
                     real_host.tamrix("--list").out)
    assert real_host.exists("/opt/ovt/var/depot.dirty")


def test_fpm_is_added_when_its_unit_is_installed(real_host, version):
    words = ["--add", "--path", FPM, "--clipath", CLI, "--phpini", INI.format("fpm"), "--type", "fpm", "--poold", POOL]
    assert real_host.tamrix(*words, "--service", "php9.9-fpm") == failed("php9.9-fpm: service not found.\n")
    assert real_host.tamrix(*words, "--service", SERVICE + ".service") == failed(
        f"php{PHP}-fpm.service: service not found. Please retry without '.service' suffix.\n")
    assert real_host.tamrix(*words, "--service", SERVICE, "--id", "f") == ok("f\n")
    assert real_host.registry == document(
        record("f", path=FPM, clipath=CLI, phpini=INI.format("fpm"), version=version, type="fpm", service=SERVICE,
               poold=POOL))
    assert real_host.read("/opt/ovt/var/service.limits") == f"php{PHP}-fpm 8192\n"


def test_a_package_file_of_each_kind(real_host, version):
    kinds = {"cgi": (CGI, {}), "fastcgi": (CGI, {}), "fpm": (FPM, {"service": SERVICE, "poold": POOL})}
    expected = {}
    for kind, (path, more) in kinds.items():
        ini = INI.format("fpm" if kind == "fpm" else "cgi")
        real_host.write(f"{PACKAGES}/{kind}.conf", package(path, CLI, ini, kind, "$version by Debian", id=f"deb-{kind}",
                                                           **more))
        fields = {"path": path, "clipath": CLI, "phpini": ini, "version": version, "type": kind, "system": True,
                  "displayname": "%24version%20by%20Debian", "service": SERVICE}
        expected[kind] = [record(f"deb-{kind}", poold=POOL, **fields)]
        if kind == "fpm":
            expected[kind].append(record("deb-fpm-dedicated", **fields))
    order = [entry.name[:-5] for entry in os.scandir(real_host.path(PACKAGES))]
    assert real_host.tamrix("--reread") == ok()
    assert real_host.registry == document(*(one for kind in order for one in expected[kind]))
    assert real_host.read("/opt/ovt/var/service.limits") == f"php{PHP}-fpm 8192\n"


def test_an_updated_path_and_a_removal(real_host, version):
    ini = INI.format("cgi")
    real_host.php("/opt/ovt/php", "PHP 5.6.40 (cgi-fcgi)\n")
    real_host.tamrix("--add", "--path", "/opt/ovt/php", "--phpini", ini, "--type", "cgi", "--id", "x")
    assert real_host.tamrix("--update", "--id", "x", "--path", CGI) == ok()
    assert real_host.registry == document(record("x", path=CGI, phpini=ini, version=version))
    assert real_host.tamrix("--remove", "--id", "x") == ok()
    assert real_host.registry == document()


def test_an_interpreter_that_vanished_before_a_reread(real_host, version):
    ini = INI.format("cgi")
    shutil.copy(CGI, real_host.path("/opt/ovt/php-copy"))
    for id, path in (("copy", "/opt/ovt/php-copy"), ("real", CGI)):
        real_host.tamrix("--add", "--path", path, "--phpini", ini, "--type", "cgi", "--id", id)
    real_host.remove("/opt/ovt/php-copy")
    assert real_host.tamrix("--reread") == ok(
        err=f"[Warning] removing handler `{version}' (copy) as corresponding /opt/ovt/php-copy doesn't exist\n")
    assert real_host.registry == document(record("real", path=CGI, phpini=ini, version=version))
