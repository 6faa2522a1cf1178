"""Options and the `host` fixture. Run by ./test; by hand, from the root:

    /usr/bin/python3 -m pytest -p no:cacheprovider tests/system --binary build/release/tamrix [-k WORD]
"""

import ctypes
import os
import pathlib
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile

import pytest

# Where an instrumented program keeps its counters.
PROFILES = os.path.dirname(os.environ.get("LLVM_PROFILE_FILE", "")) or None
ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/support"))

import commands  # noqa: E402
import private_host  # noqa: E402
from registry_text import CGI, CLI, INI  # noqa: E402


def pytest_addoption(parser):
    parser.addoption("--binary", default=str(ROOT / "build/release/tamrix"), help="the program under test")
    parser.addoption("--emulator", default="", help="what runs a program of another architecture")
    parser.addoption("--hosts", help="folder for the private hosts; those of failed tests stay there")
    parser.addoption("--rounds", type=int, default=3, help="how often changes at once are tried")
    parser.addoption("--seed", help="seed of the random sequences")


def pytest_configure(config):
    # What bubblewrap leaves to be waited for comes to us instead of to the machine's first process.
    set_child_subreaper = 36
    ctypes.CDLL(None).prctl(set_child_subreaper, 1, 0, 0, 0)
    # nohup, or a shell that starts us in the background, has these ignored, and children inherit that.
    for number in (signal.SIGHUP, signal.SIGQUIT):
        signal.signal(number, signal.SIG_DFL)
    if signal.getsignal(signal.SIGINT) == signal.SIG_IGN:
        signal.signal(signal.SIGINT, signal.default_int_handler)
    if config.getoption("--seed") is None:
        config.option.seed = str(random.randrange(10**9))


def reap_orphans():
    try:
        while os.waitpid(-1, os.WNOHANG)[0]:
            pass
    except ChildProcessError:
        pass


def pytest_terminal_summary(terminalreporter, config):
    terminalreporter.write_line(f"random sequences: repeat with --seed {config.getoption('--seed')}")


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    outcome = yield
    if call.when == "call" and outcome.get_result().failed:
        item.has_failed = True


@pytest.fixture
def host(request):
    """A fresh private host with recording tools; removed unless the test fails."""
    hosts = request.config.getoption("--hosts")
    if hosts:
        os.makedirs(hosts, exist_ok=True)
    name = re.sub(r"[^A-Za-z0-9_]+", "-", request.node.name)[:60]
    folder = tempfile.mkdtemp(prefix=f"tamrix-{name}.", dir=hosts)
    made = private_host.PrivateHost(folder, request.config.getoption("--binary"), PROFILES)
    made.emulator = request.config.getoption("--emulator").split()
    made.record_tools()
    yield made
    made.close()
    reap_orphans()
    # What a test forbids to itself its user may delete afterwards.
    subprocess.run(["chmod", "-R", "u+rwX", folder], check=False)
    if getattr(request.node, "has_failed", False):
        print(f"kept: {folder}")
    else:
        shutil.rmtree(folder)


@pytest.fixture
def php_host(host):
    """With both interpreters and their php.ini."""
    host.php(CGI)
    host.php(CLI)
    host.write(INI)
    return host


@pytest.fixture
def furnished(host):
    """With all that the commands need, a hook and a package file included."""
    commands.furnish(host)
    return host


@pytest.fixture
def rounds(request):
    return range(request.config.getoption("--rounds"))


@pytest.fixture
def plain_binary():
    """For tests whose limits hit what an instrumented program needs for itself."""
    if PROFILES:
        pytest.skip("sanitizers and counters need memory, descriptors and files of their own, which are limited here")
