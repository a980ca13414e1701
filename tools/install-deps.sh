#!/usr/bin/env bash
# Installs the Debian packages the build needs, and nothing when they are all there.
#
#   tools/install-deps.sh [host|arm64|all]     (default: all)
#
# host:  compilers, AOSP liblog/libutils, libsafec, GoogleTest/Benchmark, sanitizer and fuzzer
#        runtimes, valgrind and the Android.bp tools.
# arm64: the aarch64 cross compiler, qemu-user and the arm64 builds of the libraries the library
#        and its tests link against, plus the arm64 7z.so (see installP7zipArm64 below).
#
# The check is a single dpkg-query, so a machine that is already set up pays a few milliseconds and
# no network; apt-get update runs only when something has to be installed.
set -euo pipefail

# Where the unpacked p7zip-full:arm64 lives; cmake/toolchain-aarch64.cmake reads the same variable.
VISTEL_ARM64_PREFIX=${VISTEL_ARM64_PREFIX:-/opt/vistel-arm64}

readonly kHostPackages=(
    android-liblog-dev android-libutils-dev libsafec-dev nlohmann-json3-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    cmake ninja-build make pkgconf g++ clang libclang-rt-14-dev valgrind
    blueprint-tools mini-soong
)
# Complete on its own, so `make test-arm64` works on a bare machine. nlohmann-json is
# header-only (Architecture: all): the host package serves both builds.
readonly kArm64Packages=(
    cmake ninja-build make g++-aarch64-linux-gnu qemu-user nlohmann-json3-dev
    android-liblog-dev:arm64 android-libutils-dev:arm64 libsafec-dev:arm64
    libgtest-dev:arm64 libgmock-dev:arm64
)

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

# Debian's arm64 libbacktrace (a dependency of libutils) needs the arm64 7z.so from p7zip-full,
# which cannot be installed next to the x86_64 p7zip-full. The arm64 package is only unpacked
# (not installed) into a private prefix; the toolchain file links with -rpath-link into it and the
# qemu runs put it on LD_LIBRARY_PATH. Once unpacked it is left alone (apt-cache alone costs a
# second); delete the prefix to refresh it. The stamp says which version is there.
installP7zipArm64() {
    local version stamp="$VISTEL_ARM64_PREFIX/p7zip-full.version"
    if [[ -f $VISTEL_ARM64_PREFIX/usr/lib/p7zip/7z.so && -f $stamp ]]; then
        return
    fi
    aptUpdate
    version=$(apt-cache policy p7zip-full:arm64 | awk '/Candidate:/ { print $2 }')
    echo "install-deps: unpacking p7zip-full:arm64 $version into $VISTEL_ARM64_PREFIX"
    local tmp
    tmp=$(mktemp -d)
    # apt-get download drops privileges to _apt, which must be able to write the folder.
    chmod 0777 "$tmp"
    (cd "$tmp" && apt-get -q download "p7zip-full:arm64=$version")
    "${SUDO[@]}" mkdir -p "$VISTEL_ARM64_PREFIX"
    "${SUDO[@]}" dpkg-deb -x "$tmp"/p7zip-full_*_arm64.deb "$VISTEL_ARM64_PREFIX"
    echo "$version" | "${SUDO[@]}" tee "$stamp" >/dev/null
    rm -rf "$tmp"
}

main() {
    local what=${1:-all}
    case $what in
        host)
            installPackages "${kHostPackages[@]}"
            ;;
        arm64)
            enableArm64
            installPackages "${kArm64Packages[@]}"
            installP7zipArm64
            ;;
        all)
            main host
            main arm64
            ;;
        *)
            echo "usage: $0 [host|arm64|all]" >&2
            exit 2
            ;;
    esac
}

main "$@"
