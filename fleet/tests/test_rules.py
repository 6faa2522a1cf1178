"""What the module decides from the listing alone, without a host."""

import pytest

from ansible_collections.ovt.tamrix.plugins.modules import php_handler

CGI = {"id": "a", "path": "/p", "clipath": "/c", "phpini": "/i", "version": "8.1.2", "displayname": "PHP 8.1.2",
       "type": "cgi", "system": False}
FPM = {**CGI, "type": "fpm", "service": "s", "poold": "/d"}
# As the listing has what is too long for it.
CUT = {**CGI, "version": None, "displayname": None, "path": None}


@pytest.mark.parametrize("wanted, listed, needed", [
    ({}, CGI, {}),
    ({"path": "/p", "displayname": "PHP $version"}, CGI, {}),
    ({"displayname": "PHP 8.1.2"}, CGI, {}),
    ({"displayname": "$version"}, CGI, {"displayname": "$version"}),
    ({"type": "fastcgi", "displayname": "PHP $version"}, CGI, {"type": "fastcgi"}),
    ({"path": "/q", "displayname": "PHP $version"}, CGI, {"path": "/q", "displayname": "PHP $version"}),
    ({"clipath": "", "displayname": "PHP $version"}, CGI, {"clipath": "", "displayname": "PHP $version"}),
    ({"phpini": "/j", "displayname": "PHP $version"}, CGI, {"phpini": "/j", "displayname": "PHP $version"}),
    ({"phpini": "/j"}, CGI, {"phpini": "/j"}),
    ({"service": "", "poold": ""}, CGI, {}),
    ({"service": "s", "poold": "/e"}, FPM, {"poold": "/e"}),
    ({"path": "", "displayname": "x$version"}, CUT, {"path": "", "displayname": "x$version"}),
    ({"clipath": "/c", "displayname": ""}, CUT, {"displayname": ""}),
])
def test_an_update_is_given_what_the_listing_does_not_show(wanted, listed, needed):
    assert php_handler.updates(wanted, listed) == needed


NEW = {"path": "/p", "phpini": "/i", "type": "cgi"}


@pytest.mark.parametrize("wanted, shown", [
    (NEW, {**CGI, "clipath": "", "version": None, "displayname": None}),
    ({**NEW, "displayname": "mine"}, {**CGI, "clipath": "", "version": None, "displayname": "mine"}),
    ({**NEW, "displayname": "", "clipath": "/c"}, {**CGI, "version": None, "displayname": ""}),
    ({**NEW, "displayname": "a $version"}, {**CGI, "clipath": "", "version": None, "displayname": None}),
    ({**NEW, "type": "fpm", "service": "s", "poold": "/d"},
     {**FPM, "clipath": "", "version": None, "displayname": None}),
])
def test_a_new_handler_is_foreseen_but_for_its_version(wanted, shown):
    assert php_handler.predicted_new("a", wanted) == shown


UNKNOWN = {"version": None, "displayname": None}


@pytest.mark.parametrize("listed, changes, shown", [
    (CGI, {"type": "fastcgi"}, {**CGI, "type": "fastcgi"}),
    (CGI, {"displayname": "$version!"}, {**CGI, "displayname": "8.1.2!"}),
    (CGI, {"path": "/q"}, {**CGI, "path": "/q", **UNKNOWN}),
    (CGI, {"clipath": ""}, {**CGI, "clipath": "", **UNKNOWN}),
    (CGI, {"phpini": ""}, {**CGI, "phpini": "", **UNKNOWN}),
    (CGI, {"path": "/q", "displayname": "mine"}, {**CGI, "path": "/q", "version": None, "displayname": "mine"}),
    (CGI, {"path": "/q", "displayname": "$version"}, {**CGI, "path": "/q", **UNKNOWN}),
    ({**CGI, "displayname": "mine"}, {"path": "/q"}, {**CGI, "path": "/q", "version": None, "displayname": "mine"}),
    (CUT, {"path": "/q"}, {**CUT, "path": "/q"}),
    (CUT, {"displayname": "x$version"}, {**CUT, "displayname": "x"}),
    (CGI, {"type": "fpm"}, {**FPM, "service": "", "poold": ""}),
    (CGI, {"type": "fpm", "service": "s", "poold": "/d"}, FPM),
    (FPM, {"type": "cgi"}, CGI),
    (FPM, {"service": "t"}, {**FPM, "service": "t"}),
])
def test_a_change_is_foreseen_where_it_can_be(listed, changes, shown):
    assert php_handler.predicted_change(listed, changes) == shown


class Refused(Exception):
    pass


class Module:
    """Of AnsibleModule what the rules use."""

    def __init__(self, **params):
        self.params = {**dict.fromkeys(php_handler.ARGUMENTS), **params}

    def fail_json(self, msg):
        raise Refused(msg)


@pytest.mark.parametrize("params, listed, wanted", [
    ({"displayname": ""}, CGI, {"displayname": ""}),
    ({**NEW, "service": "", "poold": ""}, None, NEW),
    ({"service": "", "type": "fpm"}, CGI, {"type": "fpm", "service": ""}),
    ({"service": "t"}, FPM, {"service": "t"}),
    ({**NEW, "type": "fpm", "service": "s", "poold": ""}, None, {**NEW, "type": "fpm", "service": "s", "poold": ""}),
])
def test_what_is_given_is_wanted(params, listed, wanted):
    assert php_handler.wanted_values(Module(id="a", **params), listed) == wanted


@pytest.mark.parametrize("params, listed, said", [
    ({"service": "s"}, CGI, "handler a: only type fpm has service"),
    ({"type": "cgi", "poold": "/d"}, FPM, "handler a: only type fpm has poold"),
    ({"service": "s"}, None, "handler a is not registered; to add it, give path, phpini, type"),
    ({"type": "fpm", "path": "/p"}, None, "handler a is not registered; to add it, give phpini, service, poold"),
])
def test_what_cannot_be_is_refused(params, listed, said):
    with pytest.raises(Refused, match=f"^{said}$"):
        php_handler.wanted_values(Module(id="a", **params), listed)


@pytest.mark.parametrize("name, value, flaw", [
    ("id", "", None), ("id", "x" * 4087, None), ("id", "x" * 4088, "is too long"), ("id", "\0", "holds a NUL"),
    ("path", "\t\n\b\f\r", None), ("path", "\x01", "holds a control character"), ("path", "\x7f", None),
    ("path", "\\" * 2043 + "x", None), ("path", "\\" * 2044, "is too long"), ("path", "\u00fc" * 2043, None),
    ("displayname", "\x01\x1f", None), ("displayname", "\0", "holds a NUL"), ("displayname", "aZ09-._~" * 510, None),
    ("displayname", "\x01" * 681, None), ("displayname", "\x01" * 682, "is too long"),
    ("displayname", "\u00fc" * 681, None), ("displayname", "\u00fc" * 681 + "xx", "is too long"),
])
def test_what_the_registry_cannot_hold(name, value, flaw):
    assert php_handler.flaw(name, value) == flaw
