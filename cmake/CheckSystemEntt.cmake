# cmake -DSOURCE_DIR=<project> -DWORK_DIR=<scratch> -DGENERATOR=<generator> -DCXX_COMPILER=<compiler>
#       -P CheckSystemEntt.cmake
#
# Configures the project with -DSCRIPTING_ENTT=system against stand-in EnTT packages of several versions, which
# need no upstream release at hand (the system preset builds against a real one). A stand-in is laid out as an
# installed EnTT is: EnTTConfig.cmake creating the imported target EnTT::EnTT (not global, as an exported target
# is) over a copy of the subset's headers, and a version file. The check proves that a 3.13 package is found and
# its target reaches every directory that links it (the library, the unit tests, the benchmarks), and that other
# releases are refused.
foreach(var SOURCE_DIR WORK_DIR GENERATOR CXX_COMPILER)
    if(NOT DEFINED ${var})
        message(FATAL_ERROR "CheckSystemEntt.cmake needs -D${var}=...")
    endif()
endforeach()

include(CMakePackageConfigHelpers)

file(REMOVE_RECURSE "${WORK_DIR}")
file(COPY "${SOURCE_DIR}/Entt/include/" DESTINATION "${WORK_DIR}/include")

function(make_package dir version)
    file(WRITE "${dir}/EnTTConfig.cmake"
         "add_library(EnTT::EnTT INTERFACE IMPORTED)\n"
         "set_target_properties(EnTT::EnTT PROPERTIES INTERFACE_INCLUDE_DIRECTORIES \"${WORK_DIR}/include\"\n"
         "                      INTERFACE_COMPILE_FEATURES cxx_std_17)\n")
    write_basic_package_version_file("${dir}/EnTTConfigVersion.cmake" VERSION ${version}
                                     COMPATIBILITY AnyNewerVersion)
endfunction()

# Returns the configure's exit code and output.
function(configure package_dir build_dir result_var output_var)
    execute_process(
        COMMAND "${CMAKE_COMMAND}" -S "${SOURCE_DIR}" -B "${build_dir}" -G "${GENERATOR}"
                "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}" -DCMAKE_BUILD_TYPE=Release -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
                -DSCRIPTING_ENTT=system "-DEnTT_DIR=${package_dir}" -DSCRIPTING_BUILD_TESTS=ON
                -DSCRIPTING_BUILD_BENCHMARKS=ON
        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    set(${result_var} "${result}" PARENT_SCOPE)
    set(${output_var} "${output}" PARENT_SCOPE)
endfunction()

make_package("${WORK_DIR}/entt-3.13.2" 3.13.2)
configure("${WORK_DIR}/entt-3.13.2" "${WORK_DIR}/build-3.13.2" result output)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "configuring against EnTT 3.13.2 failed:\n${output}")
endif()

# Each of these must be compiled against the package's headers, not the bundled ones.
file(READ "${WORK_DIR}/build-3.13.2/compile_commands.json" commands)
string(JSON count LENGTH "${commands}")
math(EXPR last "${count} - 1")
foreach(source Scripting/src/Version.cpp Entt/test/MetaAnyTests.cpp bench/entt_meta.cpp bench/entt_registry.cpp)
    set(command "")
    foreach(index RANGE ${last})
        string(JSON file GET "${commands}" ${index} file)
        if(file STREQUAL "${SOURCE_DIR}/${source}")
            string(JSON command GET "${commands}" ${index} command)
            break()
        endif()
    endforeach()
    if(command STREQUAL "")
        message(FATAL_ERROR "${source} is not compiled in the system configuration")
    endif()
    string(FIND "${command}" "${WORK_DIR}/include" package_headers)
    string(FIND "${command}" "${SOURCE_DIR}/Entt/include" bundled_headers)
    if(package_headers EQUAL -1 OR NOT bundled_headers EQUAL -1)
        message(FATAL_ERROR "${source} is not compiled against the package's headers alone:\n${command}")
    endif()
endforeach()

foreach(version 3.12.2 3.14.0)
    make_package("${WORK_DIR}/entt-${version}" ${version})
    configure("${WORK_DIR}/entt-${version}" "${WORK_DIR}/build-${version}" result output)
    if(result EQUAL 0)
        message(FATAL_ERROR "configuring against EnTT ${version} succeeded; only 3.13 may be accepted")
    endif()
    if(NOT output MATCHES "EnTT")
        message(FATAL_ERROR "configuring against EnTT ${version} failed for another reason:\n${output}")
    endif()
endforeach()

file(REMOVE_RECURSE "${WORK_DIR}")
message(STATUS "system EnTT: 3.13.2 configures for the library, tests and benchmarks; 3.12.2 and 3.14.0 are refused")
