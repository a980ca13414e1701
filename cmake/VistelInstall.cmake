# `cmake --install <build> --prefix <prefix>` lays the host build out for programs that use the
# library, the way the device provides it with the platform's libraries:
#
#   include/VistelManager.h, VistelRecords.h   the public headers: C++17 and the standard library
#   lib/libc_vistel.so                         the library
#   lib/libqorthread.so, libsoloader.so,       the host stand-ins for the platform libraries the
#       libovrix.so, liborvlog.so              library links
#   lib/libvistel.so                           the host Vistel service, opened by the library
#   lib/cmake/libc_vistel/                     find_package(libc_vistel): libc_vistel::c_vistel
#   lib/pkgconfig/libc_vistel.pc               pkg-config libc_vistel
#   bin/vistel-replay                          the replay tool
#
# The installed libraries and the tool find each other through RUNPATH $ORIGIN, and Debian's
# liblog and libutils in their own folder, so a program linked against the prefix runs without
# LD_LIBRARY_PATH and the library opens the host service beside it. LD_LIBRARY_PATH is searched
# before RUNPATH, so it still chooses another service library, as the tests do. Every path is
# relative: the prefix can be moved as a whole.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(_vistel_installed_libraries c_vistel qorthread soloader ovrix orvlog vistel)
# The builds against libc++ link the stand-in of libbase's properties (device/properties).
if(TARGET hostproperties)
    list(APPEND _vistel_installed_libraries hostproperties)
endif()
set_target_properties(${_vistel_installed_libraries} PROPERTIES
    INSTALL_RPATH "$ORIGIN;${VISTEL_ANDROID_LIBDIR}")
install(TARGETS ${_vistel_installed_libraries} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/VistelManager.h
              ${PROJECT_SOURCE_DIR}/include/VistelRecords.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET vistel-replay)
    set_target_properties(vistel-replay PROPERTIES
        INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR};${VISTEL_ANDROID_LIBDIR}")
    install(TARGETS vistel-replay RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

set(_vistel_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/libc_vistel)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/libc_vistelConfig.cmake.in
    ${PROJECT_BINARY_DIR}/libc_vistelConfig.cmake
    INSTALL_DESTINATION ${_vistel_package_dir}
    PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/libc_vistelConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/libc_vistelConfig.cmake
              ${PROJECT_BINARY_DIR}/libc_vistelConfigVersion.cmake
        DESTINATION ${_vistel_package_dir})

# The .pc file finds the prefix from its own folder (pkg-config's pcfiledir).
file(RELATIVE_PATH VISTEL_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" VISTEL_PC_PREFIX "${VISTEL_PC_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/libc_vistel.pc.in ${PROJECT_BINARY_DIR}/libc_vistel.pc
               @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/libc_vistel.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
