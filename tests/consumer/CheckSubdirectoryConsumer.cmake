# cmake -DSOURCE_DIR=... -DWORK_DIR=... -DGENERATOR=... -DCXX_COMPILER=... [-DCCACHE=...]
#       -P CheckSubdirectoryConsumer.cmake
#
# Builds a project that adds this tree with add_subdirectory and makes its own test module with the helpers, then
# runs the tests zut_discover_tests made of its cases through the host built there. The tree is compiled without
# optimisation, since only whether it builds and runs counts here.
include(${CMAKE_CURRENT_LIST_DIR}/ConsumerCommon.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
set(consumer ${WORK_DIR}/consumer)
# The tree builds against the EnTT this build uses.
set(enttArguments "")
if(ENTT STREQUAL "system")
    set(enttArguments -DSCRIPTING_ENTT=system -DEnTT_DIR=${EnTT_DIR})
endif()
build_consumer(${SOURCE_DIR}/tests/consumer/subdirectory ${consumer} -DSCRIPTING_SOURCE_DIR=${SOURCE_DIR}
               ${enttArguments})

run("the discovered tests" 0 output COMMAND ${CMAKE_CTEST_COMMAND} --test-dir ${consumer} -V)
expect_in("${output}" "ConsumerTests.Consumer_VersionTests.Orders" "the discovered tests")
expect_in("${output}" "ConsumerTests.Consumer_VersionTests.Prints" "the discovered tests")
expect_in("${output}" "100% tests passed, 0 tests failed out of 2" "the discovered tests")
