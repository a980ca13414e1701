# Debian's builds of the AOSP libraries the device provides: liblog, libutils (headers under
# /usr/include/android, libraries in an "android" folder of the target's multiarch directory)
# and libsafec for memcpy_s.
if(CMAKE_LIBRARY_ARCHITECTURE)
    set(VISTEL_MULTIARCH ${CMAKE_LIBRARY_ARCHITECTURE})
else()
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-multiarch
                    OUTPUT_VARIABLE VISTEL_MULTIARCH OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()
set(VISTEL_ANDROID_LIBDIR /usr/lib/${VISTEL_MULTIARCH}/android)

function(vistel_import_android_lib target file)
    set(path ${VISTEL_ANDROID_LIBDIR}/${file})
    if(NOT EXISTS ${path})
        message(FATAL_ERROR "${path} is missing: run 'make deps'")
    endif()
    add_library(${target} SHARED IMPORTED GLOBAL)
    set_target_properties(${target} PROPERTIES
        IMPORTED_LOCATION ${path}
        INTERFACE_INCLUDE_DIRECTORIES /usr/include/android)
endfunction()

vistel_import_android_lib(android::log liblog.so)
vistel_import_android_lib(android::utils libutils.so)
# libcutils for its trace markers (<cutils/trace.h>). libbase (android::base::GetProperty) is
# imported by device/properties, which knows which C++ library this build uses.
vistel_import_android_lib(android::cutils libcutils.so)
# Let executables and libraries find them at run time without an environment.
list(APPEND CMAKE_BUILD_RPATH ${VISTEL_ANDROID_LIBDIR})

find_library(VISTEL_SAFEC_LIB NAMES safec safec-3.7.1 safec-3.5.1 REQUIRED)
find_path(VISTEL_SAFEC_INCLUDE safeclib/safe_mem_lib.h REQUIRED)
add_library(safec::safec UNKNOWN IMPORTED GLOBAL)
set_target_properties(safec::safec PROPERTIES
    IMPORTED_LOCATION ${VISTEL_SAFEC_LIB}
    INTERFACE_INCLUDE_DIRECTORIES ${VISTEL_SAFEC_INCLUDE})

find_package(nlohmann_json 3 REQUIRED)
