"""What the shells complete. bash and zsh sit at a terminal, where a key of their line editors puts all completions
into the line; the line is then run, so that the words are those that tamrix would have got."""

import os
import pty
import re
import select
import signal
import time

from manual import ROOT
from private_host import SCRIPT, data

FOLDER = "/opt/ovt/completion"
WORDS = "/opt/ovt/words"
PATH = "/opt/ovt/admin/sbin:/usr/bin:/bin"
VARIABLES = "/opt/ovt/variables"
RECORDING = f"tamrix() {{ printf '%s\\n' \"$@\" >{WORDS}; typeset -p >{VARIABLES}; }}\n"
START = {
    "bash": (["/usr/bin/bash", "--rcfile", f"{FOLDER}/rc.bash", "-i"],
             "rc.bash", f"source {FOLDER}/tamrix.bash\nbind '\"\\C-xa\": insert-completions'\n" + RECORDING),
    "zsh": (["/usr/bin/zsh", "-i"],
            ".zshrc", f"fpath=({FOLDER} $fpath)\nautoload -U compinit\ncompinit -D -u\n"
            "zle -C all-matches complete-word _generic\nbindkey '^Xa' all-matches\nunsetopt zle_bracketed_paste\n"
            "zstyle ':completion:all-matches::::' completer _all_matches _complete\n"
            "zstyle ':completion:all-matches:*' insert yes\n" + RECORDING),
}


def install(host):
    for file in (ROOT / "packaging/completion").iterdir():
        host.write(f"{FOLDER}/{file.name}", file.read_bytes())
    for _, name, text in START.values():
        host.write(f"{FOLDER}/{name}", text + "PS1='ready''> '\n")


def _wait_for_prompt(terminal, output):
    deadline = time.monotonic() + 30
    while not re.search(rb"ready> (\x1b\[[0-9;?]*[A-Za-z])*$", output.rstrip(b"\0")):
        ready, _, _ = select.select([terminal], [], [], max(0, deadline - time.monotonic()))
        assert ready, output
        output += os.read(terminal, 65536)


def _at_terminal(host, shell, line):
    """The words that the completed line gives to tamrix."""
    if host.exists(WORDS):
        host.remove(WORDS)
    command = [str(SCRIPT), "exec", str(host.folder), "--", *START[shell][0]]
    environment = {"PATH": PATH, "HOME": "/tmp", "ZDOTDIR": FOLDER, "TERM": "dumb", "LC_ALL": "C.UTF-8"}
    process, terminal = pty.fork()
    if process == 0:
        os.execve(command[0], command, environment)
    try:
        _wait_for_prompt(terminal, b"")
        os.write(terminal, data(line) + b"\x18a\r")
        # The echoed line, then the next prompt.
        _wait_for_prompt(terminal, b"")
    finally:
        os.kill(process, signal.SIGKILL)
        os.waitpid(process, 0)
        os.close(terminal)
    return host.read(WORDS).splitlines()


def _fish(host, line):
    def run(script):
        result = host.run("/usr/bin/fish", "--no-config", "-c", script, env={"PATH": PATH, "HOME": "/tmp"})
        assert (result.status, result.err) == (0, "")
        return result.out

    quoted = line.replace("\\", "\\\\").replace("'", "\\'")
    offered = run(f"source {FOLDER}/tamrix.fish; complete --escape -C '{quoted}'; set --names >{VARIABLES}")
    # fish answers in its own quoting.
    return [run("echo -n " + text.split("\t")[0]) for text in offered.splitlines()]


def complete(host, shell, line):
    """The words that `shell` offers in place of the last, unfinished one of the line; none when it offers
    nothing."""
    unfinished = line.split(" ")[-1]
    if shell == "fish":
        return _fish(host, line)
    offered = _at_terminal(host, shell, line)[len(line.split()) - (2 if unfinished else 1):]
    return [] if offered == [unfinished] else offered


def variables(host):
    """The names of the shell's variables when the last line was run."""
    return set(re.findall(r"^(?:(?:declare|typeset|export)(?: -[-\w]+)* )?(\w+)", host.read(VARIABLES), re.MULTILINE))
