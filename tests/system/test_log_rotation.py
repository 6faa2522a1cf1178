"""The rule that the packages install for the hook log, under the real logrotate."""

import gzip

import pytest

from manual import ROOT
from private_host import HOOK_LOG, ok
from registry_text import document, record

RULE = "/opt/ovt/logrotate"


@pytest.fixture
def log(host):
    host.write(RULE, (ROOT / "packaging/logrotate").read_bytes())
    return host


def rotate(host, *words):
    assert host.run("/usr/sbin/logrotate", "--state", "/opt/ovt/state", *words, RULE) == ok()


def kept(host):
    return sorted(path.name.removeprefix("php_handler_configurators.log")
                  for path in host.path("/var/log/quelm").iterdir())


def test_the_rule_is_monthly():
    words = (ROOT / "packaging/logrotate").read_text(encoding="utf-8").split()
    assert words == [HOOK_LOG, "{", "monthly", "rotate", "12", "compress", "missingok", "notifempty", "}"]


def test_a_missing_log_and_an_empty_one_stay_as_they_are(log):
    rotate(log, "--force")
    assert kept(log) == []
    log.write(HOOK_LOG)
    rotate(log, "--force")
    assert kept(log) == [""]


def test_twelve_compressed_logs_are_kept_the_newest_first(log):
    for number in range(14):
        log.write(HOOK_LOG, f"{number}\n")
        rotate(log, "--force")
    assert kept(log) == sorted(f".{number}.gz" for number in range(1, 13))
    assert gzip.decompress(log.path(HOOK_LOG + ".1.gz").read_bytes()) == b"13\n"
    assert gzip.decompress(log.path(HOOK_LOG + ".12.gz").read_bytes()) == b"2\n"


def test_a_link_in_place_of_the_log_is_left_alone(log):
    log.write("/var/log/quelm/elsewhere", "old\n")
    log.path(HOOK_LOG).symlink_to("elsewhere")
    rotate(log, "--force")
    assert log.read("/var/log/quelm/elsewhere") == "old\n"
    assert sorted(path.name for path in log.path("/var/log/quelm").iterdir()) == [
        "elsewhere", "php_handler_configurators.log"]


def test_records_of_a_command_that_runs_meanwhile_stay_out_of_the_new_log(log):
    """The rule compresses at once, so the file that the command has open goes with what is written to it later."""
    log.registry = document(record("a"))
    log.write("/opt/ovt/state")
    log.hook("10-rotate", f"/usr/sbin/logrotate --state /opt/ovt/state --force {RULE}")
    log.write(HOOK_LOG, "old\n")
    assert log.tamrix("--update", "--id", "a", "--type", "fastcgi") == ok()
    assert kept(log) == [".1.gz"]
    assert gzip.decompress(log.path(HOOK_LOG + ".1.gz").read_bytes()) == b"old\n"
