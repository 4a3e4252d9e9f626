# cmake -DTESTHOST=<path> -DCONTRACTHOST=<path> -DMODULE=<path> -P CompareHosts.cmake
# Runs every case of MODULE under both hosts; their "<passed> passed, <failed> failed" lines must agree, with
# nothing failed.
function(run_host name)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE result)
    if(NOT output MATCHES "([0-9]+) passed, ([0-9]+) failed")
        message(FATAL_ERROR "${name} printed no summary (exit ${result}):\n${output}")
    endif()
    set(${name}_summary "${CMAKE_MATCH_0}" PARENT_SCOPE)
    set(${name}_failed "${CMAKE_MATCH_2}" PARENT_SCOPE)
    set(${name}_output "${output}" PARENT_SCOPE)
endfunction()

run_host(testhost ${TESTHOST} --tag all ${MODULE})
run_host(contracthost ${CONTRACTHOST} ${MODULE})
message(STATUS "testhost: ${testhost_summary}; contracthost: ${contracthost_summary}")
if(NOT testhost_summary STREQUAL contracthost_summary OR NOT contracthost_failed EQUAL 0)
    message(FATAL_ERROR "the hosts disagree or a case failed\n--- testhost\n${testhost_output}\n"
                        "--- contracthost\n${contracthost_output}")
endif()
