# Compares the dynamic symbols a shared library defines with a list of what it must and must not
# export (format: see exported-symbols.txt). Runs on the build host with the target's nm, so the
# same check covers native and cross builds.
#
#   cmake -DNM=<nm> -DLIBRARY=<lib.so> -DEXPECTED=<list> [-DREADELF=<readelf>]
#         -P CheckExportedSymbols.cmake
#
# With READELF, it also checks that the library has no thread-local storage.

cmake_minimum_required(VERSION 3.25)

foreach(var NM LIBRARY EXPECTED)
    if(NOT DEFINED ${var})
        message(FATAL_ERROR "${var} is not set")
    endif()
endforeach()

execute_process(COMMAND ${NM} -D --defined-only -C ${LIBRARY}
                OUTPUT_VARIABLE nmOutput RESULT_VARIABLE nmResult)
if(NOT nmResult EQUAL 0)
    message(FATAL_ERROR "${NM} failed on ${LIBRARY}")
endif()

# "<address> <type> <demangled name>"; the name may hold spaces and, in templates, semicolons,
# which would split a CMake list: replace them first.
string(REPLACE ";" "<semicolon>" nmOutput "${nmOutput}")
# libc++ (the device's C++ library) keeps its types in the inline namespace std::__1; the list
# names them as the source does, so one list serves libc++ and libstdc++ builds.
string(REPLACE "std::__1::" "std::" nmOutput "${nmOutput}")
string(REPLACE "\n" ";" nmLines "${nmOutput}")
set(strong)
set(weak)
foreach(line IN LISTS nmLines)
    if(line MATCHES "^[0-9a-f]+ ([A-Za-z]) (.+)$")
        set(type "${CMAKE_MATCH_1}")
        set(name "${CMAKE_MATCH_2}")
        # V, W (weak) and u (unique) are the vague-linkage definitions of templates and inline
        # functions; every other letter is a strong definition.
        if(type MATCHES "^[VWu]$")
            list(APPEND weak "${name}")
        else()
            list(APPEND strong "${name}")
        endif()
    endif()
endforeach()
list(REMOVE_DUPLICATES strong)  # constructor and destructor variants demangle alike

file(STRINGS ${EXPECTED} expectedLines)
set(mustExport)
set(forbidden)
foreach(line IN LISTS expectedLines)
    if(line MATCHES "^!(.+)$")
        list(APPEND forbidden "${CMAKE_MATCH_1}")
    elseif(NOT line MATCHES "^(#|$)")
        list(APPEND mustExport "${line}")
    endif()
endforeach()

set(problems)
foreach(symbol IN LISTS mustExport)
    if(NOT symbol IN_LIST strong)
        list(APPEND problems "missing: ${symbol}")
    endif()
endforeach()
foreach(symbol IN LISTS strong)
    if(NOT symbol IN_LIST mustExport)
        list(APPEND problems "not in the list: ${symbol}")
    endif()
endforeach()
foreach(symbol IN LISTS weak)
    # Vague-linkage definitions are tolerated only outside the library's own namespace.
    if(symbol MATCHES "^orv::")
        list(APPEND problems "not in the list (weak): ${symbol}")
    endif()
endforeach()
foreach(symbol IN LISTS strong weak)
    foreach(prefix IN LISTS forbidden)
        string(FIND "${symbol}" "${prefix}" at)
        if(at EQUAL 0)
            list(APPEND problems "must not be exported: ${symbol}")
        endif()
    endforeach()
endforeach()

# No thread-local storage: in a library the camera HAL dlopen()s, the C library allocates it on a
# thread's first use and aborts the process when that fails.
if(DEFINED READELF AND READELF)
    execute_process(COMMAND ${READELF} -lW ${LIBRARY} OUTPUT_VARIABLE segments)
    if(segments MATCHES "\n +TLS ")
        list(APPEND problems "has a thread-local storage segment (a thread_local variable)")
    endif()
endif()

list(LENGTH mustExport expectedCount)
if(problems)
    list(JOIN problems "\n  " text)
    message(FATAL_ERROR "${LIBRARY} exports differ from ${EXPECTED}:\n  ${text}")
endif()
message(STATUS "${LIBRARY}: exactly the ${expectedCount} listed symbols")
