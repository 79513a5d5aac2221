#!/usr/bin/env bash
# Compares the zon tool's gzip, gunzip and md5 with the gzip and openssl commands on the same
# file, in one run, and prints the ratios (above 1: zon is faster). Each command runs RUNS times;
# the best wall time counts, so that a busy moment on a shared machine does not decide.
# Usage: Benchmarks/codec_commands.sh path/to/zon [SIZE_MB] [RUNS]
set -euo pipefail
zon=${1:?usage: Benchmarks/codec_commands.sh path/to/zon [SIZE_MB] [RUNS]}
size_mb=${2:-64}
runs=${3:-5}
for tool in gzip openssl python3; do
  command -v "$tool" >/dev/null || { echo "codec_commands.sh: $tool is needed" >&2; exit 1; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Text-like data that compresses about 3:1, as device payloads do.
python3 - "$work/payload" "$size_mb" <<'PY'
import random, sys
words = [b"device ", b"track ", b"album ", b"0x1F ", b"sync ", b"\n", b"playlist "]
rng = random.Random(1)
limit = int(sys.argv[2]) << 20
out = bytearray()
while len(out) < limit:
    if rng.random() < 0.125:
        out += bytes([rng.randrange(256)])
    else:
        out += rng.choice(words)
open(sys.argv[1], "wb").write(out[:limit])
PY
gzip -c "$work/payload" > "$work/payload.gz"

# The best of $runs wall times of a command, in seconds.
best() {
  local best_time="" start end elapsed
  for _ in $(seq "$runs"); do
    start=$(date +%s.%N)
    "$@" >/dev/null
    end=$(date +%s.%N)
    elapsed=$(awk -v a="$start" -v b="$end" 'BEGIN { print b - a }')
    if [ -z "$best_time" ] || awk -v a="$elapsed" -v b="$best_time" 'BEGIN { exit !(a < b) }'; then best_time=$elapsed; fi
  done
  echo "$best_time"
}

compare() {
  local label=$1 ours=$2 theirs=$3
  printf '%-34s zon %.3fs  command %.3fs  ratio %.3f\n' "$label" "$ours" "$theirs" "$(awk -v a="$theirs" -v b="$ours" 'BEGIN { print a / b }')"
}

echo "${size_mb} MB, best of ${runs} runs"
compare "gzip (zon gzip vs gzip -c)" \
  "$(best "$zon" gzip "$work/payload" "$work/zon.gz")" \
  "$(best sh -c "gzip -c '$work/payload' > '$work/cmd.gz'")"
compare "gunzip (zon gunzip vs gzip -dc)" \
  "$(best "$zon" gunzip "$work/payload.gz" "$work/zon.out")" \
  "$(best sh -c "gzip -dc '$work/payload.gz' > '$work/cmd.out'")"
compare "md5 (zon md5 vs openssl md5)" \
  "$(best "$zon" md5 "$work/payload")" \
  "$(best openssl md5 "$work/payload")"
cmp -s "$work/zon.out" "$work/payload" || { echo "codec_commands.sh: zon gunzip output differs" >&2; exit 1; }
gzip -dc "$work/zon.gz" | cmp -s - "$work/payload" || { echo "codec_commands.sh: gzip cannot read zon gzip output" >&2; exit 1; }
