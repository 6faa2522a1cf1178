"""Package handler files, seen through --reread."""

import os
import socket

import pytest

from private_host import PACKAGES, UNPRIVILEGED, ok
from registry_text import CGI, CLI, EMPTY, document, package, record

FILE = f"{PACKAGES}/x.conf"
READING = f"Error reading handler from {FILE}: "
ADDING = f"Error adding handler from {FILE}: "
# sha1 of "PHP $version /opt/ovt/php/php-cgi /opt/ovt/php/php.ini cgi"
ID = "bc2a3e7cc8d4f0986827f39cbe58d01d83863e29"


def packaged(id, **fields):
    return record(id, **{"displayname": "name", "system": True, **fields})


@pytest.mark.parametrize("name,taken", [
    *((name, False) for name in ("php81.conf.bak", "php81.conf.dpkg-old", "php81.conf~", "README", "x.CONF", "x.con",
                                 "xconf", ".conf.swp")),
    *((name, True) for name in (".conf", "a b.conf", "x.conf.conf", "\u00e4.conf"))])
def test_a_name_that_ends_in_conf_qualifies(php_host, name, taken):
    php_host.write(f"{PACKAGES}/{name}", package(id="x") if taken else "not even INI")
    assert php_host.tamrix("--reread") == ok()
    assert php_host.registry == (document(packaged("x")) if taken else EMPTY)


def test_what_is_no_regular_file_is_skipped_silently(php_host):
    folder = php_host.path(PACKAGES)
    (folder / "folder.conf").mkdir()
    (folder / "folder.conf/inner.conf").write_text(package(id="inner"))
    os.symlink("/no/such", folder / "dangling.conf")
    os.symlink("loop.conf", folder / "loop.conf")
    os.mkfifo(folder / "fifo.conf")
    with socket.socket(socket.AF_UNIX) as listener:
        here = os.open(folder, os.O_RDONLY)
        listener.bind(f"/proc/self/fd/{here}/socket.conf")
        os.close(here)
    assert php_host.tamrix("--reread") == ok()
    assert php_host.registry == EMPTY


def test_a_link_to_a_regular_file_is_read(php_host):
    php_host.write("/opt/ovt/elsewhere", package(id="x"))
    os.symlink("/opt/ovt/elsewhere", php_host.path(PACKAGES) / "y.conf")
    assert php_host.tamrix("--reread") == ok()
    assert php_host.registry == document(packaged("x"))


@pytest.mark.parametrize("text,message", [
    ("[section]\n" + package(), READING + "No such node (displayname)"),
    ("", READING + "No such node (displayname)"),
    (package().replace("displayname", "DisplayName"), READING + "No such node (displayname)"),
    ("\ufeff" + package(), READING + "No such node (displayname)"),
    (package().replace("path=", "xpath=", 1), READING + "No such node (path)"),
    (package().replace("clipath", "cli"), READING + "No such node (clipath)"),
    (package().replace("phpini", "ini"), READING + "No such node (phpini)"),
    (package().replace("type", "kind"), READING + "No such node (type)"),
    (package(type="fpm", poold="/p"), READING + "No such node (service)"),
    (package(type="fpm", service="s"), READING + "No such node (poold)"),
    (package(type="fpm"), READING + "No such node (service)"),
    ("rubbish\n", READING + f"{FILE}(1): '=' character not found in line"),
    ("a=1\n=v\n", READING + f"{FILE}(2): key expected"),
    ("a=1\na=2\n", READING + f"{FILE}(2): duplicate key name"),
    ("[a]\nx=1\n[a]\ny=1\n", READING + f"{FILE}(3): duplicate section name"),
    ("[a\n", READING + f"{FILE}(1): unmatched '['"),
    (package(type="FPM"), ADDING + "Unknown php handler type : FPM"),
    (package(type=""), ADDING + "Unknown php handler type : "),
    (package(id=""), ADDING + "Undefined php handler id"),
    (package(id="taken"), ADDING + "Handler with id = `taken' already exists")])
def test_a_file_that_cannot_be_read_or_added_is_told_and_skipped(php_host, text, message):
    php_host.registry = document(record("taken"))
    php_host.write(FILE, text)
    assert php_host.tamrix("--reread") == ok(err=message + "\n")
    assert php_host.registry == document(record("taken"))


def test_files_are_taken_in_the_order_of_the_folder_and_a_bad_one_stops_none(php_host):
    for name in ("q", "b", "z", "a", "m"):
        php_host.write(f"{PACKAGES}/{name}.conf", package(id=name))
    php_host.write(FILE, "rubbish\n")
    assert php_host.tamrix("--reread") == ok(err=READING + f"{FILE}(1): '=' character not found in line\n")
    order = [entry.name[:-5] for entry in os.scandir(php_host.path(PACKAGES))]
    assert php_host.registry == document(*(packaged(name) for name in order if name != "x"))


def test_of_two_files_with_one_id_the_first_listed_wins(php_host):
    php_host.write(f"{PACKAGES}/a.conf", package(id="x", name="a"))
    php_host.write(f"{PACKAGES}/b.conf", package(id="x", name="b"))
    first, second = (entry.name for entry in os.scandir(php_host.path(PACKAGES)))
    assert php_host.tamrix("--reread") == ok(
        err=f"Error adding handler from {PACKAGES}/{second}: Handler with id = `x' already exists\n")
    assert php_host.registry == document(packaged("x", displayname=first[0]))


def test_without_an_id_key_the_id_is_computed(php_host):
    php_host.write(FILE, package(name="PHP $version", clipath=CLI))
    assert php_host.tamrix("--reread") == ok()
    assert php_host.registry == document(packaged(ID, displayname="PHP%20%24version", clipath=CLI))


def test_service_and_pool_of_another_type_are_not_read(php_host):
    php_host.write(FILE, package(id="x", service="s", poold="/p", more="ignored"))
    assert php_host.tamrix("--reread") == ok()
    php_host.write(FILE, package(id="x", type="fpm", service="s", poold="/p"))
    php_host.php(CGI, "PHP 5.6.40\n")
    php_host.tamrix("--reread")
    assert php_host.registry == document(packaged("x", type="fpm", version="5.6.40", service="s", poold="/p"))


def test_comments_blanks_and_carriage_returns(php_host):
    text = "; comment\r\n# comment\r\n\r\n  " + package(id="x", name="  a = b ; c  ").replace("\n", "\r\n")
    php_host.write(FILE, text + "[section]\r\ndisplayname=other\r\n")
    assert php_host.tamrix("--reread") == ok()
    assert php_host.registry == document(packaged("x", displayname="a%20%3D%20b%20%3B%20c"))


@pytest.mark.parametrize("version,twin", [
    ("7.3", True), ("7.3.0", True), ("8.1.2", True), ("7.10", True), ("7.30", True), ("7.29", True), ("8", True),
    ("10.0", True), ("7", False), ("7.2.34", False), ("7.03", False), ("5.6", False)])
def test_an_fpm_handler_from_7_3_on_has_a_dedicated_twin(php_host, version, twin):
    php_host.php(CGI, f"PHP {version} (fpm-fcgi)\n")
    php_host.write(FILE, package(id="x", type="fpm", service="s", poold="/p", clipath=CGI))
    assert php_host.tamrix("--reread") == ok()
    fields = {"type": "fpm", "service": "s", "version": version, "clipath": CGI}
    records = [packaged("x", poold="/p", **fields)]
    if twin:
        records.append(packaged("x-dedicated", **fields))
    assert php_host.registry == document(*records)


def test_when_the_probe_for_the_twin_fails_the_first_handler_stays(php_host):
    count = "/opt/ovt/count"
    php_host.recorder(CGI, f"if [ -e {count} ]; then echo 'PHP 8.1.2'; else touch {count}; exit 1; fi")
    php_host.write(FILE, package(id="x", type="fpm", service="s", poold="/p"))
    assert php_host.tamrix("--reread") == ok(err=ADDING + f"can not get version from {CGI}\n")
    assert php_host.registry == document(packaged("x", type="fpm", service="s", poold="/p"))


def test_when_the_twin_s_id_is_taken_the_first_handler_stays(php_host):
    php_host.registry = document(record("x-dedicated"))
    php_host.write(FILE, package(id="x", type="fpm", service="s", poold="/p"))
    assert php_host.tamrix("--reread") == ok(
        err=ADDING + "Handler with id = `x-dedicated' already exists\n")
    assert php_host.registry == document(
        record("x-dedicated"), packaged("x", type="fpm", service="s", poold="/p"))


def test_a_file_system_error_of_the_twin_s_probe_is_told_like_a_failed_one(php_host):
    loop = "/opt/ovt/loop"
    os.symlink(loop, php_host.path(loop))
    php_host.write(FILE, package(id="x", path=loop, type="fpm", service="s", poold="/p"))
    assert php_host.tamrix("--reread") == ok(err=(
        ADDING + f"filesystem error: status: Too many levels of symbolic links [{loop}]\n"
        + f"[Warning] removing handler `name' (x) as corresponding {loop} doesn't exist\n"))
    assert php_host.registry == EMPTY


def test_the_twin_of_a_built_in_id_is_a_handler_of_its_own(php_host):
    php_host.write(FILE, package(id="cgi", type="fpm", service="s", poold="/p", name=""))
    php_host.tamrix("--reread")
    assert php_host.registry == document(
        packaged("cgi", displayname="8.1.2", type="fpm", service="s", poold="/p"),
        packaged("cgi-dedicated", displayname="", type="fpm", service="s"))


def test_an_unreadable_file_is_told_with_its_path_twice(php_host):
    php_host.write(FILE, package(id="x"), 0)
    assert php_host.shell(UNPRIVILEGED, "--reread") == ok(err=READING + f"{FILE}: cannot open file\n")


def test_a_section_with_the_name_of_a_key_reads_as_an_empty_value(php_host):
    php_host.write(FILE, package(id="x").replace("displayname=name\n", "") + "[displayname]\nk=v\n")
    assert php_host.tamrix("--reread") == ok()
    assert php_host.registry == document(packaged("x", displayname=""))


def test_a_custom_handler_wins_over_a_file_and_stands_in_front(php_host):
    php_host.write(FILE, package(id="x"))
    php_host.write(f"{PACKAGES}/y.conf", package(id="y", displayname="n"))
    php_host.registry = document(record("y", displayname="n", system=True), record("x"))
    assert php_host.tamrix("--reread") == ok(err=ADDING + "Handler with id = `x' already exists\n")
    assert php_host.registry == document(record("x"), record("y", displayname="n", system=True))
