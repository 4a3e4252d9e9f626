cmake_minimum_required(VERSION 3.25)
# What the consumer checks share: running a step and stopping with its output when it fails.
foreach(var SOURCE_DIR BUILD_DIR WORK_DIR GENERATOR CXX_COMPILER)
    if(NOT DEFINED ${var})
        message(FATAL_ERROR "needs -D${var}=...")
    endif()
endforeach()

# What the Lua programs of the consumers run: a class and a function of the program's own module, and Lua.
set(SCRIPT "local native = require('@consumer/native')
local counter = native.Counter.new()
local t = {}
for i = 1, 3 do t[#t + 1] = i end
return native.twice(counter:add(#t * 7))")

# run(<what> <expected exit code> <output variable> COMMAND <command>...)
function(run what expected outputVariable)
    cmake_parse_arguments(PARSE_ARGV 3 arg "" "WORKING_DIRECTORY" "COMMAND")
    if(NOT arg_WORKING_DIRECTORY)
        set(arg_WORKING_DIRECTORY ${WORK_DIR})
    endif()
    execute_process(COMMAND ${arg_COMMAND} WORKING_DIRECTORY ${arg_WORKING_DIRECTORY}
                    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result STREQUAL "${expected}")
        message(FATAL_ERROR "${what}: exit ${result}, expected ${expected}\n${arg_COMMAND}\n${output}")
    endif()
    set(${outputVariable} "${output}" PARENT_SCOPE)
endfunction()

function(expect_in text pattern what)
    if(NOT text MATCHES "${pattern}")
        message(FATAL_ERROR "${what}: no match for '${pattern}' in:\n${text}")
    endif()
endfunction()

# Configures and builds a consumer project.
function(build_consumer source build)
    set(launcher "")
    if(CCACHE)
        set(launcher -DCMAKE_CXX_COMPILER_LAUNCHER=${CCACHE})
    endif()
    run("configuring ${source}" 0 output
        COMMAND ${CMAKE_COMMAND} -S ${source} -B ${build} -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
                ${launcher} ${ARGN})
    run("building ${source}" 0 output COMMAND ${CMAKE_COMMAND} --build ${build})
endfunction()
