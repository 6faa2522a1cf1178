"""Package handler files, seen through --reread."""

import os
import socket

import pytest

from private_host import PACKAGES, UNPRIVILEGED, failed, ok
from registry_text import CGI, CLI, EMPTY, INI, document, package, record

FILE = f"{PACKAGES}/x.conf"
READING = f"Error reading handler from {FILE}: "
ADDING = f"Error adding handler from {FILE}: "
# sha1 of "PHP $version /opt/ovt/php/php-cgi /opt/ovt/php/php.ini cgi"
ID = "bc2a3e7cc8d4f0986827f39cbe58d01d83863e29"


@pytest.fixture
def full_host(host):
    host.php(CGI)
    host.php(CLI)
    host.write(INI)
    return host


def packaged(id, **fields):
    return record(id, **{"displayname": "name", "system": True, **fields})


@pytest.mark.parametrize("name", [
    "php81.conf.bak", "php81.conf.dpkg-old", "php81.conf~", "README", "x.CONF", "x.con", "xconf", ".conf.swp"])
def test_a_file_of_another_name_is_ignored(full_host, name):
    full_host.write(f"{PACKAGES}/{name}", "not even INI")
    assert full_host.tamrix("--reread") == ok()
    assert full_host.registry == EMPTY


@pytest.mark.parametrize("name", [".conf", "a b.conf", "x.conf.conf", "\u00e4.conf"])
def test_a_name_that_ends_in_conf_qualifies(full_host, name):
    full_host.write(f"{PACKAGES}/{name}", package(id="x"))
    assert full_host.tamrix("--reread") == ok()
    assert full_host.registry == document(packaged("x"))


def test_what_is_no_regular_file_is_skipped_silently(full_host):
    folder = full_host.path(PACKAGES)
    (folder / "folder.conf").mkdir()
    (folder / "folder.conf/inner.conf").write_text(package(id="inner"))
    os.symlink("/no/such", folder / "dangling.conf")
    os.symlink("loop.conf", folder / "loop.conf")
    os.mkfifo(folder / "fifo.conf")
    with socket.socket(socket.AF_UNIX) as listener:
        here = os.open(folder, os.O_RDONLY)
        listener.bind(f"/proc/self/fd/{here}/socket.conf")
        os.close(here)
    assert full_host.tamrix("--reread") == ok()
    assert full_host.registry == EMPTY


def test_a_link_to_a_regular_file_is_read(full_host):
    full_host.write("/opt/ovt/elsewhere", package(id="x"))
    os.symlink("/opt/ovt/elsewhere", full_host.path(PACKAGES) / "y.conf")
    assert full_host.tamrix("--reread") == ok()
    assert full_host.registry == document(packaged("x"))


@pytest.mark.parametrize("text,message", [
    ("[section]\n" + package(), "No such node (displayname)"),
    ("", "No such node (displayname)"),
    (package().replace("displayname", "DisplayName"), "No such node (displayname)"),
    ("\ufeff" + package(), "No such node (displayname)"),
    (package().replace("path=", "xpath=", 1), "No such node (path)"),
    (package().replace("clipath", "cli"), "No such node (clipath)"),
    (package().replace("phpini", "ini"), "No such node (phpini)"),
    (package().replace("type", "kind"), "No such node (type)"),
    (package(type="fpm", poold="/p"), "No such node (service)"),
    (package(type="fpm", service="s"), "No such node (poold)"),
    (package(type="fpm"), "No such node (service)"),
    ("rubbish\n", f"{FILE}(1): '=' character not found in line"),
    ("a=1\n=v\n", f"{FILE}(2): key expected"),
    ("a=1\na=2\n", f"{FILE}(2): duplicate key name"),
    ("[a]\nx=1\n[a]\ny=1\n", f"{FILE}(3): duplicate section name"),
    ("[a\n", f"{FILE}(1): unmatched '['")])
def test_a_file_with_an_ini_error_or_a_missing_key_is_told_and_skipped(full_host, text, message):
    full_host.write(FILE, text)
    assert full_host.tamrix("--reread") == ok(err=READING + message + "\n")
    assert full_host.registry == EMPTY


@pytest.mark.parametrize("text,message", [
    (package(type="FPM"), "Unknown php handler type : FPM"),
    (package(type=""), "Unknown php handler type : "),
    (package(id=""), "Undefined php handler id"),
    (package(id="taken"), "Handler with id = `taken' already exists")])
def test_a_file_that_cannot_be_added_is_told_and_skipped(full_host, text, message):
    full_host.registry = document(record("taken"))
    full_host.write(FILE, text)
    assert full_host.tamrix("--reread") == ok(err=ADDING + message + "\n")
    assert full_host.registry == document(record("taken"))


def test_one_bad_file_does_not_stop_the_others(full_host):
    full_host.write(f"{PACKAGES}/a.conf", package(id="a"))
    full_host.write(FILE, "rubbish\n")
    full_host.write(f"{PACKAGES}/z.conf", package(id="z"))
    result = full_host.tamrix("--reread")
    assert result == ok(err=READING + f"{FILE}(1): '=' character not found in line\n")
    assert sorted(full_host.registry) == sorted(document(packaged("a"), packaged("z")))


def test_files_are_taken_in_the_order_of_the_folder(full_host):
    for name in ("q", "b", "z", "a", "m"):
        full_host.write(f"{PACKAGES}/{name}.conf", package(id=name))
    full_host.tamrix("--reread")
    order = [entry.name[:-5] for entry in os.scandir(full_host.path(PACKAGES))]
    assert full_host.registry == document(*(packaged(name) for name in order))


def test_of_two_files_with_one_id_the_first_listed_wins(full_host):
    full_host.write(f"{PACKAGES}/a.conf", package(id="x", name="a"))
    full_host.write(f"{PACKAGES}/b.conf", package(id="x", name="b"))
    first, second = (entry.name for entry in os.scandir(full_host.path(PACKAGES)))
    assert full_host.tamrix("--reread") == ok(
        err=f"Error adding handler from {PACKAGES}/{second}: Handler with id = `x' already exists\n")
    assert full_host.registry == document(packaged("x", displayname=first[0]))


def test_without_an_id_key_the_id_is_computed(full_host):
    full_host.write(FILE, package(name="PHP $version", clipath=CLI))
    assert full_host.tamrix("--reread") == ok()
    assert full_host.registry == document(packaged(ID, displayname="PHP%20%24version", clipath=CLI))


def test_service_and_pool_of_another_type_are_not_read(full_host):
    full_host.write(FILE, package(id="x", service="s", poold="/p", more="ignored"))
    assert full_host.tamrix("--reread") == ok()
    full_host.write(FILE, package(id="x", type="fpm", service="s", poold="/p"))
    full_host.php(CGI, "PHP 5.6.40\n")
    full_host.tamrix("--reread")
    assert full_host.registry == document(packaged("x", type="fpm", version="5.6.40", service="s", poold="/p"))


def test_comments_blanks_and_carriage_returns(full_host):
    text = "; comment\r\n# comment\r\n\r\n  " + package(id="x", name="  a = b ; c  ").replace("\n", "\r\n")
    full_host.write(FILE, text + "[section]\r\ndisplayname=other\r\n")
    assert full_host.tamrix("--reread") == ok()
    assert full_host.registry == document(packaged("x", displayname="a%20%3D%20b%20%3B%20c"))


@pytest.mark.parametrize("version,twin", [
    ("7.3", True), ("7.3.0", True), ("8.1.2", True), ("7.10", True), ("7.30", True), ("7.29", True), ("8", True),
    ("10.0", True), ("7", False), ("7.2.34", False), ("7.03", False), ("5.6", False)])
def test_an_fpm_handler_from_7_3_on_has_a_dedicated_twin(full_host, version, twin):
    full_host.php(CGI, f"PHP {version} (fpm-fcgi)\n")
    full_host.write(FILE, package(id="x", type="fpm", service="s", poold="/p", clipath=CGI))
    assert full_host.tamrix("--reread") == ok()
    fields = {"type": "fpm", "service": "s", "version": version, "clipath": CGI}
    records = [packaged("x", poold="/p", **fields)]
    if twin:
        records.append(packaged("x-dedicated", **fields))
    assert full_host.registry == document(*records)


def test_when_the_probe_for_the_twin_fails_the_first_handler_stays(full_host):
    count = "/opt/ovt/count"
    full_host.recorder(CGI, f"if [ -e {count} ]; then echo 'PHP 8.1.2'; else touch {count}; exit 1; fi")
    full_host.write(FILE, package(id="x", type="fpm", service="s", poold="/p"))
    assert full_host.tamrix("--reread") == ok(err=ADDING + f"can not get version from {CGI}\n")
    assert full_host.registry == document(packaged("x", type="fpm", service="s", poold="/p"))


def test_when_the_twin_s_id_is_taken_the_first_handler_stays(full_host):
    full_host.registry = document(record("x-dedicated"))
    full_host.write(FILE, package(id="x", type="fpm", service="s", poold="/p"))
    assert full_host.tamrix("--reread") == ok(
        err=ADDING + "Handler with id = `x-dedicated' already exists\n")
    assert full_host.registry == document(
        record("x-dedicated"), packaged("x", type="fpm", service="s", poold="/p"))


def test_a_file_system_error_of_the_twin_s_probe_is_told_like_a_failed_one(full_host):
    loop = "/opt/ovt/loop"
    os.symlink(loop, full_host.path(loop))
    full_host.write(FILE, package(id="x", path=loop, type="fpm", service="s", poold="/p"))
    assert full_host.tamrix("--reread") == ok(err=(
        ADDING + f"filesystem error: status: Too many levels of symbolic links [{loop}]\n"
        + f"[Warning] removing handler `name' (x) as corresponding {loop} doesn't exist\n"))
    assert full_host.registry == EMPTY


def test_a_folder_that_cannot_be_listed_ends_the_reread_and_keeps_the_registry(full_host):
    full_host.registry = document(packaged("x"))
    full_host.path(PACKAGES).chmod(0)
    fatal = (
        "Fatal error: std::filesystem::__cxx11::filesystem_error(filesystem error: directory iterator cannot"
        f" open directory: Permission denied [{PACKAGES}])\n")
    assert full_host.shell(UNPRIVILEGED, "--reread") == failed(fatal, fatal)
    assert full_host.registry == document(packaged("x"))
    full_host.path(PACKAGES).chmod(0o755)


def test_the_twin_of_a_built_in_id_is_a_handler_of_its_own(full_host):
    full_host.write(FILE, package(id="cgi", type="fpm", service="s", poold="/p", name=""))
    full_host.tamrix("--reread")
    assert full_host.registry == document(
        packaged("cgi", displayname="8.1.2", type="fpm", service="s", poold="/p"),
        packaged("cgi-dedicated", displayname="", type="fpm", service="s"))


def test_an_unreadable_file_is_told_with_its_path_twice(full_host):
    full_host.write(FILE, package(id="x"), 0)
    assert full_host.shell(UNPRIVILEGED, "--reread") == ok(err=READING + f"{FILE}: cannot open file\n")
