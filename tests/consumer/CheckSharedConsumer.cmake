# cmake -DSOURCE_DIR=... -DBUILD_DIR=... -DWORK_DIR=... -DLUA=ON|OFF -DGENERATOR=... -DCXX_COMPILER=... [-DCCACHE=...]
#       -P CheckSharedConsumer.cmake
#
# A configuration of its own with BUILD_SHARED_LIBS: only what it installs is built (unoptimised, no tests, no
# benchmarks), installed into a prefix here, and a project built against that prefix links the shared libraries
# and runs, finding them through their own run paths.
include(${CMAKE_CURRENT_LIST_DIR}/ConsumerCommon.cmake)

file(REMOVE_RECURSE ${WORK_DIR}/prefix ${WORK_DIR}/consumer)
file(MAKE_DIRECTORY ${WORK_DIR})
set(library ${WORK_DIR}/library)
set(prefix ${WORK_DIR}/prefix)
set(launcher "")
if(CCACHE)
    set(launcher -DCMAKE_CXX_COMPILER_LAUNCHER=${CCACHE})
endif()
# The library's build directory is kept between runs, so that only what changed is built again.
run("configuring the shared build" 0 output
    COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${library} -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
            ${launcher} -DCMAKE_BUILD_TYPE= -DBUILD_SHARED_LIBS=ON -DSCRIPTING_BUILD_TESTS=OFF
            -DSCRIPTING_BUILD_BENCHMARKS=OFF -DSCRIPTING_LUA=${LUA})
run("building the shared build" 0 output COMMAND ${CMAKE_COMMAND} --build ${library} --target scripting_installables)
run("installing the shared build" 0 output COMMAND ${CMAKE_COMMAND} --install ${library} --prefix ${prefix})

set(libraries Scripting ScriptingPlatform ScriptingCoreTestFramework)
if(LUA)
    list(APPEND libraries ScriptingLua)
endif()
foreach(name IN LISTS libraries)
    foreach(kind .a .so)
        if(NOT EXISTS ${prefix}/lib/lib${name}${kind})
            message(FATAL_ERROR "the shared install lacks lib/lib${name}${kind}")
        endif()
    endforeach()
    # Each library finds the others through its own run path, whoever loads it.
    run("ldd lib${name}.so" 0 output COMMAND ldd ${prefix}/lib/lib${name}.so)
    if(output MATCHES "not found")
        message(FATAL_ERROR "lib${name}.so misses a library:\n${output}")
    endif()
endforeach()

set(consumer ${WORK_DIR}/consumer)
build_consumer(${SOURCE_DIR}/tests/consumer/shared ${consumer} -DCMAKE_PREFIX_PATH=${prefix} -DWITH_LUA=${LUA})

# The programs load the installed shared libraries, not copies linked in.
set(programs consumer_version)
if(LUA)
    list(APPEND programs consumer_lua)
endif()
foreach(program IN LISTS programs)
    run("ldd ${program}" 0 output COMMAND ldd ${consumer}/${program})
    expect_in("${output}" "libScripting\\.so[.0-9]* => ${prefix}/lib/" "ldd ${program}")
endforeach()
run("the shared program" 0 output COMMAND ${consumer}/consumer_version)
expect_in("${output}" "^1.2.3\n$" "the shared program")
if(LUA)
    run("the shared Lua program" 0 output COMMAND ${consumer}/consumer_lua "${SCRIPT}")
    expect_in("${output}" "^42\n$" "the shared Lua program")
endif()
run("the discovered tests" 0 output COMMAND ${CMAKE_CTEST_COMMAND} --test-dir ${consumer} -V)
expect_in("${output}" "100% tests passed, 0 tests failed out of 3" "the discovered tests")
