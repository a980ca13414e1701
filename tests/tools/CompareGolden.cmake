# Runs vistel-replay --json on one scenario and compares its output with the expected lines.
#
#   cmake -DTOOL=<vistel-replay> -DSCENARIO=<x.json> -DEXPECTED=<x.jsonl>
#         [-DEMULATOR=<runner|arg|...>] -P CompareGolden.cmake
#
# With VISTEL_UPDATE_GOLDEN=1 in the environment it writes the expected file instead: run
#   VISTEL_UPDATE_GOLDEN=1 ctest -R tools_golden
# after a deliberate change of the library's output, and review the diff before committing.

string(REPLACE "|" ";" emulator "${EMULATOR}")
execute_process(COMMAND ${emulator} ${TOOL} --json ${SCENARIO}
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
    get_filename_component(name ${EXPECTED} NAME_WE)
    set(actualFile ${CMAKE_CURRENT_BINARY_DIR}/${name}.actual.jsonl)
    file(WRITE ${actualFile} "${actual}")
    execute_process(COMMAND diff -u ${EXPECTED} ${actualFile} OUTPUT_VARIABLE diff)
    message(FATAL_ERROR "output differs from ${EXPECTED} (actual in ${actualFile}):\n${diff}")
endif()
