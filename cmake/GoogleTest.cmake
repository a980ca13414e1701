# GoogleTest and GoogleMock for the tests: GTest::gtest, GTest::gtest_main, GTest::gmock.
#
# Debian's libgtest/libgmock are built against libstdc++, whose std::string and containers are
# not libc++'s: a build against libc++ (the device's C++ library) compiles them from the sources
# libgtest-dev ships instead, with this build's compiler and flags. Targets the tests do not link
# are never built.
set(VISTEL_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH
    "GoogleTest's sources, compiled by builds against libc++")

if(NOT VISTEL_LIBCXX)
    find_package(GTest REQUIRED)
    return()
endif()

if(NOT EXISTS ${VISTEL_GTEST_SOURCE_DIR}/CMakeLists.txt)
    message(FATAL_ERROR "${VISTEL_GTEST_SOURCE_DIR} holds no GoogleTest sources: run 'make deps'")
endif()
set(INSTALL_GTEST OFF)
set(BUILD_GMOCK ON)
# Their code, built with their own warning options rather than this project's -Werror.
get_directory_property(_vistelCompileOptions COMPILE_OPTIONS)
set_directory_properties(PROPERTIES COMPILE_OPTIONS "")
add_subdirectory(${VISTEL_GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
set_directory_properties(PROPERTIES COMPILE_OPTIONS "${_vistelCompileOptions}")
