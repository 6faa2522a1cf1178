"""The registry document and package files as the formats have them, built
independently of the program.

record(...) takes every value as it stands in the file: the display name already percent-encoded, the strings
already escaped."""

CGI = "/opt/ovt/php/php-cgi"
CLI = "/opt/ovt/php/php"
INI = "/opt/ovt/php/php.ini"


def record(id, path=CGI, clipath="", phpini=INI, version="8.1.2", displayname="%24version", type="cgi",
           system=False, service="", poold=""):
    text = (
        "\n{\n"
        f'\t"id":"{id}",\n'
        f'\t"path":"{path}",\n'
        f'\t"clipath":"{clipath}",\n'
        f'\t"phpini":"{phpini}",\n'
        f'\t"version":"{version}",\n'
        f'\t"displayname":"{displayname}",\n'
        f'\t"type":"{type}",\n'
        f'\t"system":{"true" if system else "false"}'
    )
    if type == "fpm":
        text += f',\n\t"service":"{service}",\n\t"poold":"{poold}"'
    return text + "\n}"


def document(*records):
    return '{"php":[' + ",".join(records) + "\n]}\n"


def package(path=CGI, clipath="", phpini=INI, type="cgi", name="name", **more):
    """The text of a package handler file."""
    keys = {"displayname": name, "path": path, "clipath": clipath, "phpini": phpini, "type": type, **more}
    return "".join(f"{key}={value}\n" for key, value in keys.items())


EMPTY = '{"php":[\n]}\n'
EMPTY_TABLE = (
    "id:  display name:  version:  type:  cgi-bin:  cli-bin:  php.ini:  system:  service:  pool.d:\n"
)
