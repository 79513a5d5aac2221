#!/usr/bin/env bash
# A short demonstration of what the library offers so far, run by `make demo`.
# Usage: Tools/zon/demo.sh path/to/zon
set -euo pipefail
zon=${1:?usage: Tools/zon/demo.sh path/to/zon}

# Prints a command as one would type it (the binary as "zon"), then runs it.
run() {
  local shown=() word
  for word in "$@"; do
    [ "$word" = "$zon" ] && word=zon
    [[ "$word" =~ [[:space:]\'\"\$] ]] && word="'$word'"
    shown+=("$word")
  done
  printf '\n$ %s\n' "${shown[*]}"
  "$@"
}

run "$zon" --version

# Strings count UTF-16 units; paths follow the platform rules (repeated slashes collapse, a
# trailing slash adds nothing, the root is "/").
run "$zon" string info 'héllo 😀'
run "$zon" string info '/Users//shared/Music/Library.xml/'

# Suite errors: code 0 is a real failure; a system code travels in the user info.
run "$zon" error show 4 --description 'Failed to get servicePort'
run "$zon" error show 6 --system-code -36
run "$zon" error show 0

# The Logger: standard error shows warnings and errors unless ZON_LOG_LEVEL says otherwise;
# ZON_LOG_FILE adds a rotating file.
log=$(mktemp)
trap 'rm -f "$log"' EXIT
run "$zon" log 2 'Identifier: demo already exists, will be destroyed'
run "$zon" log 5 'a detail line: hidden at the default level'
run env ZON_LOG_LEVEL=5 "$zon" log 5 'a detail line: shown with ZON_LOG_LEVEL=5' --category BufferStream --identifier networkcomm
run env ZON_LOG_STDERR=0 ZON_LOG_FILE="$log" "$zon" log 3 'IPC Service Started with name: demo'
run cat "$log"
