#!/usr/bin/env bash
# Checks Android.bp off-device:
#  1. bpfmt has nothing to reformat;
#  2. the library and its test build only the 64-bit variant (compile_multilib "64", set on the
#     module or inherited from its defaults): mini-soong builds for the host and ignores the
#     property, so the recipe is read with mini-soong's own parser and checked here;
#  3. mini-soong's translation of it builds libc_vistel.so on this host, compiled the way the
#     device build compiles C++ (no exceptions unless Android.bp turns them on, no RTTI, warnings
#     as errors) and linked with no undefined symbol against the host stand-ins of the libraries
#     its shared_libs name, so a source or a library missing from Android.bp fails here;
#  4. that library exports exactly the symbols of tests/abi/exported-symbols.txt.
#
#   scripts/check-android-bp.sh <work-dir> <stand-in-lib-dir>...
#
# The stand-in folders are those of the CMake build (device/platform/*); ctest passes them.
set -euo pipefail

if [[ $# -lt 1 ]]; then
    echo "usage: $0 <work-dir> <stand-in-lib-dir>..." >&2
    exit 2
fi
src=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
mkdir -p "$1"
work=$(realpath "$1")
shift
libdirs=()
for libdir in "$@"; do
    libdirs+=("$(realpath "$libdir")")
done

formatDiff=$(bpfmt -d "$src/Android.bp")
if [[ -n $formatDiff ]]; then
    echo "Android.bp is not formatted as bpfmt prints it:" >&2
    echo "$formatDiff" >&2
    exit 1
fi

# Soong takes a property from the module, else from the defaults it names. The parser is run by
# the interpreter mini-soong runs on: another python3 earlier in PATH may not see its package.
read -ra soongPython <<<"$(sed -n '1s/^#! *//p' "$(command -v mini-soong)")"
"${soongPython[@]}" - "$src/Android.bp" <<'EOF'
import sys
from mini_soong.model import Module
from mini_soong.parser import soong

with open(sys.argv[1]) as recipe:
    modules = [m for m in soong.parseString(recipe.read()) if isinstance(m, Module)]
defaults = {m.arguments["name"]: m.arguments for m in modules if m.name == "cc_defaults"}
wrong = []
for module in modules:
    if module.name == "cc_defaults":
        continue
    inherited = [defaults.get(d, {}) for d in module.arguments.get("defaults", [])]
    setting = next((args["compile_multilib"] for args in [module.arguments] + inherited
                    if "compile_multilib" in args), None)
    if setting != "64":
        wrong.append(f'{module.name} "{module.arguments["name"]}": compile_multilib {setting!r}')
if wrong:
    print('Android.bp must build only the 64-bit variant (compile_multilib: "64"):',
          *wrong, sep="\n  ", file=sys.stderr)
    sys.exit(1)
EOF

# mini-soong reads the recipe and its sources relative to the current folder and builds there:
# give it a view of the tree so the outputs stay in the work folder.
for entry in Android.bp include src tests; do
    ln -sfn "$src/$entry" "$work/$entry"
done
cd "$work"
mini-soong Android.bp Makefile

cppflags=(-Werror -fno-exceptions -fno-rtti -I/usr/include/android)
for include in "$src"/device/platform/*/include; do
    cppflags+=("-I$include")
done
ldflags=(-L"/usr/lib/$(gcc -print-multiarch)/android" -Wl,--no-undefined
         -Wl,--version-script="$src/src/libc_vistel.map.txt")
for libdir in "${libdirs[@]}"; do
    ldflags+=("-L$libdir")
done

# The generated rule compiles everything in one g++ call; optimising it would only cost time.
# g++ rather than mini-soong's default cc, which would not link the C++ runtime. -B: the rule
# knows only the sources, not Android.bp itself.
DEB_BUILD_OPTIONS=noopt DEB_CFLAGS_MAINT_STRIP=-g make -B --no-print-directory build CC=g++ \
    CPPFLAGS="${cppflags[*]}" LDFLAGS="${ldflags[*]}"

cmake -DNM=nm -DLIBRARY="$work/libc_vistel.so" -DEXPECTED="$src/tests/abi/exported-symbols.txt" \
      -P "$src/tests/abi/CheckExportedSymbols.cmake"
