# Helpers for test modules, usable from this project, from one that adds it with add_subdirectory, and from one
# that finds the installed package. Every path is taken from where this file lies, never from the caller's
# project.
include_guard(GLOBAL)

# Installed, the module's entry source lies beside this file; in the source tree, in the framework.
if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/TestModuleEntry.cpp)
    set_property(GLOBAL PROPERTY ZUT_ENTRY_SOURCE ${CMAKE_CURRENT_LIST_DIR}/TestModuleEntry.cpp)
else()
    set_property(GLOBAL PROPERTY ZUT_ENTRY_SOURCE
                 ${CMAKE_CURRENT_LIST_DIR}/../CoreTestFramework/src/ZentaryUnitTest/TestModuleEntry.cpp)
endif()
set_property(GLOBAL PROPERTY ZUT_CMAKE_DIR ${CMAKE_CURRENT_LIST_DIR})

# zut_add_test_module(<target> <sources>...)
#
# Builds a test module: a shared library whose only exported symbol is getTestModule2. Suites are linked in the
# order given, which is the order their classes register in. Link the module to what its suites test.
function(zut_add_test_module target)
    get_property(entry GLOBAL PROPERTY ZUT_ENTRY_SOURCE)
    get_property(directory GLOBAL PROPERTY ZUT_CMAKE_DIR)
    add_library(${target} SHARED ${ARGN} ${entry})
    target_link_libraries(${target} PRIVATE Scripting::CoreTestFramework)
    set_target_properties(${target} PROPERTIES PREFIX "" LINK_DEPENDS ${directory}/TestModule.map)
    target_link_options(${target} PRIVATE "LINKER:--version-script=${directory}/TestModule.map")
    if(SCRIPTING_BUILD_TESTS)
        add_test(NAME ${target}.Exports
                 COMMAND ${CMAKE_COMMAND} -DMODULE=$<TARGET_FILE:${target}> -P ${directory}/CheckExports.cmake)
    endif()
    if(NOT SCRIPTING_SANITIZE AND NOT Scripting_SANITIZE)
        # Sanitizer runtimes live in the host executable, so a sanitized module has undefined symbols by design.
        target_link_options(${target} PRIVATE "LINKER:--no-undefined")
    endif()
endfunction()

# zut_discover_tests(<module>
#                    [PER CLASS|CASE]           one CTest test per class (default) or per case
#                    [HOST <target or path>]    the host that lists and runs the module; Scripting::testhost
#                    [TEST_PREFIX <prefix>]     before each test's name; "<module>." by default
#                    [SELECT <host options>...] which classes or cases get a test; "--tag all" by default
#                    [EXTRA_ARGS <options>...]  added to each test's host command, e.g. --isolate
#                    [PROPERTIES <name> <value>...]  set on every test
#                    [DISCOVERY_TIMEOUT <seconds>])
#
# After the module is built, asks the host for its classes and cases (--list --format json) and makes a test
# "<prefix><class>" that runs the class (--filter "<class>.*"), or "<prefix><class>.<case>" for a case, labelled
# with its tags but its own name: the class's for a class, the class's and the case's for a case. A test per case
# runs its case in a host of its own, so a case that ends the process takes no other case with it; a test fails
# when the host reports that a case called exit. The function may be called again for the same module, with
# another PER, SELECT or TEST_PREFIX.
function(zut_discover_tests module)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "PER;HOST;TEST_PREFIX;DISCOVERY_TIMEOUT"
                          "SELECT;EXTRA_ARGS;PROPERTIES")
    if(arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "zut_discover_tests: unknown arguments ${arg_UNPARSED_ARGUMENTS}")
    endif()
    if(NOT arg_PER)
        set(arg_PER CLASS)
    endif()
    string(TOUPPER "${arg_PER}" arg_PER)
    if(NOT arg_PER MATCHES "^(CLASS|CASE)$")
        message(FATAL_ERROR "zut_discover_tests: PER takes CLASS or CASE, not ${arg_PER}")
    endif()
    if(NOT arg_HOST)
        set(arg_HOST Scripting::testhost)
    endif()
    if(NOT DEFINED arg_TEST_PREFIX)
        set(arg_TEST_PREFIX "${module}.")
    endif()
    if(NOT arg_SELECT)
        set(arg_SELECT --tag all)
    endif()
    if(NOT arg_DISCOVERY_TIMEOUT)
        set(arg_DISCOVERY_TIMEOUT 60)
    endif()
    # A host given by path is a file; a target's file is known once the targets are generated.
    if(arg_HOST MATCHES "^[/.]")
        set(host "${arg_HOST}")
    else()
        set(host "$<TARGET_FILE:${arg_HOST}>")
    endif()

    get_property(directory GLOBAL PROPERTY ZUT_CMAKE_DIR)
    # A module may be discovered more than once (per class and per case, or with other selections): each call has
    # files and a target of its own, the first keeping the plain names.
    get_property(calls GLOBAL PROPERTY ZUT_DISCOVERY_CALLS_${module})
    if(NOT calls)
        set(calls 0)
    endif()
    math(EXPR calls "${calls} + 1")
    set_property(GLOBAL PROPERTY ZUT_DISCOVERY_CALLS_${module} ${calls})
    set(suffix "")
    if(calls GREATER 1)
        set(suffix "_${calls}")
    endif()
    set(base ${CMAKE_CURRENT_BINARY_DIR}/${module}${suffix})
    set(value_HOST "${host}")
    set(value_MODULE "$<TARGET_FILE:${module}>")
    set(value_OUTPUT "${base}_tests.cmake")
    set(value_PER "${arg_PER}")
    set(value_PREFIX "${arg_TEST_PREFIX}")
    set(value_TIMEOUT "${arg_DISCOVERY_TIMEOUT}")
    set(value_SELECT "${arg_SELECT}")
    set(value_EXTRA_ARGS "${arg_EXTRA_ARGS}")
    set(value_PROPERTIES "${arg_PROPERTIES}")
    # Written by the generator, which knows the targets' files.
    set(parameters "")
    foreach(name HOST MODULE OUTPUT PER PREFIX TIMEOUT SELECT EXTRA_ARGS PROPERTIES)
        string(APPEND parameters "set(${name}")
        foreach(element IN LISTS value_${name})
            string(APPEND parameters " [==[${element}]==]")
        endforeach()
        string(APPEND parameters ")\n")
    endforeach()
    file(GENERATE OUTPUT ${base}_discovery.cmake CONTENT "${parameters}")

    add_custom_command(OUTPUT ${base}_tests.cmake
        COMMAND ${CMAKE_COMMAND} -DPARAMETERS=${base}_discovery.cmake -P ${directory}/DiscoverTests.cmake
        DEPENDS ${module} ${arg_HOST} ${directory}/DiscoverTests.cmake ${base}_discovery.cmake
        COMMENT "Listing the test classes of ${module}" VERBATIM)
    add_custom_target(${module}_discovery${suffix} ALL DEPENDS ${base}_tests.cmake)

    # CTest reads this; until the module is built there is nothing to run.
    file(WRITE ${base}_include.cmake
         "if(EXISTS [==[${base}_tests.cmake]==])\n"
         "    include([==[${base}_tests.cmake]==])\n"
         "else()\n"
         "    add_test([==[${module}${suffix}_NOT_BUILT]==] [==[${module}${suffix}_NOT_BUILT]==])\n"
         "endif()\n")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${base}_include.cmake)
endfunction()

# zut_add_contract_test(<module>)
# One CTest test that runs every case of the module through contracthost, which calls no hook, and through
# testhost (--tag all), and fails unless both count the same passes and failures and nothing failed.
function(zut_add_contract_test module)
    get_property(directory GLOBAL PROPERTY ZUT_CMAKE_DIR)
    add_test(NAME ${module}.ContractOnlyHost
             COMMAND ${CMAKE_COMMAND} -DTESTHOST=$<TARGET_FILE:Scripting::testhost>
                     -DCONTRACTHOST=$<TARGET_FILE:Scripting::contracthost>
                     -DMODULE=$<TARGET_FILE:${module}> -P ${directory}/CompareHosts.cmake)
    set_tests_properties(${module}.ContractOnlyHost PROPERTIES LABELS host)
endfunction()
