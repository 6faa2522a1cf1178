# tamrix --list-json | jq -nr --arg type cgi -f by-type.jq
# One line per handler of the type: its identifier, a tab, its path. A listing
# that did not come is an error, because -n and input ask for one.
input.php[] | select(.type == $type) | [.id, .path] | @tsv
