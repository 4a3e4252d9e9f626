# cmake -DSOURCE_DIR=... -DBUILD_DIR=... -DWORK_DIR=... -DPREFIX=... -DLUA=ON|OFF -DGENERATOR=... -DCXX_COMPILER=...
#       [-DSANITIZE=ON] -P CheckPkgConfig.cmake
#
# Compiles and runs a program with the flags pkg-config reads from each installed .pc file, with the prefix
# reached only through PKG_CONFIG_PATH.
include(${CMAKE_CURRENT_LIST_DIR}/ConsumerCommon.cmake)

find_program(PKG_CONFIG pkg-config REQUIRED)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
set(ENV{PKG_CONFIG_PATH} ${PREFIX}/lib/pkgconfig)
if(ENTT STREQUAL "system")
    # Upstream EnTT's own entt.pc, beside its CMake package (<prefix>/lib/EnTT/cmake).
    get_filename_component(enttPkgConfig ${EnTT_DIR}/../../pkgconfig ABSOLUTE)
    set(ENV{PKG_CONFIG_PATH} "${PREFIX}/lib/pkgconfig:${enttPkgConfig}")
endif()
set(sanitize "")
if(SANITIZE)
    set(sanitize -fsanitize=address,undefined)
endif()

# check(<package> <source> <what it prints> <arguments of the program>...)
function(check package source printed)
    run("pkg-config ${package}" 0 flags COMMAND ${PKG_CONFIG} --cflags --libs ${package})
    string(STRIP "${flags}" flags)
    # The libraries keep each function in a section of their own, which is worth something only when the
    # consumer's linker drops the unreached ones.
    expect_in("${flags}" "-Wl,--gc-sections" "pkg-config ${package}")
    separate_arguments(flags UNIX_COMMAND "${flags}")
    run("compiling with ${package}'s flags" 0 output
        COMMAND ${CXX_COMPILER} ${SOURCE_DIR}/tests/consumer/src/${source} ${flags} ${sanitize}
                -o ${WORK_DIR}/${package}_program)
    run("the ${package} program" 0 output COMMAND ${WORK_DIR}/${package}_program ${ARGN})
    expect_in("${output}" "${printed}" "the ${package} program")
endfunction()

check(scripting main.cpp "^1.2.3\n$")
if(LUA)
    check(scripting-lua lua_main.cpp "^42\n$" "${SCRIPT}")
endif()
