"""Copies of the tree that mutants are built in, and the sandboxes that their tests run in.

build/mutation/base has the sources and two builds of them, the unit tests (tests/) and the shipped program
(program/). Each worker has a copy of all that; in a sandbox it is seen in the one place where base was built, so
ninja takes it for its own. After a mutant every file that differs from base is taken from there again: the next
mutant costs one compilation, and nothing of the last one is left.

A mutant can do anything that its program could by mistake. So a unit test has its own processes, no network, the
machine's files to read only and an empty /tmp; system tests run in private hosts anyway. All have limits of time,
memory and file size."""

import hashlib
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDER = ROOT / "build/mutation"
PLACE = FOLDER / "place"
GIGABYTE = 1 << 30
QUIET = 20  # seconds without a word; the longest test takes two
BUILDS = {
    "tests": ["-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld"],
    "program": ["-DCMAKE_BUILD_TYPE=Release", "-DTAMRIX_GATE=release", "-DTAMRIX_LINK=archives",
                "-DTAMRIX_TESTS=OFF"],
}


running = set()
stopping = threading.Event()


def stop_all():
    """Kills every command that is under way, with what it has started in its group, and lets no other begin."""
    stopping.set()
    for process in list(running):
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass


class TimeOut(Exception):
    """The command took too long and was killed with everything that it had started in its group."""


def prepare_child():
    # A shell that starts us in the background has these ignored.
    for number in (signal.SIGINT, signal.SIGQUIT, signal.SIGHUP):
        signal.signal(number, signal.SIG_DFL)
    resource.setrlimit(resource.RLIMIT_AS, (4 * GIGABYTE, 4 * GIGABYTE))
    resource.setrlimit(resource.RLIMIT_FSIZE, (GIGABYTE, GIGABYTE))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def wait(process, log, seconds, quiet_seconds):
    end = time.monotonic() + seconds
    heard, size = time.monotonic(), 0
    while True:
        try:
            return process.wait(1)
        except subprocess.TimeoutExpired:
            if os.path.getsize(log) != size:
                heard, size = time.monotonic(), os.path.getsize(log)
            if time.monotonic() > min(end, heard + quiet_seconds):
                raise TimeOut from None


def run(command, log, seconds, quiet_seconds=3600, **how):
    """The status of a command whose output goes to the file `log`. TimeOut after so many seconds, or after so many
    without output."""
    if stopping.is_set():
        raise SystemExit
    with open(os.devnull, "rb") as nothing, open(log, "wb") as output:
        process = subprocess.Popen(
            command, stdin=nothing, stdout=output, stderr=output, start_new_session=True, **how)
    running.add(process)
    try:
        return wait(process, log, seconds, quiet_seconds)
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()
        running.discard(process)


def listing(folder):
    """Path and state of every file below folder."""
    found = {}
    for place, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(place, name)
            state = os.lstat(path)
            found[os.path.relpath(path, folder)] = (state.st_mtime_ns, state.st_size)
    return found


def mirror(source, target):
    """Makes target equal to source, by time and size; what is equal already is left alone."""
    wanted, there = listing(source), listing(target)
    for name in there.keys() - wanted.keys():
        os.unlink(os.path.join(target, name))
    for name, state in wanted.items():
        if there.get(name) != state:
            path = pathlib.Path(target, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.unlink(missing_ok=True)
            shutil.copy2(os.path.join(source, name), path, follow_symlinks=False)


class Tree:
    """A folder with the sources and both builds."""

    place, sources, tests = PLACE, "source", "tests"

    def __init__(self, name):
        self.name = name
        self.folder = FOLDER / name
        self.log = FOLDER / f"{name}.log"
        self.hosts = None

    def source(self, file):
        return self.folder / self.sources / file

    def seeds(self):
        """Where the sandbox sees the sources, and the seeds with them."""
        return self.place / self.sources

    def sandbox(self, command, writable=False):
        root = ["bwrap", "--die-with-parent", "--unshare-pid", "--unshare-net", "--ro-bind", "/", "/",
                "--dev", "/dev", "--proc", "/proc", "--perms", "1777", "--size", str(GIGABYTE), "--tmpfs", "/tmp",
                "--bind" if writable else "--ro-bind", str(self.folder), str(self.place),
                "--setenv", "TMPDIR", "/tmp", "--setenv", "LC_ALL", "C.UTF-8", "--chdir", "/tmp", "--"]
        return root + [str(word) for word in command]

    def ninja(self, build, *targets, jobs=1):
        """Whether the targets could be built."""
        command = ["nice", "ninja", "-C", self.place / build, f"-j{jobs}", *targets]
        try:
            return run(self.sandbox(command, writable=True), self.log, 1800) == 0
        except TimeOut:
            return False

    def unit_test(self, program, words, seconds):
        """Whether the program, a path in the build of the unit tests, ends with 0."""
        command = self.sandbox([self.place / self.tests / program, *words])
        return run(command, self.log, seconds, QUIET, preexec_fn=prepare_child) == 0

    def system_tests(self, files, seconds):
        """Whether the shipped program passes the system tests, which stop at the first failure."""
        shutil.rmtree(self.hosts, ignore_errors=True)
        command = ["/usr/bin/python3", "-m", "pytest", "-p", "no:cacheprovider", "-vx", "--tb=short", "--seed=1",
                   f"--binary={self.folder}/program/tamrix", f"--hosts={self.hosts}", *files]
        return run(command, self.log, seconds, QUIET, cwd=self.folder / "source/tests/system",
                   env={**os.environ, "PYTHONDONTWRITEBYTECODE": "1"}, preexec_fn=prepare_child) == 0

    def digest(self):
        """Of all sources, tests included."""
        digest = hashlib.sha256()
        for path in sorted((self.folder / "source").rglob("*")):
            digest.update(bytes(path.relative_to(self.folder)))
            digest.update(path.read_bytes() if path.is_file() else b"")
        return digest.hexdigest()

    def bytes_of(self, name):
        path = self.folder / name
        return path.read_bytes() if path.exists() else b""

    def object_of(self, file):
        return f"program/CMakeFiles/tamrix_core.dir/{file}.o"


class CheckoutTree(Tree):
    """A copy of the checkout and of its dev build, seen where the checkout is: what ./test has built serves as base."""

    place, sources, tests = ROOT, ".", "build/dev"


def checkout_files():
    listed = subprocess.run(
        ["git", "-C", ROOT, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
        check=True, capture_output=True, text=True).stdout
    return [name for name in listed.split("\0") if name and (ROOT / name).is_file()]


def lay_base(jobs):
    """build/mutation/base as the checkout is now, built. Throws CalledProcessError when it cannot be."""
    base = Tree("base")
    PLACE.mkdir(parents=True, exist_ok=True)
    files = checkout_files()
    for name in files:
        target = base.source(name)
        target.parent.mkdir(parents=True, exist_ok=True)
        if not target.exists() or target.read_bytes() != (ROOT / name).read_bytes():
            shutil.copy(ROOT / name, target)
    for name in listing(base.folder / "source").keys() - set(files):
        base.source(name).unlink()
    for build, settings in BUILDS.items():
        configure = ["cmake", "-G", "Ninja", "-DCMAKE_CXX_FLAGS=-w", "-S", PLACE / "source", "-B", PLACE / build]
        if run(base.sandbox(configure + settings, writable=True), base.log, 600) != 0 or not base.ninja(
                build, "all", jobs=jobs):
            raise RuntimeError(f"{build} cannot be built: {base.log}")
    return base


def copy_checkout():
    """build/mutation/checkout as the checkout and its dev build, which is up to date, are now."""
    base = CheckoutTree("checkout")
    shutil.rmtree(base.folder, ignore_errors=True)
    for name in checkout_files():
        target = base.source(name)
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(ROOT / name, target)
    shutil.copytree(ROOT / base.tests, base.folder / base.tests, symlinks=True)
    return base
