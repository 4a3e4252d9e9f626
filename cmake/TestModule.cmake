# zut_add_test_module(<target> <sources>...)
#
# Builds a test module: a shared library whose only exported symbol is
# getTestModule2. Suites are linked in the order given, which is the order
# their classes register in.
function(zut_add_test_module target)
    add_library(${target} SHARED ${ARGN}
        ${PROJECT_SOURCE_DIR}/CoreTestFramework/src/ZentaryUnitTest/TestModuleEntry.cpp)
    target_link_libraries(${target} PRIVATE CoreTestFramework)
    set_target_properties(${target} PROPERTIES PREFIX "" LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/TestModule.map)
    target_link_options(${target} PRIVATE "LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/TestModule.map")
    if(SCRIPTING_BUILD_TESTS)
        add_test(NAME ${target}.Exports
                 COMMAND ${CMAKE_COMMAND} -DMODULE=$<TARGET_FILE:${target}> -P ${PROJECT_SOURCE_DIR}/cmake/CheckExports.cmake)
    endif()
    if(NOT SCRIPTING_SANITIZE)
        # Sanitizer runtimes live in the host executable, so a sanitized module has undefined symbols by design.
        target_link_options(${target} PRIVATE "LINKER:--no-undefined")
    endif()
endfunction()

# zut_add_suite_test(<module> <class> <labels>...)
# One CTest test that runs the host on one suite class; a class's name is one of its tags.
function(zut_add_suite_test module class)
    add_test(NAME ${module}.${class} COMMAND testhost --tag ${class} $<TARGET_FILE:${module}>)
    set_tests_properties(${module}.${class} PROPERTIES LABELS "${ARGN}")
endfunction()

# zut_add_contract_test(<module>)
# One CTest test that runs every case of the module through contracthost, which calls no hook, and through
# testhost (--tag all), and fails unless both count the same passes and failures and nothing failed.
function(zut_add_contract_test module)
    add_test(NAME ${module}.ContractOnlyHost
             COMMAND ${CMAKE_COMMAND} -DTESTHOST=$<TARGET_FILE:testhost> -DCONTRACTHOST=$<TARGET_FILE:contracthost>
                     -DMODULE=$<TARGET_FILE:${module}> -P ${PROJECT_SOURCE_DIR}/cmake/CompareHosts.cmake)
    set_tests_properties(${module}.ContractOnlyHost PROPERTIES LABELS host)
endfunction()
