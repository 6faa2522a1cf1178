"""Each command once, in a row, with everything that it must leave behind: output, registry and calls. For tests of
process states and hosts that must make no difference."""

from private_host import HOOKS, PACKAGES, Result
from registry_text import CGI, CLI, INI, document, package, record

SBIN = "/opt/ovt/admin/sbin"
HOOK = f"{HOOKS}/10-hook"
PROBES = [f"{CGI} -n -v", f"{CLI} -n -v"]
DIRTY = f"{SBIN}/depotctl --set-dirty-flag"
ULIMIT = f"{SBIN}/quotagate --set 8192 --service s --no-restart"
ADD = ("--add", "--id", "x", "--path", CGI, "--clipath", CLI, "--phpini", INI, "--type", "fpm", "--service", "s",
       "--poold", "/p")
ADDED = record("x", clipath=CLI, type="fpm", service="s", poold="/p")
UPDATED = record("x", clipath=CLI, type="fpm", service="s", poold="/p", displayname="n")
PACKED = record("packed", displayname="name", system=True)
TABLE = (
    "id:  display name:  version:  type:              cgi-bin:          cli-bin:              php.ini:  system:"
    "  service:  pool.d:\n"
    "  x              n     8.1.2    fpm  /opt/ovt/php/php-cgi  /opt/ovt/php/php  /opt/ovt/php/php.ini         "
    "         s       /p\n")
STEPS = (
    (ADD, "x\n", document(ADDED), [*PROBES, f"{SBIN}/quelmrc s exists", ULIMIT, f"{HOOK} add", DIRTY]),
    (("--update", "--id", "x", "--phpini", INI, "--displayname", "n"), "", document(UPDATED),
     [*PROBES, f"{HOOK} update", DIRTY]),
    (("--list-json",), document(UPDATED), document(UPDATED), []),
    (("--list",), TABLE, document(UPDATED), []),
    (("--reread",), "", document(UPDATED, PACKED), [*PROBES, PROBES[0], ULIMIT, DIRTY]),
    (("--remove", "--id", "x"), "", document(PACKED), [f"{HOOK} remove", DIRTY]),
)


def furnish(host):
    """Lays what the commands need; for a host that has the recording tools."""
    host.php(CGI)
    host.php(CLI)
    host.write(INI)
    host.hook("10-hook")
    host.write(f"{PACKAGES}/p.conf", package(id="packed"))


def play(host, run, output_seen=True):
    """Each command succeeds when it is run by `run(*words)`, a Result; output_seen is False where standard output
    leads nowhere."""
    for words, out, registry, calls in STEPS:
        host.forget_calls()
        assert run(*words) == Result(0, out if output_seen else ""), words
        assert host.registry == registry, words
        assert host.calls == calls, words
