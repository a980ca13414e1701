#!/usr/bin/env bash
# Measures the stripped arm64 libc_vistel.so and fails when the device integration page states
# other sizes: the file on disk and its .text section, each within 5 % of the page's figure.
#
#   scripts/check-library-size.sh <arm64 build folder>      (make test-size, a stage of make test)
#
# The page states them as "<N> bytes on disk" and "<N> bytes of code"; a copy of the library is
# stripped in TMPDIR and removed.
set -euo pipefail

if [[ $# -ne 1 ]]; then
    echo "usage: $0 <arm64 build folder>" >&2
    exit 2
fi
src=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
page=$src/docs/device-integration.md
readonly kTolerancePercent=5

stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
aarch64-linux-gnu-strip -o "$stripped" "$1/src/libc_vistel.so"
onDisk=$(stat -c %s "$stripped")
text=$(aarch64-linux-gnu-size -A "$stripped" | awk '$1 == ".text" { print $2 }')
echo "stripped arm64 libc_vistel.so: $onDisk bytes on disk, $text bytes of .text"

status=0
check() {  # <what> <measured> <the page's phrase after the number>
    local stated
    stated=$(tr '\n' ' ' <"$page" | { grep -oE "[0-9][0-9,]* $3" || true; } | head -n 1 \
        | tr -d ',' | cut -d' ' -f1)
    if [[ -z $stated ]]; then
        echo "check-library-size: ${page#"$src"/} states no \"<N> $3\"" >&2
        status=1
    elif ((100 * (${2} > stated ? ${2} - stated : stated - ${2}) > kTolerancePercent * stated)); then
        echo "check-library-size: $1 is $2 bytes, ${page#"$src"/} says $stated" \
             "(more than $kTolerancePercent % apart)" >&2
        status=1
    fi
}
check "the file on disk" "$onDisk" "bytes on disk"
check ".text" "$text" "bytes of code"
exit $status
