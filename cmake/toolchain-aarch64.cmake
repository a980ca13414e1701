# Cross build for arm64 Linux with Debian's aarch64 toolchain, against Debian's arm64 (multiarch)
# builds of liblog, libutils, libsafec and GoogleTest. `tools/install-deps.sh arm64` installs them.
#
# The host root is the sysroot: Debian multiarch keeps arm64 libraries in /usr/lib/aarch64-linux-gnu
# next to the x86_64 ones, and CMAKE_LIBRARY_ARCHITECTURE makes every find_* look there first.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Holds the unpacked p7zip-full:arm64, whose 7z.so Debian's arm64 libbacktrace (pulled in by
# libutils) needs at link and run time; it cannot be installed next to the x86_64 p7zip-full.
# tools/install-deps.sh honours the same environment variable.
if(DEFINED ENV{VISTEL_ARM64_PREFIX})
    set(_vistelArm64PrefixDefault $ENV{VISTEL_ARM64_PREFIX})
else()
    set(_vistelArm64PrefixDefault /opt/vistel-arm64)
endif()
set(VISTEL_ARM64_PREFIX ${_vistelArm64PrefixDefault} CACHE PATH
    "Private prefix holding the unpacked p7zip-full:arm64 (usr/lib/p7zip/7z.so)")

set(_vistelArm64Libdir /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE})
# Only the linker needs telling where the libraries' own dependencies live; nothing here ends up
# in the binaries.
string(JOIN ":" _vistelRpathLink
    ${_vistelArm64Libdir}/android ${_vistelArm64Libdir} ${VISTEL_ARM64_PREFIX}/usr/lib/p7zip)
foreach(_kind EXE SHARED MODULE)
    set(CMAKE_${_kind}_LINKER_FLAGS_INIT "-Wl,-rpath-link,${_vistelRpathLink}")
endforeach()

# pkg-config, if anything asks it, must answer with the arm64 .pc files.
set(ENV{PKG_CONFIG_LIBDIR} "${_vistelArm64Libdir}/pkgconfig:/usr/share/pkgconfig")

# Every test runs under qemu-user. libbacktrace's RUNPATH names /usr/lib/p7zip, which on this host
# holds the x86_64 7z.so; qemu's -L prefix is tried first for every path the guest opens, and the
# prefix holds only the unpacked arm64 package, so /usr/lib/p7zip/7z.so becomes the arm64 one while
# everything else (loader, libc, libstdc++) comes from Debian's arm64 multiarch packages. No
# LD_LIBRARY_PATH is set, so tests remain free to set their own.
find_program(VISTEL_QEMU_AARCH64 qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${VISTEL_QEMU_AARCH64} -L ${VISTEL_ARM64_PREFIX})
