# Cross build for arm64 Linux the way the device builds: clang against libc++, here with Debian's
# aarch64 binutils and start files (gcc's cross toolchain) and Debian's arm64 (multiarch) builds of
# liblog, libutils and libsafec. GoogleTest is compiled from its sources (cmake/GoogleTest.cmake).
# `scripts/install-deps.sh arm64` installs all of it.
#
# The host root is the sysroot: Debian multiarch keeps arm64 libraries in /usr/lib/aarch64-linux-gnu
# next to the x86_64 ones, and CMAKE_LIBRARY_ARCHITECTURE makes every find_* look there first.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER clang)
set(CMAKE_C_COMPILER_TARGET ${CMAKE_LIBRARY_ARCHITECTURE})
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET ${CMAKE_LIBRARY_ARCHITECTURE})
set(CMAKE_CXX_FLAGS_INIT -stdlib=libc++)
# The target's binutils, for the exported-symbol check (nm) and the static libraries.
set(CMAKE_NM ${CMAKE_LIBRARY_ARCHITECTURE}-nm)
set(CMAKE_AR ${CMAKE_LIBRARY_ARCHITECTURE}-ar)
set(CMAKE_RANLIB ${CMAKE_LIBRARY_ARCHITECTURE}-ranlib)

# Holds what of arm64 cannot be installed next to its x86_64 twin and is only unpacked there (see
# scripts/install-deps.sh, which honours the same environment variable): p7zip-full, whose 7z.so
# Debian's arm64 libbacktrace (pulled in by libutils) needs at link and run time, and libc++ with
# libc++abi and libunwind, whose packages dpkg refuses beside the host's.
if(DEFINED ENV{VISTEL_ARM64_PREFIX})
    set(_vistelArm64PrefixDefault $ENV{VISTEL_ARM64_PREFIX})
else()
    set(_vistelArm64PrefixDefault /opt/vistel-arm64)
endif()
set(VISTEL_ARM64_PREFIX ${_vistelArm64PrefixDefault} CACHE PATH
    "Private prefix holding the unpacked arm64 p7zip-full (usr/lib/p7zip/7z.so) and libc++")

set(_vistelArm64Libdir /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE})
# Only the linker needs telling where libc++ and the libraries' own dependencies live; nothing here
# ends up in the binaries. libc++'s headers are the host's: they are the same for every target.
string(JOIN ":" _vistelRpathLink
    ${_vistelArm64Libdir}/android ${_vistelArm64Libdir} ${VISTEL_ARM64_PREFIX}/usr/lib/p7zip)
foreach(_kind EXE SHARED MODULE)
    set(CMAKE_${_kind}_LINKER_FLAGS_INIT
        "-L${VISTEL_ARM64_PREFIX}${_vistelArm64Libdir} -Wl,-rpath-link,${_vistelRpathLink}")
endforeach()

# pkg-config, if anything asks it, must answer with the arm64 .pc files.
set(ENV{PKG_CONFIG_LIBDIR} "${_vistelArm64Libdir}/pkgconfig:/usr/share/pkgconfig")

# Every test runs under qemu-user. libbacktrace's RUNPATH names /usr/lib/p7zip, which on this host
# holds the x86_64 7z.so; qemu's -L prefix is tried first for every path the guest opens, and the
# prefix holds only the unpacked arm64 packages, so /usr/lib/p7zip/7z.so becomes the arm64 one and
# /usr/lib/aarch64-linux-gnu/libc++.so.1 is found, while everything else (loader, libc, the
# libstdc++ Debian's libutils links) comes from Debian's arm64 multiarch packages. No
# LD_LIBRARY_PATH is set, so tests remain free to set their own.
find_program(VISTEL_QEMU_AARCH64 qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${VISTEL_QEMU_AARCH64} -L ${VISTEL_ARM64_PREFIX})
