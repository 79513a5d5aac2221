#!/usr/bin/env bash
# Usage: Fuzz/run.sh DIR SECONDS
# Runs every fuzzer in DIR (executables named *_fuzzer) for SECONDS each, keeping its corpus in
# build/fuzz/corpus/NAME so that later runs start where earlier ones stopped; Fuzz/seeds/NAME, when
# there is one, holds hand-made inputs read alongside the corpus. Fails when a fuzzer
# finds a crash, leak, hang or sanitizer report; the reproducer lands in build/fuzz/artifacts/NAME/.
set -euo pipefail
dir=${1:?usage: Fuzz/run.sh DIR SECONDS}
seconds=${2:?usage: Fuzz/run.sh DIR SECONDS}
root=$(cd "$(dirname "$0")/.." && pwd)
corpora=$root/build/fuzz/corpus
artifacts=$root/build/fuzz/artifacts

found=0
failed=()
for fuzzer in "$dir"/*_fuzzer; do
  [ -f "$fuzzer" ] && [ -x "$fuzzer" ] || continue
  found=1
  name=$(basename "$fuzzer")
  mkdir -p "$corpora/$name" "$artifacts/$name"
  seeds=()
  [ -d "$root/Fuzz/seeds/$name" ] && seeds=("$root/Fuzz/seeds/$name")
  echo "== $name: ${seconds}s"
  if "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
      -artifact_prefix="$artifacts/$name/" "$corpora/$name" "${seeds[@]}" >"$artifacts/$name/log" 2>&1; then
    grep -E '^stat::number_of_executed_units|^stat::new_units_added' "$artifacts/$name/log" || true
  else
    tail -40 "$artifacts/$name/log"
    failed+=("$name")
  fi
done

[ "$found" -eq 1 ] || { echo "fuzz: no fuzzers in $dir" >&2; exit 1; }
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: failures in ${failed[*]} (reproducers in $artifacts)" >&2
  exit 1
fi
echo "fuzz: all fuzzers ran ${seconds}s without a failure"
