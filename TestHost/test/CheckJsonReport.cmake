# cmake -DHOST=<testhost> -DFIXTURE=<module> -DCRASH_FIXTURE=<module> -DWORK_DIR=<dir> -P CheckJsonReport.cmake
#
# Reads the host's JSON report and listing with a JSON parser, CMake's: a whole run's report, the report a case
# that crashes the host in process leaves behind, and --list --format json.
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(expect_equal actual expected what)
    if(NOT "${actual}" STREQUAL "${expected}")
        message(FATAL_ERROR "${what}: '${actual}', expected '${expected}'")
    endif()
endfunction()

execute_process(COMMAND ${HOST} --json ${WORK_DIR}/run.json ${FIXTURE} OUTPUT_QUIET RESULT_VARIABLE result)
expect_equal("${result}" 1 "the fixture's exit code")
file(READ ${WORK_DIR}/run.json report)
string(JSON tests GET "${report}" tests)
string(JSON failures GET "${report}" failures)
string(JSON classes LENGTH "${report}" classes)
expect_equal("${tests}/${failures}/${classes}" "9/4/3" "tests/failures/classes of the run")
# The failing class holds a failed comparison with its operands, markup and all.
set(found FALSE)
foreach(index RANGE 2)
    string(JSON name GET "${report}" classes ${index} name)
    if(name STREQUAL "HostFixture_FailingTests")
        string(JSON cases LENGTH "${report}" classes ${index} cases)
        math(EXPR last "${cases} - 1")
        foreach(caseIndex RANGE ${last})
            string(JSON caseName GET "${report}" classes ${index} cases ${caseIndex} name)
            if(caseName STREQUAL "Mismatch")
                string(JSON right GET "${report}" classes ${index} cases ${caseIndex} failures 1 right)
                string(JSON message GET "${report}" classes ${index} cases ${caseIndex} failures 1 message)
                expect_equal("${right}" "a&b" "the right operand")
                expect_equal("${message}" "markup \"quoted\" <here> & there" "the message")
                set(found TRUE)
            endif()
        endforeach()
    endif()
endforeach()
expect_equal("${found}" TRUE "HostFixture_FailingTests.Mismatch in the report")

# A crash in process: the sanitizers step aside, so that the signal reaches the host.
set(ENV{ASAN_OPTIONS} "$ENV{ASAN_OPTIONS}:handle_segv=0:handle_abort=0:detect_leaks=0")
execute_process(COMMAND ${HOST} --json ${WORK_DIR}/crash.json --filter HostCrash_Fates.Segfaults:HostCrash_Fates.Passes
                        ${CRASH_FIXTURE}
                OUTPUT_QUIET ERROR_QUIET RESULT_VARIABLE result)
file(READ ${WORK_DIR}/crash.json report)
string(JSON tests GET "${report}" tests)
string(JSON outcome GET "${report}" classes 0 cases 1 outcome)
string(JSON cause GET "${report}" classes 0 cases 1 failures 1 message)
expect_equal("${tests}/${outcome}/${cause}" "2/failed/crashed with SIGSEGV" "the crashed run's report")

execute_process(COMMAND ${HOST} --list --format json --tag all ${FIXTURE} OUTPUT_VARIABLE listing RESULT_VARIABLE result)
expect_equal("${result}" 0 "listing")
string(JSON line GET "${listing}" classes 0 cases 0 line)
string(JSON fullName GET "${listing}" classes 0 cases 0 fullName)
if(NOT line GREATER 0 OR NOT fullName MATCHES "^HostFixture_[A-Za-z]+Tests\\.[A-Za-z]+$")
    message(FATAL_ERROR "listing: ${listing}")
endif()
