"""A private host as a test sees it: files, stand-ins that record their calls, the system log, and tamrix run in
it. The root that commands run in is laid by the private-host script beside this file.

Texts are strings in which every byte survives (UTF-8, odd bytes as surrogates)."""

import dataclasses
import os
import pathlib
import re
import shlex
import socket
import subprocess

SCRIPT = pathlib.Path(__file__).resolve().with_name("private-host")
SBIN = "/opt/ovt/admin/sbin"
TAMRIX = f"{SBIN}/tamrix"
REGISTRY = "/etc/ovt/php_versions.json"
PACKAGES = "/etc/ovt/php_versions.d"
HOOKS = "/etc/ovt/php_configurator.d"
HOOK_LOG = "/var/log/quelm/php_handler_configurators.log"
CALLS = "/opt/ovt/calls"
TIME_STAMP = re.compile(r"^\[\d{4}-\d\d-\d\d \d\d-\d\d-\d\d\.\d{3}\] Start: ", re.MULTILINE)
# For PrivateHost.shell: tamrix without root's right to read and enter everything.
UNPRIVILEGED = (
    'if [ "$(id -u)" = 0 ]; then set -- setpriv --bounding-set -dac_override,-dac_read_search "$@"; fi\n'
    'exec "$@"')


def text(data):
    return data.decode("utf-8", "surrogateescape")


def data(value):
    return value if isinstance(value, bytes) else value.encode("utf-8", "surrogateescape")


@dataclasses.dataclass
class Result:
    status: int
    out: str = ""
    err: str = ""


def ok(out="", err=""):
    return Result(0, out, err)


def failed(err, out=""):
    return Result(1, out, err)


def fatal(what, out=""):
    """An unexpected failure, which is shown on both streams."""
    return Result(1, f"{out}Fatal error: {what}\n", f"Fatal error: {what}\n")


def fatal_file(doing, reason, path, out=""):
    return fatal(f"std::filesystem::__cxx11::filesystem_error(filesystem error: {doing}: {reason} [{path}])", out)


class PrivateHost:
    # The words before the program's, for a program of another architecture.
    emulator = ()

    def __init__(self, folder, binary, shared=None):
        self.folder = pathlib.Path(folder)
        command = [SCRIPT, "create", folder, binary] + ([shared] if shared else [])
        subprocess.run(command, check=True)
        self._log = None

    def close(self):
        if self._log:
            self._log.close()

    # Files. `inside` is the path that the program sees.

    def path(self, inside):
        return self.folder / inside.lstrip("/")

    def write(self, inside, content="", mode=0o644):
        path = self.path(inside)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data(content))
        path.chmod(mode)
        return inside

    def read(self, inside):
        return text(self.path(inside).read_bytes())

    def exists(self, inside):
        return os.path.lexists(self.path(inside))

    def remove(self, inside):
        self.path(inside).unlink()

    @property
    def registry(self):
        """The registry file's text, None when there is no file."""
        return self.read(REGISTRY) if self.exists(REGISTRY) else None

    @registry.setter
    def registry(self, content):
        self.write(REGISTRY, content)

    @property
    def hook_log(self):
        """The hook log with every well-formed time stamp as [TIME], None when there is no file."""
        return TIME_STAMP.sub("[TIME] Start: ", self.read(HOOK_LOG)) if self.exists(HOOK_LOG) else None

    @property
    def calls(self):
        """What was called so far, in order: one line per recording stand-in, its path and its words."""
        return self.read(CALLS).splitlines() if self.exists(CALLS) else []

    def forget_calls(self):
        self.write(CALLS)

    # Stand-ins. Each appends its call to the one list and then does what `body` says.

    def recorder(self, inside, body="", mode=0o755):
        return self.write(inside, f'#!/bin/sh\necho "$0 $*" >>{CALLS}\n{body}\n', mode)

    def php(self, inside, banner="PHP 8.1.2 (cgi-fcgi) (built: Jan  1 2024 00:00:00)\n", status=0, err=""):
        """An interpreter that prints `banner` for -v and ends with `status`."""
        body = f"printf %s {shlex.quote(banner)}\nprintf %s {shlex.quote(err)} >&2\nexit {status}"
        return self.recorder(inside, body)

    def tool(self, name, status=0, err="", out=""):
        """A sibling tool that only records its call."""
        return self.php(f"{SBIN}/{name}", out, status, err)

    def record_tools(self):
        for name in ("depotctl", "quotagate", "quelmrc"):
            self.tool(name)

    def hook(self, name, body="", mode=0o755):
        return self.recorder(f"{HOOKS}/{name}", body, mode)

    # Running.

    def run(self, *command, stdin="", env=None, timeout=120):
        """Runs any command inside; `env` is added to the environment."""
        words = [SCRIPT, "exec", self.folder, "--", *command]
        done = subprocess.run(
            words, input=data(stdin), capture_output=True, env={**os.environ, **(env or {})}, timeout=timeout)
        return Result(done.returncode, text(done.stdout), text(done.stderr))

    def tamrix(self, *words, **how):
        return self.run(*self.emulator, TAMRIX, *words, **how)

    def shell(self, script, *words, **how):
        """Runs a shell script whose "$@" is tamrix with the given words."""
        return self.run("/bin/sh", "-c", script, "sh", *self.emulator, TAMRIX, *words, **how)

    def started_by(self, code, *words):
        """Runs tamrix from a Python process that first does what `code` says."""
        script = f"import fcntl, os, resource, signal, sys\n{code}\nos.execv(sys.argv[1], sys.argv[1:])"
        return self.run("/usr/bin/python3", "-c", script, TAMRIX, *words)

    def traced(self, options, *words):
        """The result of a run under strace, and the trace."""
        # The leak checker of a sanitized build cannot work beside strace.
        result = self.run("/usr/bin/strace", "-qq", "-o", "/opt/ovt/trace", *options, TAMRIX, *words,
                          env={"ASAN_OPTIONS": "detect_leaks=0"})
        return result, self.read("/opt/ovt/trace")

    # The system log.

    def open_log(self):
        """From now on messages to the system log are kept."""
        self._log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_NONBLOCK)
        folder = os.open(self.folder / "dev", os.O_RDONLY)
        try:
            # Short whatever the folder's name is: a socket's path has 108 bytes.
            self._log.bind(f"/proc/self/fd/{folder}/log")
        finally:
            os.close(folder)
        os.chmod(self.folder / "dev/log", 0o666)

    def log_messages(self):
        """What came since the last time, without the end that some C libraries send."""
        messages = []
        while True:
            try:
                messages.append(text(self._log.recv(65536)).rstrip("\0"))
            except BlockingIOError:
                return messages
