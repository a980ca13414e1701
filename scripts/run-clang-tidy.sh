#!/usr/bin/env bash
# Runs clang-tidy, with the checks of the .clang-tidy at the top of the tree, over every source of
# src/, device/, records/, replay/, dictionary/ and fuzz/input/ that a build compiles, and over the project's headers they
# include. Fails on any finding.
#
#   scripts/run-clang-tidy.sh <build-dir> [<sources>]      (TIDY_JOBS=2 files at a time)
#
# <sources> narrows the run to the files whose path in the tree starts with a match of it (a
# regular expression, e.g. 'src/core/' or 'device/.*Loader'); the default is those folders.
#
# The build folder gives the compile commands (compile_commands.json): `make tidy` passes the
# libc++ build's, so the sources are read as the device's compiler and C++ library see them.
set -euo pipefail

if [[ $# -lt 1 || $# -gt 2 ]]; then
    echo "usage: $0 <build-dir> [<sources>]" >&2
    exit 2
fi
src=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$(realpath "$1")
sources=${2:-(src|device|records|replay|dictionary|fuzz/input)/}
if [[ ! -f $build/compile_commands.json ]]; then
    echo "$0: no compile_commands.json in $build: configure it first" >&2
    exit 2
fi

# Both filters are regular expressions over absolute paths: anchor them at this checkout, wherever
# it is, and escape what the path may hold.
root=$(printf '%s' "$src" | sed 's/[][\.*^$()+?{}|]/\\&/g')
log=$build/clang-tidy.log
status=0
run-clang-tidy-14 -quiet -j "${TIDY_JOBS:-2}" -p "$build" \
        -header-filter="^$root/(include|src|device|records|replay|dictionary|fuzz/input)/" \
        "^$root/$sources" >"$log" 2>&1 || status=$?

# Without the colours, each file's command line, and the count of warnings clang-tidy met in system
# headers and other code outside the filters, which tell nothing: only the findings remain.
sed -i 's/\x1b\[[0-9;]*m//g' "$log"
grep -Ev '^(clang-tidy-14 .*|[0-9]+ warnings?( and [0-9]+ errors?)? generated\.)$' "$log" || true
files=$(grep -c '^clang-tidy-14 ' "$log" || true)
findings=$(grep -Ec '^/.+:[0-9]+:[0-9]+: (warning|error):' "$log" || true)
if [[ $files -eq 0 ]]; then
    echo "clang-tidy: no source of $build/compile_commands.json matches '$sources'" >&2
    exit 1
fi
if [[ $status -ne 0 || $findings -ne 0 ]]; then
    echo "clang-tidy: $files files, findings: $findings (log: $log)" >&2
    exit 1
fi
echo "clang-tidy: $files files, no findings"
