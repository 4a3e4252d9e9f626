# Builds the API reference and fails on anything doxygen warns about. Arguments: DOXYGEN (may be empty or
# stale: doxygen is looked for again, so that installing it later needs no new configure) and DOXYFILE.
if(NOT DOXYGEN OR NOT EXISTS "${DOXYGEN}")
    find_program(doxygenNow doxygen)
    set(DOXYGEN "${doxygenNow}")
endif()
if(NOT DOXYGEN)
    message("Docs.Reference skipped: doxygen is not installed (Debian: doxygen)")
    return()
endif()

execute_process(COMMAND "${DOXYGEN}" "${DOXYFILE}" RESULT_VARIABLE result OUTPUT_VARIABLE output
                ERROR_VARIABLE warnings)
string(STRIP "${warnings}" warnings)
if(NOT result EQUAL 0 OR NOT warnings STREQUAL "")
    string(REGEX MATCHALL "\n" lines "\n${warnings}")
    list(LENGTH lines count)
    message(FATAL_ERROR "doxygen (exit ${result}) reported ${count} problem(s) in the API reference:\n${warnings}")
endif()
message("The API reference builds without warnings.")
