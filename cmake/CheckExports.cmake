# cmake -DMODULE=<path> -P CheckExports.cmake
# A test module exports exactly one symbol: getTestModule2.
execute_process(COMMAND nm -D --defined-only ${MODULE} OUTPUT_VARIABLE symbols RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "nm failed on ${MODULE}")
endif()
string(STRIP "${symbols}" symbols)
string(REPLACE "\n" ";" lines "${symbols}")
list(LENGTH lines count)
if(NOT count EQUAL 1 OR NOT symbols MATCHES " T getTestModule2$")
    message(FATAL_ERROR "expected only getTestModule2 to be exported, found:\n${symbols}")
endif()
message(STATUS "exports: ${symbols}")
