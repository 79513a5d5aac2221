#!/usr/bin/env bash
# Usage: install-and-consume.sh BUILD_DIR CONSUMER_SOURCE_DIR SCRATCH_DIR CXX [EXTRA_FLAGS [MORE_CXX...]]
# Installs BUILD_DIR into SCRATCH_DIR/prefix, then builds and runs the consumer with
# find_package(ZonCommon) and with `pkg-config --cflags --libs zoncommon`. The consumer includes
# every installed header and is built with the warnings client projects use as errors; each
# MORE_CXX compiler checks the same headers too.
set -euo pipefail
build=$1 consumer=$2 scratch=$3 cxx=$4 flags=${5:-}
shift $(($# < 5 ? $# : 5))
more_compilers=("$@")
strict="-Wall -Wextra -Wpedantic -Werror"

rm -rf "$scratch"
mkdir -p "$scratch"
prefix=$scratch/prefix
cmake --install "$build" --prefix "$prefix" >"$scratch/install.log"

# One unit that includes every installed header, so a new header is covered without listing it.
includedir=$prefix/include/ZonCommon
all_headers=$scratch/all-headers.cpp
(cd "$includedir" && find . -name '*.h' | sed 's|^\./||' | sort) \
  | sed 's|.*|#include <ZonCommon/&>|' >"$all_headers"
[ -s "$all_headers" ] || { echo "FAIL: no headers installed under $includedir"; exit 1; }
if grep -q 'Internal\.h>' "$all_headers"; then
  grep 'Internal\.h>' "$all_headers"
  echo "FAIL: internal headers are installed"
  exit 1
fi

# Each build must print its greeting and log its line (an error, so the default stderr sink shows it).
check() {
  local program=$1 output
  output=$("$program" 2>&1) || { echo "$output"; echo "FAIL: $program exited with an error"; exit 1; }
  echo "$output"
  grep -q '^consumer ok: héllo' <<<"$output" || { echo "FAIL: $program printed no greeting"; exit 1; }
  grep -q '<E> consumer/default .*consumer logged héllo 😀 (8 units)' <<<"$output" \
    || { echo "FAIL: $program logged no line"; exit 1; }
  grep -qx 'consumer bundle: org.zoncommon.ZonCommon KB' <<<"$output" \
    || { echo "FAIL: $program found no library bundle"; exit 1; }
  grep -qx "consumer bundle path: $prefix/share/ZonCommon" <<<"$output" \
    || { echo "FAIL: $program found the library bundle elsewhere than under $prefix/share"; exit 1; }
}

echo "== find_package(ZonCommon) with CMAKE_PREFIX_PATH=$prefix"
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$consumer" -B "$scratch/cmake" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER="$cxx" \
  "${launcher[@]}" -DCMAKE_CXX_FLAGS="$flags $strict" -DCMAKE_PREFIX_PATH="$prefix" \
  -DZON_ALL_HEADERS="$all_headers" >"$scratch/configure.log" \
  || { cat "$scratch/configure.log"; exit 1; }
cmake --build "$scratch/cmake" >"$scratch/build.log" || { cat "$scratch/build.log"; exit 1; }
check "$scratch/cmake/consumer"

echo "== pkg-config zoncommon"
pcdir=$(dirname "$(find "$prefix" -name zoncommon.pc -print -quit)")
export PKG_CONFIG_PATH=$pcdir
libdir=$(pkg-config --variable=libdir zoncommon)
# shellcheck disable=SC2046,SC2086
"$cxx" $flags $strict "$consumer/main.cpp" "$all_headers" -o "$scratch/consumer-pkg-config" \
  $(pkg-config --cflags --libs zoncommon) -Wl,-rpath,"$libdir"
check "$scratch/consumer-pkg-config"

# Imported CMake targets include their headers as system headers, which hides their warnings;
# pkg-config's -I does not, and neither does this check with the other compilers.
for other in "${more_compilers[@]}"; do
  echo "== every installed header with $other $strict"
  # shellcheck disable=SC2046,SC2086
  "$other" $strict -fsyntax-only "$all_headers" $(pkg-config --cflags zoncommon)
done
echo "install and consume: ok"
