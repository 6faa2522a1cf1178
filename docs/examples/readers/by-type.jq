# tamrix --list-json | jq -r --arg type cgi -f by-type.jq
# One line per handler of the type: its identifier, a tab, its path.
.php[] | select(.type == $type) | [.id, .path] | @tsv
