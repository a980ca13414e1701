#!/usr/bin/env bash
# README's examples, run: the stage of `make test` that fails when README drifts from the code.
# README means README.md and the task pages in docs/ (docs/*.md), read in that order.
#
#   scripts/check-readme.sh <host build folder> <temporary folder>      (make test-readme)
#
# Works in <temporary folder>, which it empties when it is done, and reuses the host build:
#
# - A ```cpp or ```cmake block whose first line is a comment naming a file ("// leak-report.cpp:
#   ...", "# CMakeLists.txt, ...") is a file of README's sample project: it is written into
#   ~/<the first C++ file's name without .cpp>/, as README tells the reader to.
# - A ```console block is a shell session, run from the source tree with HOME in the temporary
#   folder: each "$ command" line (a trailing backslash continues it) runs in bash, in the folder
#   the block's commands have cd'ed to, and must exit with 0; the lines up to the next command
#   are its output, standard error included. An expected line "..." stands for any number of
#   lines, and one that ends in "..." for any line that starts with the rest, which is how the
#   replay tool cuts its lines too. Other blocks (```sh) are shown, not run.
# - The usage samples in the comments of the public headers (the indented lines of their first
#   comment) are compiled, as are README's C++ samples: with g++ against libstdc++, the host's,
#   and with clang against libc++, the device's.
#
# - The quick start's package counts must be those of scripts/install-deps.sh --list.
#
# README's commands name the host build build/default; they run against <host build folder>.
set -euo pipefail

if [[ $# -ne 2 ]]; then
    echo "usage: $0 <host build folder> <temporary folder>" >&2
    exit 2
fi
src=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$(cd "$1" && pwd)
work=$(mkdir -p "$2" && cd "$2" && pwd)
blocks=$work/blocks
export HOME=$work/home
mkdir -p "$blocks" "$HOME"
trap 'rm -rf "$blocks" "$HOME"' EXIT

failures=0
fail() {
    echo "check-readme: $*" >&2
    failures=$((failures + 1))
}

# ---- README's blocks ---------------------------------------------------------------------------

# Each fenced block into $blocks/<n>.<language>, numbered in README's order.
pages=("$src/README.md" "$src"/docs/*.md)
awk -v dir="$blocks" '
    /^```/ {
        if (file != "") { close(file); file = "" ; next }
        lang = substr($0, 4); sub(/[ \t].*/, "", lang)
        if (lang == "") lang = "text"
        file = sprintf("%s/%03d.%s", dir, ++n, lang)
        printf "" > file
        next
    }
    file != "" { print > file }
' "${pages[@]}"

sample=""
for block in "$blocks"/*.cpp "$blocks"/*.cmake; do
    [[ -e $block ]] || continue
    name=$(head -n 1 "$block" | sed -nE 's@^(//|#) ([A-Za-z0-9_.-]+\.(cpp|txt))[:,].*@\2@p')
    [[ -n $name ]] || continue
    if [[ -z $sample && $name == *.cpp ]]; then
        sample=$HOME/${name%.cpp}
    fi
    mkdir -p "${sample:-$HOME/sample}"
    cp "$block" "${sample:-$HOME/sample}/$name"
done
if [[ -z $sample ]] || ! ls "$sample"/*.cpp >/dev/null 2>&1; then
    fail "README has no C++ sample (a \`\`\`cpp block whose first line names its file)"
elif ! grep -qs 'find_package(libc_vistel' "$sample/CMakeLists.txt"; then
    fail "README's sample has no CMakeLists.txt with find_package(libc_vistel ...)"
fi
if ! grep -qs '^\$ .*pkg-config .*libc_vistel' "$blocks"/*.console; then
    fail "README builds no sample with pkg-config"
fi

# ---- The quick start's figures -----------------------------------------------------------------

# The packages each command installs on a bare machine, counted from the installer's own lists.
demoPackages=$("$src/scripts/install-deps.sh" --list demo | wc -l)
otherPackages=$(comm -13 <("$src/scripts/install-deps.sh" --list demo | sort -u) \
    <("$src/scripts/install-deps.sh" --list all | sort -u) | wc -l)
if ! grep -q "^make demo .* installs $demoPackages Debian packages " "$src/README.md"; then
    fail "README's quick start does not say make demo installs $demoPackages packages"
fi
if ! grep -q "^make test .* installs the other $otherPackages " "$src/README.md"; then
    fail "README's quick start does not say make test installs the other $otherPackages packages"
fi

# ---- C++ samples compile on the host and with the device's C++ library -------------------------

# The indented lines of a header's first comment, after the header itself and the sample's own
# includes, the rest inside a function.
headerSample() {
    echo "#include <${1##*/}>"
    awk '
        /^ \*\/$/ { exit }
        /^ \*     / { line = substr($0, 8); if (line ~ /^#include/) print line; else body = body line "\n" }
        END { print "#include <cstdio>\n#include <memory>\nvoid sample() {\n" body "}" }
    ' "$1"
}

compileEverywhere() {  # <label> <source>
    local compiler
    for compiler in "g++ -std=c++17" "clang++ -std=c++17 -stdlib=libc++"; do
        if ! $compiler -fsyntax-only -Wall -Wextra -Werror -Wno-unused-variable \
                -I"$src/include" -x c++ "$2" 2>"$work/compile.log"; then
            fail "$1 does not compile with $compiler:"
            cat "$work/compile.log" >&2
        fi
    done
    rm -f "$work/compile.log"
}

for header in "$src"/include/VistelManager.h "$src"/include/VistelRecords.h; do
    headerSample "$header" >"$work/header-sample.cpp"
    compileEverywhere "the usage sample of ${header#"$src"/}" "$work/header-sample.cpp"
    rm -f "$work/header-sample.cpp"
done
for cpp in "$sample"/*.cpp; do
    [[ -e $cpp ]] && compileEverywhere "README's ${cpp##*/}" "$cpp"
done

# ---- Console sessions ---------------------------------------------------------------------------

# 0 when the actual output (file $2) matches the expected lines (file $1), wildcards and all.
outputMatches() {
    awk '
        function strip(s) { sub(/[ \t]+$/, "", s); return s }
        function lineMatches(e, a) {
            if (length(e) > 3 && substr(e, length(e) - 2) == "...") {
                e = substr(e, 1, length(e) - 3)
                return substr(a, 1, length(e)) == e
            }
            return e == a
        }
        function matchFrom(i, j,    k, key, result) {
            key = i SUBSEP j
            if (key in memo) return memo[key]
            if (i > ne) result = j > na
            else if (e[i] == "...") {
                result = 0
                for (k = j; k <= na + 1 && !result; k++) result = matchFrom(i + 1, k)
            } else result = j <= na && lineMatches(e[i], a[j]) && matchFrom(i + 1, j + 1)
            memo[key] = result
            return result
        }
        FNR == NR { e[++ne] = strip($0); next }
        { a[++na] = strip($0) }
        END { exit matchFrom(1, 1) ? 0 : 1 }
    ' "$1" "$2"
}

# Runs one command of a session in the folder `$cwd`, which it updates when the command cd's.
runCommand() {  # <command> <expected output file>
    local command=$1 expected=$2 actual=$work/actual status
    command=${command//build\/default/$build}
    set +e
    # A shell of its own, without this script's options (README's pipes may end early).
    bash -c 'cd "$1" && eval "$2" && pwd >"$3"' bash "$cwd" "$command" "$work/cwd" \
        >"$actual" 2>&1 </dev/null
    status=$?
    set -e
    if [[ $status -ne 0 ]]; then
        fail "\`$1\` exited with $status:"
        sed 's/^/    /' "$actual" >&2
    elif ! outputMatches "$expected" "$actual"; then
        fail "\`$1\` printed what README does not show:"
        diff -u --label README "$expected" --label actual "$actual" | sed 's/^/    /' >&2 || true
    else
        cwd=$(cat "$work/cwd")
    fi
    rm -f "$actual" "$work/cwd"
}

for session in "$blocks"/*.console; do
    [[ -e $session ]] || continue
    cwd=$src
    command=""
    expected=$work/expected
    : >"$expected"
    while IFS= read -r line || [[ -n $line ]]; do
        if [[ -n $command && $command == *\\ ]]; then
            command="${command%\\}${line}"
        elif [[ $line == '$ '* ]]; then
            [[ -n $command ]] && runCommand "$command" "$expected"
            command=${line#'$ '}
            : >"$expected"
        else
            echo "$line" >>"$expected"
        fi
    done <"$session"
    [[ -n $command ]] && runCommand "$command" "$expected"
    rm -f "$expected"
done

rm -rf "$blocks" "$HOME"
if [[ $failures -ne 0 ]]; then
    echo "check-readme: $failures of README's examples no longer hold" >&2
    exit 1
fi
echo "check-readme: README's samples build and run, its examples print what it shows"
