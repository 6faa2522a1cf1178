"""The commands, each with its options and one valid call, for every test that needs "all commands".

A new command gets its row in COMMANDS. tests/system/test_commands.py then names the files that do not know it yet."""

import dataclasses
import re

from private_host import HOOKS, PACKAGES, SBIN, Result, failed
from registry_text import CGI, CLI, INI, document, package, record

HOOK = f"{HOOKS}/10-hook"
PROBE, CLI_PROBE = f"{CGI} -n -v", f"{CLI} -n -v"
DIRTY = f"{SBIN}/depotctl --set-dirty-flag"
# The shortest call that adds a handler.
ADD = ("--add", "--path", CGI, "--phpini", INI, "--type", "cgi", "--id", "x")


@dataclasses.dataclass
class Command:
    """In order, the rows are one run: the example's words with their output, the registry that they leave behind
    and the calls that they make. The description is what an option error shows."""

    word: str
    example: tuple
    out: str
    registry: str
    calls: list
    description: str = ""
    tested_in: str = ""

    def __post_init__(self):
        self.words = (self.word, *self.example)
        self.options = set(re.findall(r"^  (--\S+)", self.description, re.MULTILINE))
        self.tested_in = self.tested_in or f"tests/system/test_{self.word[2:].replace('-', '_')}.py"

    def option_error(self, text):
        return failed(f"[Error] {text}\n\n{self.description}\n")


ULIMIT = f"{SBIN}/quotagate --set 8192 --service s --no-restart"
FPM = {"clipath": CLI, "type": "fpm", "service": "s", "poold": "/p"}
ADDED, UPDATED = record("x", **FPM), record("x", displayname="n", **FPM)
PACKED = record("packed", displayname="name", system=True)
SWITCH = "  --no-set-dirty-flag   do not call depotctl --set-dirty-flag\n"
FIELDS = (
    "  --id arg              handler id\n"
    "  --displayname arg     human readable handler name\n"
    "  --path arg            path to php-cgi\n"
    "  --clipath arg         path to php-cli\n"
    "  --phpini arg          path to php.ini\n"
    "  --type arg            php handler type : <{}>\n"
    f"{SWITCH}"
    "  --service arg         service name for fpm\n"
    "  --poold arg           path to pool.d for fpm\n")
TABLE = (
    "id:  display name:  version:  type:              cgi-bin:          cli-bin:              php.ini:  system:"
    "  service:  pool.d:\n"
    "  x              n     8.1.2    fpm  /opt/ovt/php/php-cgi  /opt/ovt/php/php  /opt/ovt/php/php.ini         "
    "         s       /p\n")
COMMANDS = {command.word: command for command in (
    Command("--add", ("--id", "x", "--path", CGI, "--clipath", CLI, "--phpini", INI, "--type", "fpm", "--service", "s",
                      "--poold", "/p"),
            "x\n", document(ADDED), [PROBE, CLI_PROBE, f"{SBIN}/quelmrc s exists", ULIMIT, f"{HOOK} add", DIRTY],
            "Add handler options:\n" + FIELDS.format("cgi|fastcgi|fpm")),
    Command("--update", ("--id", "x", "--phpini", INI, "--displayname", "n"), "", document(UPDATED),
            [PROBE, CLI_PROBE, f"{HOOK} update", DIRTY], "Update handler options:\n" + FIELDS.format("cgi|fastcgi")),
    Command("--list-json", (), document(UPDATED), document(UPDATED), [], tested_in="tests/system/test_list.py"),
    Command("--list", (), TABLE, document(UPDATED), []),
    Command("--reread", (), "", document(UPDATED, PACKED), [PROBE, CLI_PROBE, PROBE, ULIMIT, DIRTY],
            "Reread handlers options:\n" + SWITCH),
    Command("--remove", ("--id", "x"), "", document(PACKED), [f"{HOOK} remove", DIRTY],
            "Remove handler options:\n  --id arg              php handler identifier\n"
            "  --help                show help\n" + SWITCH))}
WITH_OPTIONS = [word for word, command in COMMANDS.items() if command.description]

USAGE = (
    "Usage: tamrix <COMMAND> <COMMAND OPTIONS...>\n"
    "\t--add [--displayname=<name>] --path=<path to php-cgi> [--clipath=<path to php-cli>]"
    " --phpini=<path to php.ini> --type=<cgi|fastcgi|fpm> [--id=<handler id>]"
    " [--service=name] [--poold=path]\n"
    "\t\tregister new php handler\n"
    "\t--remove --id=<handler id>\n"
    "\t\tremove existing handler\n"
    "\t--update --id=<handler id> [--displayname=<name>] [--path=<path to php-cgi>]"
    " [--clipath=<path to php-cli>] [--phpini=<path to php.ini>] [--type=<cgi|fastcgi|fpm>]"
    " [--service=name] [--poold=path]\n"
    "\t\tupdate existing handler\n"
    "\t--list-json\n"
    "\t\tlist handlers in json format\n"
    "\t--list\n"
    "\t\tlist handlers in human readable format\n"
    "\t--reread\n"
    "\t\treread handlers info\n"
    "\t--help\n"
    "\t\tshow this help\n"
    "\n"
    "\tCommands <add|remove|update> run scripts from /etc/ovt/php_configurator.d/"
    " with argument <add|remove|update>\n"
    "\t\tEnvironment variables available in scripts:\n"
    "\t\t$PHP_ID - handler id\n"
    "\t\t$PHP_PATH - path to php-cgi\n"
    "\t\t$PHP_INI - path to php.ini\n"
    "\t\t$PHP_CLI - path to php-cli\n"
    "\t\t$PHP_VERSION - version of php\n"
    "\t\t$PHP_TYPE - type of handler <module|cgi|fastcgi|fpm>\n"
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
    for command in COMMANDS.values():
        host.forget_calls()
        assert run(*command.words) == Result(0, command.out if output_seen else ""), command.words
        assert host.registry == command.registry, command.words
        assert host.calls == command.calls, command.words
