"""What the manual says outside of its displays, held to the program, to its usage text and to what is installed."""

import re
import shutil
import string

import manual
from private_host import PACKAGES, failed, ok
from registry_text import CGI, INI, document, package, record

ADD = ("--add", "--phpini", INI, "--type", "cgi", "--id", "x", "--path")


def test_the_bytes_that_get_a_backslash_are_those_of_the_manual(host):
    host.registry = document(record("a"))
    name = (string.punctuation + " \t").replace("/", "")
    host.hook(name)
    assert host.tamrix("--update", "--id", "a") == ok()
    shown = re.search(r"Start: /etc/ovt/php_configurator\.d/(.*) update\n", host.hook_log)[1]
    line = re.search(r"^\.Dl (.*)$", (manual.FOLDER / "php_configurator.d.5").read_text(encoding="utf-8"), re.MULTILINE)
    told = manual.plain(line[1]).split()
    assert re.sub(r"\\(.)", r"\1", shown) == name
    assert sorted(re.findall(r"\\(.)", shown)) == sorted([*told, " ", "\t"])


def test_an_interpreter_without_a_slash_is_found_along_the_path(host):
    path = {"PATH": "/opt/ovt/bin:/usr/bin:/bin"}
    host.php("/opt/ovt/bin/my-php", "PHP 8.4.1 (cli)\n")
    assert host.tamrix(*ADD, "my-php", env=path) == failed("Binary my-php doesn't exists\n")
    host.write("/opt/ovt/work/my-php", "not asked")
    assert host.shell('cd /opt/ovt/work && exec "$@"', *ADD, "my-php", env=path) == ok("x\n")
    assert host.registry == document(record("x", path="my-php", version="8.4.1"))


def test_the_zones_of_the_log_are_those_below_tzdir(host):
    host.registry = document(record("a"))
    host.hook("10-hook", "date +%z")
    shutil.copytree("/usr/share/zoneinfo/Etc", host.path("/opt/ovt/zones/Mine"))
    where = {"TZDIR": "/opt/ovt/zones", "TZ": "Mine/GMT-9"}
    before = host.run("/bin/date", "+%F %H", env={"TZ": "XXX-9"}).out.strip()
    assert host.tamrix("--update", "--id", "a", env=where) == ok()
    after = host.run("/bin/date", "+%F %H", env={"TZ": "XXX-9"}).out.strip()
    assert host.read("/var/log/quelm/php_handler_configurators.log")[1:14] in (before, after)
    assert "\nstdout: +0900\n" in host.hook_log


def test_a_custom_handler_wins_over_a_file_and_stands_in_front(host):
    host.php(CGI)
    host.write(INI)
    host.write(f"{PACKAGES}/x.conf", package(id="x"))
    host.write(f"{PACKAGES}/y.conf", package(id="y", displayname="n"))
    host.registry = document(record("y", displayname="n", system=True), record("x"))
    assert host.tamrix("--reread") == ok(
        err="Error adding handler from /etc/ovt/php_versions.d/x.conf: Handler with id = `x' already exists\n")
    assert host.registry == document(record("x"), record("y", displayname="n", system=True))
