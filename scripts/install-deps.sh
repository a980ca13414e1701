#!/usr/bin/env bash
# Installs the Debian packages the build needs, and nothing when they are all there.
#
#   scripts/install-deps.sh [--list] [demo|host|arm64|all]     (default: all)
#
# --list prints the group's packages, one a line, and installs nothing: what a machine without
#        any of them would get.
# demo:  what `make demo` builds and runs with: the host compiler, CMake and Ninja, AOSP
#        liblog/libutils, libsafec and nlohmann-json.
# host:  the demo's packages and GoogleTest/Benchmark and GoogleTest's sources,
#        sanitizer and fuzzer runtimes, valgrind, the Android.bp tools, libc++ (the device's C++
#        library), clang-tidy, the ABI tools (abi-dumper, abi-compliance-checker, and ctags,
#        with which abi-dumper finds the public headers' declarations) and the JSON Schema
#        validator the event schema stage runs (python3-jsonschema, for /usr/bin/python3).
# arm64: clang and the aarch64 binutils and start files (with gcc's cross compiler), qemu-user and
#        the arm64 builds of the libraries the library and its tests link against, plus the arm64
#        7z.so and libc++ (see unpackArm64 below).
#
# The check is a single dpkg-query, so a machine that is already set up pays a few milliseconds and
# no network; apt-get update runs only when something has to be installed.
set -euo pipefail

# Where the unpacked p7zip-full:arm64 lives; cmake/toolchain-aarch64.cmake reads the same variable.
VISTEL_ARM64_PREFIX=${VISTEL_ARM64_PREFIX:-/opt/vistel-arm64}

readonly kDemoPackages=(
    cmake ninja-build make g++ android-liblog-dev android-libutils-dev android-libcutils-dev
    android-libbase-dev libsafec-dev nlohmann-json3-dev
)
readonly kHostPackages=(
    "${kDemoPackages[@]}"
    libgtest-dev libgmock-dev googletest libbenchmark-dev
    pkgconf clang libclang-rt-14-dev valgrind
    blueprint-tools mini-soong
    libc++-14-dev libc++abi-14-dev clang-tidy-14
    abi-dumper abi-compliance-checker universal-ctags
    python3-jsonschema
)
# Complete on its own, so `make test-arm64` works on a bare machine. nlohmann-json, GoogleTest's
# sources (built against libc++ by the build itself) and libc++'s headers are the same for every
# architecture: the host packages serve both builds.
readonly kArm64Packages=(
    cmake ninja-build make clang g++-aarch64-linux-gnu qemu-user
    nlohmann-json3-dev googletest libc++-14-dev
    android-liblog-dev:arm64 android-libutils-dev:arm64 android-libcutils-dev:arm64
    android-libbase-dev:arm64 libsafec-dev:arm64
)
# Unpacked into $VISTEL_ARM64_PREFIX rather than installed: see unpackArm64.
readonly kArm64Libcxx=(libc++1-14 libc++-14-dev libc++abi1-14 libc++abi-14-dev libunwind-14
                       libunwind-14-dev)

SUDO=()
if [[ $(id -u) -ne 0 ]]; then
    SUDO=(sudo)
fi

# Other engineers may be running apt at the same time: wait for the dpkg lock, don't fail on it.
readonly kAptOptions=(-y -q -o DPkg::Lock::Timeout=600 --no-install-recommends)
aptUpdated=0

aptUpdate() {
    if [[ $aptUpdated -eq 0 ]]; then
        "${SUDO[@]}" apt-get -q -o DPkg::Lock::Timeout=600 update
        aptUpdated=1
    fi
}

# Prints the packages of "$@" that are not installed.
missingPackages() {
    local pkg status
    for pkg in "$@"; do
        status=$(dpkg-query -W -f='${db:Status-Abbrev}' "$pkg" 2>/dev/null || true)
        if [[ $status != ii* ]]; then
            echo "$pkg"
        fi
    done
}

installPackages() {
    local missing
    mapfile -t missing < <(missingPackages "$@")
    if [[ ${#missing[@]} -eq 0 ]]; then
        return
    fi
    echo "install-deps: installing ${missing[*]}"
    aptUpdate
    DEBIAN_FRONTEND=noninteractive "${SUDO[@]}" apt-get install "${kAptOptions[@]}" "${missing[@]}"
}

enableArm64() {
    if ! dpkg --print-foreign-architectures | grep -qx arm64; then
        echo "install-deps: enabling the arm64 architecture"
        "${SUDO[@]}" dpkg --add-architecture arm64
        aptUpdated=0
    fi
}

# Some arm64 packages cannot be installed next to their x86_64 twins, so they are only unpacked
# (not installed) into a private prefix:
#  - p7zip-full: Debian's arm64 libbacktrace (a dependency of libutils) needs its 7z.so, and the
#    package conflicts with the x86_64 p7zip-full;
#  - libc++, libc++abi and the libunwind they link: marked Multi-Arch: same, they also ship their
#    libraries in /usr/lib/llvm-14/lib, which the x86_64 packages own, so dpkg refuses them
#    ("trying to overwrite shared '/usr/lib/llvm-14/lib/libc++.so.1.0'").
# cmake/toolchain-aarch64.cmake links against the prefix and qemu's -L makes the tests find it first.
# Once unpacked a group is left alone (apt-cache alone costs a second); delete the prefix to refresh
# it. Its stamp says which versions are there.
#
#   unpackArm64 <group> <file the group provides, relative to the prefix> <package>...
unpackArm64() {
    local group=$1 probe=$2
    shift 2
    local stamp="$VISTEL_ARM64_PREFIX/$group.version"
    if [[ -e $VISTEL_ARM64_PREFIX/$probe && -f $stamp ]]; then
        return
    fi
    aptUpdate
    local pkg version pinned=()
    for pkg in "$@"; do
        version=$(apt-cache policy "$pkg:arm64" | awk '/Candidate:/ { print $2 }')
        pinned+=("$pkg:arm64=$version")
    done
    echo "install-deps: unpacking ${pinned[*]} into $VISTEL_ARM64_PREFIX"
    local tmp deb
    tmp=$(mktemp -d)
    # apt-get download drops privileges to _apt, which must be able to write the folder.
    chmod 0777 "$tmp"
    (cd "$tmp" && apt-get -q download "${pinned[@]}")
    "${SUDO[@]}" mkdir -p "$VISTEL_ARM64_PREFIX"
    for deb in "$tmp"/*.deb; do
        "${SUDO[@]}" dpkg-deb -x "$deb" "$VISTEL_ARM64_PREFIX"
    done
    printf '%s\n' "${pinned[@]}" | "${SUDO[@]}" tee "$stamp" >/dev/null
    rm -rf "$tmp"
}

# Prints the packages `main` installs for a group, one a line.
listPackages() {
    case $1 in
        demo) printf '%s\n' "${kDemoPackages[@]}" ;;
        host) printf '%s\n' "${kHostPackages[@]}" ;;
        arm64)
            printf '%s\n' "${kArm64Packages[@]}"
            local pkg
            for pkg in p7zip-full "${kArm64Libcxx[@]}"; do
                echo "$pkg:arm64 (unpacked into $VISTEL_ARM64_PREFIX)"
            done
            ;;
        all) listPackages host && listPackages arm64 ;;
        *) return 2 ;;
    esac
}

main() {
    if [[ ${1:-} == --list ]]; then
        listPackages "${2:-all}" || { echo "usage: $0 --list [demo|host|arm64|all]" >&2; exit 2; }
        return
    fi
    local what=${1:-all}
    case $what in
        demo)
            installPackages "${kDemoPackages[@]}"
            ;;
        host)
            installPackages "${kHostPackages[@]}"
            ;;
        arm64)
            enableArm64
            installPackages "${kArm64Packages[@]}"
            unpackArm64 p7zip-full usr/lib/p7zip/7z.so p7zip-full
            unpackArm64 libc++ usr/lib/aarch64-linux-gnu/libc++.so.1 "${kArm64Libcxx[@]}"
            ;;
        all)
            main host
            main arm64
            ;;
        *)
            echo "usage: $0 [--list] [demo|host|arm64|all]" >&2
            exit 2
            ;;
    esac
}

main "$@"
