#!/bin/sh
# by-type.sh TYPE: one line per handler of the type: its identifier, a tab, its
# path. Needs no JSON parser: there is one member on a line, in a fixed order.
# Values are printed as JSON escapes them.
set -eu
listing=$(tamrix --list-json)
printf '%s\n' "$listing" | LC_ALL=C awk -F '"' -v type="$1" '
    { value = $0; sub(/^\t"[a-z]*":"?/, "", value); sub(/"?,$/, "", value) }
    $2 == "id" { id = value }
    $2 == "path" { path = value }
    $2 == "type" && value == type { print id "\t" path }'
