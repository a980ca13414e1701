# Runs vistel-replay and compares its output with the expected file.
#
#   cmake -DTOOL=<vistel-replay> [-DARGS=<arg|arg|...>] [-DSCENARIO=<x.json>] -DEXPECTED=<file>
#         [-DEMULATOR=<runner|arg|...>] [-DSOURCE_DIR=<folder>] -P CompareGolden.cmake
#
# The tool runs as `TOOL ARGS SCENARIO`, in SOURCE_DIR when given (a SCENARIO relative to it is
# named in the output as given); ARGS defaults to --json. A differing output is kept in the
# folder the test runs in, never in SOURCE_DIR.
#
# With VISTEL_UPDATE_GOLDEN=1 in the environment it writes the expected file instead: run
#   VISTEL_UPDATE_GOLDEN=1 ctest -R replay_golden
# after a deliberate change of the library's output, and review the diff before committing.

string(REPLACE "|" ";" emulator "${EMULATOR}")
if(NOT DEFINED ARGS)
    set(ARGS "--json")
endif()
string(REPLACE "|" ";" args "${ARGS}")
if(NOT DEFINED SOURCE_DIR)
    set(SOURCE_DIR ${CMAKE_CURRENT_BINARY_DIR})
endif()
execute_process(COMMAND ${emulator} ${TOOL} ${args} ${SCENARIO} WORKING_DIRECTORY ${SOURCE_DIR}
                OUTPUT_VARIABLE actual ERROR_VARIABLE errors RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "vistel-replay exited with ${status}:\n${errors}")
endif()

if("$ENV{VISTEL_UPDATE_GOLDEN}" STREQUAL "1")
    file(WRITE ${EXPECTED} "${actual}")
    message(STATUS "wrote ${EXPECTED}")
    return()
endif()

file(READ ${EXPECTED} expected)
if(NOT actual STREQUAL expected)
    get_filename_component(name ${EXPECTED} NAME)
    set(actualFile ${CMAKE_CURRENT_BINARY_DIR}/${name}.actual)
    file(WRITE ${actualFile} "${actual}")
    execute_process(COMMAND diff -u ${EXPECTED} ${actualFile} OUTPUT_VARIABLE diff)
    message(FATAL_ERROR "output differs from ${EXPECTED} (actual in ${actualFile}):\n${diff}")
endif()
