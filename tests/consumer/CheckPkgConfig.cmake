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
set(sanitize "")
if(SANITIZE)
    set(sanitize -fsanitize=address,undefined)
endif()

# <package> <source> <arguments of the program> <what it prints>
set(programs "scripting|main.cpp||^1.2.3\n$")
if(LUA)
    list(APPEND programs "scripting-lua|lua_main.cpp|return 6 * 7|^42\n$")
endif()
foreach(program IN LISTS programs)
    string(REPLACE "|" ";" program "${program}")
    list(GET program 0 package)
    list(GET program 1 source)
    list(GET program 2 arguments)
    list(GET program 3 printed)
    run("pkg-config ${package}" 0 flags COMMAND ${PKG_CONFIG} --cflags --libs ${package})
    string(STRIP "${flags}" flags)
    separate_arguments(flags UNIX_COMMAND "${flags}")
    run("compiling with ${package}'s flags" 0 output
        COMMAND ${CXX_COMPILER} ${SOURCE_DIR}/tests/consumer/src/${source} ${flags} ${sanitize}
                -o ${WORK_DIR}/${package}_program)
    run("the ${package} program" 0 output COMMAND ${WORK_DIR}/${package}_program ${arguments})
    expect_in("${output}" "${printed}" "the ${package} program")
endforeach()
