#!/usr/bin/env bash
# Fails when a test stage left something behind: a file in the stage's private temporary folder
# (TMPDIR and TEST_TMPDIR point there while the stage runs), or an untracked file in the source
# tree outside the build folders. Removes the temporary folder when it is empty.
#
#   scripts/check-leftovers.sh <stage-tmp-dir>
set -euo pipefail

tmp=$1
src=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
status=0

if [[ -d $tmp ]] && [[ -n $(ls -A "$tmp") ]]; then
    echo "check-leftovers: the tests left these in $tmp:" >&2
    find "$tmp" -mindepth 1 | sed 's/^/  /' >&2
    status=1
fi
if git -C "$src" rev-parse --git-dir >/dev/null 2>&1; then
    untracked=$(git -C "$src" ls-files --others --exclude-standard)
    if [[ -n $untracked ]]; then
        echo "check-leftovers: untracked files in the source tree:" >&2
        echo "$untracked" | sed 's/^/  /' >&2
        status=1
    fi
fi
if [[ $status -eq 0 ]]; then
    rm -rf "$tmp"
fi
exit $status
