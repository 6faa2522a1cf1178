"""registry.py COUNT: a registry file of that many handlers of all types, about 300 bytes each."""

import sys

TYPES = ("cgi", "fastcgi", "fpm")


def handler(number):
    kind = TYPES[number % len(TYPES)]
    members = [
        f'\t"id":"handler-{number:06d}"',
        f'\t"path":"/opt/php/{number}/bin/php-cgi"',
        f'\t"clipath":"/opt/php/{number}/bin/php"',
        f'\t"phpini":"/opt/php/{number}/etc/php.ini"',
        f'\t"version":"8.{number % 5}.{number % 40}"',
        f'\t"displayname":"PHP%20%24version%20%28custom%20{number}%29"',
        f'\t"type":"{kind}"',
        f'\t"system":{"true" if number % 2 else "false"}']
    if kind == "fpm":
        members += [f'\t"service":"php{number}-fpm"', f'\t"poold":"/opt/php/{number}/etc/pool.d"']
    return "\n{\n" + ",\n".join(members) + "\n}"


sys.stdout.write('{"php":[' + ",".join(handler(number) for number in range(int(sys.argv[1]))) + "\n]}\n")
