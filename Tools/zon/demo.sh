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

# URLs: query arguments escaped ("+" and "/" too), and URL text joined with one "/", "?" or "&".
run "$zon" url append 'http://example.com/search?old=1#top' 'q=a b+c' 'page=2'
run "$zon" url join 'http://example.com/list?page=2' '?sort=name'

# Byte sizes on base 1024 with the units' names from the library's string table: one fraction
# digit grouped as the locale groups, or a whole number truncated, with no grouping.
run "$zon" size 1536 --locale en_US
run "$zon" size 1536 --locale de_DE
run "$zon" size 1048575 --locale en_US
run "$zon" size 1048575 --locale de_DE
run "$zon" size 1048575 --whole

# Versions: parts stay text, and the comparison reads each component's digits (1.10 is after
# 1.9, beta3 counts as 3); a range's exclusions win over its inclusions, which win over its bounds.
run "$zon" version compare 1.10 1.9
run "$zon" version range --min 5.0 --max 6.0.0.999 --include 4.6.1 --exclude 5.0.0.300,5.0.0.301 4.6.1.0

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

# Codecs: hex both ways, MD5, gzip that the gzip command reads, TLE fields and the JSON parser
# (numbers stay text, commas are optional, "\u" is not decoded).
work=$(mktemp -d)
trap 'rm -rf "$work" "$log"' EXIT
run "$zon" hex encode 'TLE'
run "$zon" hex decode '54 4C 45 0a'
printf 'handheld sync payload\n%.0s' {1..50} > "$work/payload"
run "$zon" md5 "$work/payload"
run "$zon" gzip "$work/payload" "$work/payload.gz"
run sh -c "gzip -dc '$work/payload.gz' | head -2"
run "$zon" tle encode --type 5 --string 'abc' --null-terminate
run "$zon" tle encode --type 5 --string 'Ω'
run "$zon" tle encode --type 7 --int 4660
run "$zon" tle decode-length 05
printf '{"id": 12, "tags": ["a" "b",], "name": "caf\\u00e9"}' > "$work/record.json"
run "$zon" json "$work/record.json"

# Two processes talking through the IPC service: a server in the background, a client per
# message. Each side prints its delegate callbacks as they happen.
ipcdir=$(mktemp -d)
trap 'rm -rf "$work" "$log" "$ipcdir"' EXIT
saved_runtime_dir=${XDG_RUNTIME_DIR-}
export XDG_RUNTIME_DIR="$ipcdir"
printf '\n$ zon ipc serve demo-server &\n'
"$zon" ipc serve demo-server &
server=$!
for _ in $(seq 50); do [ -S "$ipcdir"/zon-ports/demo-server-*.sock ] 2>/dev/null && break; sleep 0.1; done
cat > "$ipcdir/song.plist" <<'PLIST'
<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">
<dict>
	<key>title</key>
	<string>Blue in Green</string>
	<key>seconds</key>
	<integer>337</integer>
</dict>
</plist>
PLIST
printf 'four bytes' > "$ipcdir/payload.bin"
run "$zon" ipc send demo-server --string 'hello from the client'
run "$zon" ipc send demo-server --dict "$ipcdir/song.plist"
run "$zon" ipc send demo-server --data "$ipcdir/payload.bin"
run "$zon" ipc send demo-server --string 'nobody waits for this' --oneway
run "$zon" ipc send demo-server --dict "$ipcdir/song.plist" --async
run "$zon" ipc send nobody-listens --string 'lost'  || true
sleep 0.2
printf '\n$ kill -INT %%1\n'
kill -INT "$server"
wait "$server"
rm -rf "$ipcdir"
if [ -n "$saved_runtime_dir" ]; then export XDG_RUNTIME_DIR="$saved_runtime_dir"; else unset XDG_RUNTIME_DIR; fi

# Property lists: read in either format, written as XML; bad input is refused with its position.
plist_dir=$(mktemp -d)
trap 'rm -rf "$log" "$plist_dir"' EXIT
python3 -c 'import plistlib, datetime, sys
sys.stdout.buffer.write(plistlib.dumps({"name": "media server", "port": 4, "ratio": 0.25,
    "since": datetime.datetime(2024, 2, 29, 12, 0), "tags": ["a", "b"], "blob": b"\x00\x01\x02"},
    fmt=plistlib.FMT_BINARY))' >"$plist_dir/settings.bplist"
run "$zon" plist convert "$plist_dir/settings.bplist" "$plist_dir/settings.plist"
run cat "$plist_dir/settings.plist"
printf '<plist version="1.0">\n<string>fish &amp; chips &bogus;</string>\n</plist>\n' >"$plist_dir/bad.plist"
run "$zon" plist convert "$plist_dir/bad.plist" - || true

# IPC packets: a type word in host order, then the payload; unknown types keep the whole frame.
run "$zon" packet encode --string 'hello, peer'
printf '\n$ zon packet decode "$(zon packet encode --dict settings.plist | tail -1)"\n'
"$zon" packet decode "$("$zon" packet encode --dict "$plist_dir/settings.plist" | tail -1)"
run "$zon" packet decode 0900000068656c6c6f
run "$zon" packet decode 2a000000ff
run "$zon" packet decode 010203

# Model objects: observers called on their own threads, and a store written by two threads whose
# main-thread mirror and observers follow when the main loop runs.
run "$zon" observe bench --observers 8 --threads 2 --broadcasts 1000
run "$zon" store demo 2>&1

# A model object whose properties a table declares: generated accessors, a default for nil, the
# type check, hooks around a set, a container, and a copy that runs no hooks.
run "$zon" dynamic demo

# A menu built with the suite's five menu operations: submenu items tagged -1 after they are added
# (two with one title stay distinct), action items with their tags, separators, and an add under
# an item without a submenu that answers the item and adds nothing.
run "$zon" menu demo

# Processes from /proc: the tool finds itself (its path from the exe link, its arguments); a child
# is stopped, resumed and terminated through a process descriptor, which cannot reach a process
# that took over a recycled pid.
run "$zon" ps --name zon
sleep 60 &
child=$!
run "$zon" signal "$child" suspend
run "$zon" ps --pid "$child"
run "$zon" signal "$child" resume
run "$zon" signal "$child" terminate
wait "$child" || echo "(the child ended with status $?: terminated by SIGTERM)"

# The suite's tracked products. Its desktop application is looked for by bundle identifier (a
# desktop entry "<id>.desktop" in the XDG data folders, then X.app folders in ~/Applications,
# /Applications and /opt), then by name, else the default path is taken. A planted entry whose
# program sits at X.app/Contents/MacOS/X answers the X.app.
run "$zon" apps
apps_dir=$(mktemp -d)
app_program="$apps_dir/Pallidor Station.app/Contents/MacOS/Pallidor Station"
mkdir -p "$(dirname "$app_program")" "$apps_dir/data/applications"
printf '#!/bin/sh\n' >"$app_program" && chmod +x "$app_program"
printf '[Desktop Entry]\nType=Application\nName=Pallidor Station\nExec="%s" %%U\n' "$app_program" \
  >"$apps_dir/data/applications/org.zoncommon.PallidorStation.desktop"
XDG_DATA_HOME="$apps_dir/data" run "$zon" apps find "Pallidor Station.app" org.zoncommon.PallidorStation /nowhere
rm -rf "$apps_dir"

# The machine facts: the ID is the primary interface's address (a device-backed Ethernet
# interface, never a virtual one) under the user ID, which a prefix byte is merged into by OR.
run "$zon" system --prefix 128

# The suite's exceptions: a constructor drops the error code as it always has; a crash under the
# exception handler logs its report with symbolised frames, then the process dies of its signal.
run "$zon" exception raise --class TXZonBasePipeClosedException --reason x --type 3 --errno 9
(ulimit -c 0; run "$zon" crash segv) || echo "(exit status $?: killed by SIGSEGV; no core file in the demo)"

# Windows locale codes: the table's identifiers carry NUL characters (shown as \0); the first row
# of a language answers for it.
run "$zon" locale code 0x0409
run "$zon" locale id de_AT
run "$zon" locale id no

# The last lines of a log, read backwards in 1 KiB blocks; each line found by its line feed keeps
# a U+0000 (--show-nul marks it). Random numbers are random()'s, so a seed repeats them; the
# suite's shuffle never moves the first item.
tail_dir=$(mktemp -d)
trap 'rm -rf "$log" "$plist_dir" "$tail_dir"' EXIT
for i in $(seq 1 5000); do printf '2026-11-24 00:%02d:%02d sync[%d] device %d: %d tracks\n' \
  $((i / 60 % 60)) $((i % 60)) $((i % 7)) $((i % 3)) $((i * 37 % 1000)); done >"$tail_dir/sync.log"
run "$zon" tail -n 3 "$tail_dir/sync.log"
run "$zon" tail -n 2 --show-nul "$tail_dir/sync.log"
run "$zon" random below 6 --count 5 --seed 42
run "$zon" shuffle first second third fourth fifth --seed 7

# Streams: the generated log pumped through a 1 KiB buffer stream (events, chunks, rate), then read
# through an input stream whose progress delegate hears every read's count, the final 0 included.
run "$zon" stream pump "$tail_dir/sync.log" --buffer 1024
run "$zon" stream read "$tail_dir/sync.log" --chunk 65536
# A file monitor: an editor's save (a temp file renamed over the watched one) is seen through the
# folder, and the burst of events it makes is one notification when the 3-second window ends.
watch_dir=$(mktemp -d)
trap 'rm -rf "$log" "$plist_dir" "$tail_dir" "$watch_dir"' EXIT
echo "draft" >"$watch_dir/notes.txt"
run "$zon" fs watch "$watch_dir/notes.txt" --verbose --count 1 --seconds 10 &
watcher=$!
sleep 0.5
echo "$ (save notes.txt: write notes.txt.swp, rename it over notes.txt) at $(date +%T.%3N)"
echo "final" >"$watch_dir/notes.txt.swp" && mv "$watch_dir/notes.txt.swp" "$watch_dir/notes.txt"
wait "$watcher"

# Aliases: an alias file to a document records its volume, path and inode; after the document is
# renamed in its folder the path fails and the search by file ID finds it. The alias file carries
# the is-alias flag and the document's type and creator.
alias_dir=$(mktemp -d)
trap 'rm -rf "$log" "$plist_dir" "$tail_dir" "$alias_dir"' EXIT
mkdir -p "$alias_dir/Documents"
printf 'draft\n' >"$alias_dir/Documents/notes.txt"
run "$zon" fs alias write "$alias_dir/Documents/notes.txt" "$alias_dir/notes alias"
run "$zon" fs alias resolve "$alias_dir/notes alias"
mv "$alias_dir/Documents/notes.txt" "$alias_dir/Documents/notes (old).txt"
run "$zon" fs alias resolve "$alias_dir/notes alias"
run "$zon" fs volume "$alias_dir"

# Images: a generated 200 x 100 picture of coloured columns previewed twice (made in-process, then
# found in a private thumbnail cache), turned into the 109-pixel desktop thumbnail (the square
# filled, the sides cut), and put as album art into a generated MP3 by mutagen, then extracted.
image_dir=$(mktemp -d)
trap 'rm -rf "$log" "$plist_dir" "$tail_dir" "$alias_dir" "$image_dir"' EXIT
/usr/bin/python3 - "$image_dir/columns.png" <<'PY'
import struct, sys, zlib
width, height = 200, 100
colours = [(255, 0, 0), (0, 255, 0), (0, 0, 255), (255, 255, 0)]
rows = b"".join(b"\0" + b"".join(bytes(colours[x * 4 // width]) for x in range(width)) for _ in range(height))
chunk = lambda kind, data: struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
open(sys.argv[1], "wb").write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
                              + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))
PY
run env XDG_CACHE_HOME="$image_dir/cache" "$zon" image preview "$image_dir/columns.png" "$image_dir/preview.png" --size 128
run env XDG_CACHE_HOME="$image_dir/cache" "$zon" image preview "$image_dir/columns.png" "$image_dir/preview.png" --size 128
run env XDG_CACHE_HOME="$image_dir/cache" "$zon" image desktop "$image_dir/columns.png" "$image_dir/desktop.png"
if /usr/bin/python3 -c 'import mutagen' 2>/dev/null; then
  /usr/bin/python3 "$(dirname "$0")/../../Tests/platform/graphics/make_tagged_audio.py" mp3 "$image_dir/song.mp3" "$image_dir/columns.png"
  run env XDG_CACHE_HOME="$image_dir/cache" "$zon" image albumart "$image_dir/song.mp3" "$image_dir/cover.png"
fi
