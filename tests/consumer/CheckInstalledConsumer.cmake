# cmake -DSOURCE_DIR=... -DBUILD_DIR=... -DWORK_DIR=... -DGENERATOR=... -DCXX_COMPILER=... [-DCCACHE=...]
#       -P CheckInstalledConsumer.cmake
#
# Installs the built tree into a fresh prefix, then builds a project against it: its own test module, run through
# the installed host and through the tests zut_discover_tests made, and a program built with pkg-config's flags.
include(${CMAKE_CURRENT_LIST_DIR}/ConsumerCommon.cmake)

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
run("installing" 0 output COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# The bundled EnTT subset is installed with the library; an upstream EnTT stays where it was installed.
set(enttFiles "")
if(NOT ENTT STREQUAL "system")
    set(enttFiles include/scripting/entt/entt.hpp)
endif()
foreach(file ${enttFiles} bin/testhost lib/libScripting.a lib/libScriptingPlatform.a lib/libScriptingCoreTestFramework.a
             include/scripting/Scripting/Version.h include/scripting/ZentaryUnitTest/TestClass.h
             include/scripting/Diagnostics/Assert.h
             lib/cmake/Scripting/ScriptingConfig.cmake lib/cmake/Scripting/ScriptingConfigVersion.cmake
             lib/cmake/Scripting/TestModule.cmake lib/pkgconfig/scripting.pc)
    if(NOT EXISTS ${prefix}/${file})
        file(GLOB_RECURSE installed RELATIVE ${prefix} ${prefix}/*)
        message(FATAL_ERROR "the install lacks ${file}; it holds:\n${installed}")
    endif()
endforeach()
# Nothing of the build tree is needed any more: the package must not point back into it.
file(GLOB_RECURSE packageFiles ${prefix}/lib/cmake/Scripting/*.cmake ${prefix}/lib/pkgconfig/*.pc)
foreach(file IN LISTS packageFiles)
    file(READ ${file} text)
    string(FIND "${text}" "${SOURCE_DIR}" source)
    string(FIND "${text}" "${BUILD_DIR}" build)
    if(source GREATER -1 OR build GREATER -1)
        message(FATAL_ERROR "${file} names the source or build tree")
    endif()
endforeach()

set(consumer ${WORK_DIR}/consumer)
set(enttLocation "")
if(ENTT STREQUAL "system")
    set(enttLocation -DEnTT_DIR=${EnTT_DIR})
endif()
build_consumer(${SOURCE_DIR}/tests/consumer/installed ${consumer} -DCMAKE_PREFIX_PATH=${prefix} ${enttLocation})

run("the installed host" 0 output
    COMMAND ${prefix}/bin/testhost --junit ${WORK_DIR}/report.xml ${consumer}/ConsumerTests.so)
expect_in("${output}" "PASS  Consumer_VersionTests.Orders" "the installed host")
expect_in("${output}" "\n2 passed, 0 failed\n" "the installed host")
run("the consumer's program" 0 output COMMAND ${consumer}/consumer_version)
expect_in("${output}" "^1.2.3\n$" "the consumer's program")

# The discovered test carries the class's tags as labels.
run("the discovered tests" 0 output COMMAND ${CMAKE_CTEST_COMMAND} --test-dir ${consumer} -L consumer -V)
expect_in("${output}" "ConsumerTests.Consumer_VersionTests" "the discovered tests")
expect_in("${output}" "100% tests passed, 0 tests failed out of 1" "the discovered tests")

find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
    set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig)
    run("pkg-config" 0 flags COMMAND ${PKG_CONFIG} --cflags --libs scripting)
    string(STRIP "${flags}" flags)
    separate_arguments(flags UNIX_COMMAND "${flags}")
    set(sanitize "")
    if(SANITIZE)
        set(sanitize -fsanitize=address,undefined)
    endif()
    run("compiling with pkg-config's flags" 0 output
        COMMAND ${CXX_COMPILER} ${SOURCE_DIR}/tests/consumer/src/main.cpp ${flags} ${sanitize}
                -o ${WORK_DIR}/pkgconfig_version)
    run("the pkg-config program" 0 output COMMAND ${WORK_DIR}/pkgconfig_version)
    expect_in("${output}" "^1.2.3\n$" "the pkg-config program")
else()
    message(STATUS "pkg-config is not installed; the .pc file is not tried")
endif()
