#!/usr/bin/env bash
# Runs every benchmark program in DIR (an executable file whose name ends in Benchmarks) and prints
# its output. Extra arguments go to each program, e.g. --benchmark_min_time=0.1.
set -euo pipefail
dir=${1:?usage: Benchmarks/run.sh DIR [benchmark options...]}
shift
found=0
status=0
for program in "$dir"/*Benchmarks; do
  [ -f "$program" ] && [ -x "$program" ] || continue
  found=1
  echo "== $(basename "$program")"
  "$program" "$@" || { echo "run.sh: $(basename "$program") failed" >&2; status=1; }
  echo
done
[ "$found" -eq 1 ] || { echo "run.sh: no benchmark programs in $dir" >&2; exit 1; }
exit "$status"
