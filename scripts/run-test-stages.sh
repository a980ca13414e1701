#!/usr/bin/env bash
# Runs `make test`'s stages one after the other, stops at the first that fails, and ends with a
# table of the stages and the seconds each took (also written to <times-file>, a stage and its
# seconds a line, for the figures README quotes).
#
#   scripts/run-test-stages.sh <times-file> <stage>...
#
# MAKE, and the variables given to the calling make (BUILD_ROOT=...), reach each stage.
set -uo pipefail

timesFile=$1
shift
mkdir -p "$(dirname "$timesFile")"
: >"$timesFile"

failed=
total=0
for stage in "$@"; do
    start=$SECONDS
    "${MAKE:-make}" --no-print-directory "$stage"
    status=$?
    seconds=$((SECONDS - start))
    total=$((total + seconds))
    echo "$stage $seconds" >>"$timesFile"
    if [[ $status -ne 0 ]]; then
        failed=$stage
        break
    fi
done

echo
printf '%-16s %8s\n' stage seconds
while read -r stage seconds; do
    printf '%-16s %8d\n' "$stage" "$seconds"
done <"$timesFile"
printf '%-16s %8d  (%d min %02d s)\n' total "$total" $((total / 60)) $((total % 60))
if [[ -n $failed ]]; then
    echo "make test: $failed failed" >&2
    exit 1
fi
