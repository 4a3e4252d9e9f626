# cmake -DSOURCE_DIR=... -DBUILD_DIR=... -DWORK_DIR=... -DPREFIX=... -DLUA=ON|OFF -DGENERATOR=... -DCXX_COMPILER=...
#       [-DCCACHE=...] -P CheckInstalledConsumer.cmake
#
# Builds a project against the installed prefix and runs what it made: its programs, its test modules through the
# installed testhost and contracthost, and the tests zut_discover_tests made of them.
include(${CMAKE_CURRENT_LIST_DIR}/ConsumerCommon.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
set(consumer ${WORK_DIR}/consumer)
build_consumer(${SOURCE_DIR}/tests/consumer/installed ${consumer} -DCMAKE_PREFIX_PATH=${PREFIX} -DWITH_LUA=${LUA})

run("the consumer's program" 0 output COMMAND ${consumer}/consumer_version)
expect_in("${output}" "^1.2.3\n$" "the consumer's program")
if(LUA)
    run("the consumer's Lua program" 0 output
        COMMAND ${consumer}/consumer_lua "${SCRIPT}")
    expect_in("${output}" "^42\n$" "the consumer's Lua program")
    # A script's error comes back as a value the program reports.
    run("the consumer's Lua program on a failing script" 1 output COMMAND ${consumer}/consumer_lua "error('broken')")
    expect_in("${output}" "broken" "the consumer's Lua program on a failing script")
endif()

run("the installed host" 0 output
    COMMAND ${PREFIX}/bin/testhost --junit ${WORK_DIR}/report.xml ${consumer}/ConsumerTests.so)
expect_in("${output}" "PASS  Consumer_VersionTests.Orders" "the installed host")
expect_in("${output}" "\n2 passed, 0 failed\n" "the installed host")

# The module's tests, discovered per class and per case, and the contract test through the installed hosts.
run("the discovered tests" 0 output COMMAND ${CMAKE_CTEST_COMMAND} --test-dir ${consumer} -L "consumer|host" -V)
foreach(test ConsumerTests.Consumer_VersionTests ConsumerTests.Consumer_VersionTests.Orders
             ConsumerTests.Consumer_VersionTests.Prints ConsumerTests.ContractOnlyHost)
    expect_in("${output}" "Test +#[0-9]+: ${test} [.]*[ *]*Passed" "the discovered tests")
endforeach()
expect_in("${output}" "100% tests passed, 0 tests failed out of 4" "the discovered tests")
expect_in("${output}" "contracthost: 2 passed, 0 failed" "the contract test")

# A case that calls exit(0) fails its own test, and the per-case tests still run the cases after it; the
# per-class test, which cannot run them, fails.
run("the tests of a case that exits" 8 output COMMAND ${CMAKE_CTEST_COMMAND} --test-dir ${consumer} -L exits)
foreach(row "ConsumerEdgeTests.Consumer_ExitTests ;Failed" "ConsumerEdgeTests.Consumer_ExitTests.Exits ;Failed"
            "ConsumerEdgeTests.Consumer_ExitTests.Before ;Passed"
            "ConsumerEdgeTests.Consumer_ExitTests.After ;Passed")
    list(GET row 0 test)
    list(GET row 1 outcome)
    expect_in("${output}" "Test +#[0-9]+: ${test}[.]*[ *]*${outcome}" "the tests of a case that exits")
endforeach()
expect_in("${output}" "50% tests passed, 2 tests failed out of 4" "the tests of a case that exits")

# A generated case whose name holds '-', ':', '*', '?' or "]=]" gets a test that runs that case and no other.
run("the tests of generated cases with odd names" 0 output
    COMMAND ${CMAKE_CTEST_COMMAND} --test-dir ${consumer} -L odd_names -V)
foreach(name with-dash with:colon with[*]star with[?]mark with[]]=[]]bracket)
    expect_in("${output}" "Test +#[0-9]+: ConsumerEdgeTests.Consumer_GeneratedTests.${name} [.]*[ *]*Passed"
              "the tests of generated cases with odd names")
endforeach()
# A test per case and one for the class, each of which ran one case or the class's six.
expect_in("${output}" "100% tests passed, 0 tests failed out of 7" "the tests of generated cases with odd names")
string(REGEX MATCHALL "\n[0-9]+: 1 passed, 0 failed" single "${output}")
list(LENGTH single singles)
if(NOT singles EQUAL 6)
    message(FATAL_ERROR "expected six tests that ran one case each, found ${singles}:\n${output}")
endif()
