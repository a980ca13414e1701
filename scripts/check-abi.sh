#!/usr/bin/env bash
# Compares the ABI of a build with the baseline checked in under abi/, or replaces the baseline.
#
#   scripts/check-abi.sh <build-dir>            any difference the checker reports fails
#   scripts/check-abi.sh --update <build-dir>   write the build's ABI as the new baseline
#
# Two dumps make the baseline (abi-dumper, from the build's debug information):
#   abi/libc_vistel.dump  what libc_vistel.so exports, as VistelManager.h declares it: functions,
#                         the manager's and the limiter's classes and vtables, and the types
#                         their signatures reach;
#   abi/records.dump      every record and record alias of VistelRecords.h, through
#                         libvistel_abi_records.so (abi/CMakeLists.txt), since the library's
#                         signatures reach them only as VistelEventBase.
# abi-compliance-checker compares each with the build's. Every problem and every warning fails,
# for binary and for source compatibility alike: a camera stack built against the old headers
# must keep working with the new library, and must still compile against the new headers. Added
# functions are neither. The reports of a failed check stay in <build-dir>/abi-reports/.
#
# The baseline is the device's: clang and libc++ (`make abi-baseline` uses the libc++ build). The
# type sizes that depend on the C library (pthread_mutex_t inside the manager) are x86_64 glibc's.
set -euo pipefail

update=0
if [[ ${1:-} == --update ]]; then
    update=1
    shift
fi
if [[ $# -ne 1 ]]; then
    echo "usage: $0 [--update] <build-dir>" >&2
    exit 2
fi
src=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$(realpath "$1")

# name, object, abi-dumper options
readonly kDumps=(
    "libc_vistel $build/src/libc_vistel.so -public-headers $src/include"
    "records $build/abi/libvistel_abi_records.so"
)

# The tools write their reports, logs and temporary files into the current folder and TMPDIR: a
# folder of the build's own, gone when this script ends.
work=$(mktemp -d "$build/abi-check.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
export TMPDIR=$work

failed=()
for entry in "${kDumps[@]}"; do
    read -r name object options <<<"$entry"
    if [[ ! -f $object ]]; then
        echo "$0: $object is missing: build $build first" >&2
        exit 2
    fi
    version=build
    [[ $update -eq 1 ]] && version=baseline
    # shellcheck disable=SC2086  # options are words
    if ! abi-dumper "$object" -o "$work/$name.dump" -lver "$version" -sort -quiet $options \
            >"$work/$name.dumper.log" 2>&1; then
        cat "$work/$name.dumper.log" >&2
        echo "$0: abi-dumper failed on $object" >&2
        exit 2
    fi
    if [[ $update -eq 1 ]]; then
        cp "$work/$name.dump" "$src/abi/$name.dump"
        echo "abi: wrote abi/$name.dump from $object"
        continue
    fi

    status=0
    abi-compliance-checker -l "$name" -old "$src/abi/$name.dump" -new "$work/$name.dump" \
        -report-path "$work/$name.html" >"$work/$name.checker.log" 2>&1 || status=$?
    # "Total binary compatibility problems: 0, warnings: 0", the same for source.
    totals=$(grep -E '^Total (binary|source) compatibility problems: ' "$work/$name.checker.log" ||
             true)
    if [[ $(wc -l <<<"$totals") -ne 2 || $status -gt 1 ]]; then
        cat "$work/$name.checker.log" >&2
        echo "$0: abi-compliance-checker failed on $name (status $status)" >&2
        exit 2
    fi
    echo "abi: $name against abi/$name.dump:"
    sed 's/^/  /' <<<"$totals"
    if grep -qE '(problems|warnings): [1-9]' <<<"$totals"; then
        mkdir -p "$build/abi-reports"
        cp "$work/$name.html" "$build/abi-reports/$name.html"
        echo "  report: $build/abi-reports/$name.html"
        failed+=("$name")
    fi
done

if [[ ${#failed[@]} -gt 0 ]]; then
    echo "abi: ${failed[*]} changed. If the change is meant, run 'make abi-baseline' and commit" \
         "abi/ with it." >&2
    exit 1
fi
if [[ $update -eq 0 ]]; then
    rm -rf "$build/abi-reports"
    echo "abi: compatible with the baseline (added functions are; 'make abi-baseline' records them)"
fi
