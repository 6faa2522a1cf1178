"""Long random sequences of commands against a small model of the registry. The seed is printed at the end
of a run, which is repeated with --seed N."""

import json
import random
import urllib.parse

import pytest

from private_host import PACKAGES
from registry_text import document, record

PHP = {f"/opt/ovt/php/{n}": f"{n}.{n % 3}" for n in (5, 7, 8, 9)}
INIS = ("", "/opt/ovt/php/ini", "/lost.ini")
IDS = ("a", "b", "c", "cgi", "fastcgi", "with blank", "q\"uote", "back\\slash", "\u00e4", "'", "$version", "x" * 300)
NAMES = ("", "$version", "PHP $version ($version)", "a \"quoted\" name", "\u00dcber %41", "tab\tnewline\n", "100%")
BUILT_IN = ("module", "cgi", "fastcgi")


class Model:
    """What the registry must hold: dictionaries by field, in order."""

    def __init__(self, host):
        self.host = host
        self.handlers = []
        self.packages = {}

    def find(self, id):
        return next((handler for handler in self.handlers if handler["id"] == id), None)

    def text(self):
        def stored(value):
            return value.replace("\\", "\\\\").replace('"', '\\"').replace("\t", "\\t").replace("\n", "\\n")

        return document(*(
            record(**{
                key: value if isinstance(value, bool)
                else urllib.parse.quote(value, safe="-._~") if key == "displayname" else stored(value)
                for key, value in handler.items()})
            for handler in self.handlers))

    def listed(self):
        shown = []
        for handler in self.handlers:
            one = {**handler, "displayname": handler["displayname"].replace("$version", handler["version"])}
            if handler["type"] != "fpm":
                del one["service"], one["poold"]
            shown.append(one)
        return shown

    def stored(self, handler):
        """What is kept of the values, with the version of the path."""
        pair = {} if handler["type"] == "fpm" else {"service": "", "poold": ""}
        return {**handler, "version": PHP[handler["path"]], **pair}

    def add(self, pick):
        new = {
            "id": pick.choice(IDS), "path": pick.choice(list(PHP)), "clipath": pick.choice(["", *PHP]),
            "phpini": pick.choice(INIS), "displayname": pick.choice(NAMES),
            "type": pick.choice(("cgi", "fastcgi", "fpm")), "service": "s", "poold": "/p", "system": False}
        words = [word for key, value in new.items() if key != "system" and (key != "clipath" or value)
                 for word in (f"--{key}", value)]
        if self.find(new["id"]):
            return ["--add", *words], 1
        self.handlers.append(self.stored(new))
        return ["--add", *words], 0

    def update(self, pick):
        id = pick.choice(IDS)
        values = {"displayname": NAMES, "path": list(PHP), "clipath": ["", *PHP], "phpini": INIS,
                  "type": ("cgi", "fastcgi", "fpm", "fpm"), "service": ("s", "t"), "poold": ("/p", "")}
        given = {key: pick.choice(values[key]) for key in values if pick.random() < 0.3}
        words = ["--update", "--id", id, *(word for key, value in given.items() for word in (f"--{key}", value))]
        handler = self.find(id)
        if handler is None or handler["system"]:
            return words, 1
        if ("service" in given or "poold" in given) and given.get("type", handler["type"]) != "fpm":
            return words, 1
        handler.update(given)
        if given.keys() & {"path", "clipath", "phpini"}:
            handler["version"] = PHP[handler["path"]]
        if handler["type"] != "fpm":
            handler.update(service="", poold="")
        return words, 0

    def remove(self, pick):
        id = pick.choice(IDS)
        handler = self.find(id)
        refused = handler is not None and handler["system"]
        if handler is not None and not refused:
            self.handlers.remove(handler)
        return ["--remove", "--id", id], int(refused)

    def reread(self, pick):
        """At most one package file, so that the order in the folder does not matter."""
        self.host.path(PACKAGES).joinpath("p.conf").unlink(missing_ok=True)
        self.handlers = [h for h in self.handlers if not h["system"] and h["id"] not in BUILT_IN]
        for handler in self.handlers:
            handler["version"] = PHP[handler["path"]]
        if pick.random() < 0.7:
            new = {
                "id": pick.choice(IDS[:4]), "path": pick.choice(list(PHP)), "clipath": "", "phpini": "",
                "displayname": pick.choice(("$version", "packaged")), "type": pick.choice(("cgi", "fpm")),
                "service": "s", "poold": "/p"}
            self.host.write(f"{PACKAGES}/p.conf", "".join(f"{key}={value}\n" for key, value in new.items()))
            self.package(new)
        return ["--reread"], 0

    def package(self, new):
        if self.find(new["id"]):
            return
        handler = {**self.stored(new), "system": True}
        self.handlers.append(handler)
        twin = new["id"] + "-dedicated"
        if new["type"] == "fpm" and handler["version"] >= "7.3" and not self.find(twin):
            self.handlers.append({**handler, "id": twin, "poold": ""})


@pytest.mark.parametrize("number", range(3))
def test_the_registry_follows_the_model(host, request, number):
    pick = random.Random(f"{request.config.getoption('--seed')}/{number}")
    for path, version in PHP.items():
        host.php(path, f"PHP {version} (cgi-fcgi)\n")
    host.write("/opt/ovt/php/ini")
    model = Model(host)
    for step in range(60):
        command = pick.choice((model.add, model.add, model.add, model.update, model.update, model.remove, model.reread))
        words, status = command(pick)
        result = host.tamrix(*words)
        assert result.status == status, (step, words, result)
        if model.handlers or host.registry is not None:
            assert host.registry == model.text(), (step, words)
        listed = host.tamrix("--list-json")
        assert (listed.status, listed.err) == (0, "")
        assert json.loads(listed.out)["php"] == model.listed(), (step, words)
