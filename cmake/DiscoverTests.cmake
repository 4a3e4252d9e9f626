# cmake -DPARAMETERS=<file> -P DiscoverTests.cmake
#
# The build step of zut_discover_tests: lists a test module's classes and cases through the host and writes the
# CTest file that makes them tests. PARAMETERS sets HOST, MODULE, OUTPUT, PER, PREFIX, TIMEOUT, SELECT,
# EXTRA_ARGS and PROPERTIES.
include(${PARAMETERS})

# A bracket argument holding text, with a level of '=' that the text itself cannot close.
function(bracket out text)
    set(level "=")
    while(text MATCHES "]${level}]")
        string(APPEND level "=")
    endwhile()
    set(${out} "[${level}[${text}]${level}]" PARENT_SCOPE)
endfunction()

function(quoted out)
    set(text "")
    foreach(element IN LISTS ARGN)
        bracket(element "${element}")
        string(APPEND text " ${element}")
    endforeach()
    set(${out} "${text}" PARENT_SCOPE)
endfunction()

# A class's or case's tags but its own name, which is a tag of it already.
function(labels out json name)
    string(TOLOWER "${name}" own)
    string(JSON count LENGTH "${json}" tags)
    set(result "")
    if(count GREATER 0)
        math(EXPR last "${count} - 1")
        foreach(index RANGE ${last})
            string(JSON tag GET "${json}" tags ${index})
            if(NOT tag STREQUAL own)
                list(APPEND result "${tag}")
            endif()
        endforeach()
    endif()
    set(${out} "${result}" PARENT_SCOPE)
endfunction()

file(REMOVE "${OUTPUT}")
# The listing is of the whole module, whatever shard or module the environment of the build names.
foreach(variable GTEST_TOTAL_SHARDS GTEST_SHARD_INDEX GTEST_SHARD_STATUS_FILE TESTHOST_MODULE)
    unset(ENV{${variable}})
endforeach()
execute_process(COMMAND "${HOST}" --list --format json ${SELECT} "${MODULE}"
                OUTPUT_VARIABLE listing ERROR_VARIABLE error RESULT_VARIABLE result TIMEOUT ${TIMEOUT})
if(NOT result EQUAL 0)
    message(FATAL_ERROR "zut_discover_tests: ${HOST} could not list ${MODULE} (${result}):\n${error}")
endif()

quoted(extra ${EXTRA_ARGS})
quoted(properties ${PROPERTIES})
# A case that calls exit(0) ends the host with success before the cases after it ran; the host says so on
# stderr, and that line fails the test whatever the exit status. PROPERTIES may set another expression.
set(exitedEarly ": ([^ ]+|the run) called exit")
set(script "")
function(add_one name filter labelList)
    quoted(command "${HOST}" --filter "${filter}")
    quoted(module "${MODULE}")
    bracket(test "${PREFIX}${name}")
    bracket(labelList "${labelList}")
    string(APPEND script "add_test(${test}${command}${extra}${module})\n"
                         "set_tests_properties(${test} PROPERTIES LABELS ${labelList}"
                         " FAIL_REGULAR_EXPRESSION [==[${exitedEarly}]==]${properties})\n")
    set(script "${script}" PARENT_SCOPE)
endfunction()

string(JSON classCount LENGTH "${listing}" classes)
if(classCount GREATER 0)
    math(EXPR lastClass "${classCount} - 1")
    foreach(classIndex RANGE ${lastClass})
        string(JSON class GET "${listing}" classes ${classIndex})
        string(JSON className GET "${class}" name)
        labels(classLabels "${class}" "${className}")
        if(PER STREQUAL "CLASS")
            add_one("${className}" "${className}.*" "${classLabels}")
            continue()
        endif()
        string(JSON caseCount LENGTH "${class}" cases)
        if(caseCount EQUAL 0)
            continue()
        endif()
        math(EXPR lastCase "${caseCount} - 1")
        foreach(caseIndex RANGE ${lastCase})
            string(JSON testCase GET "${class}" cases ${caseIndex})
            string(JSON caseName GET "${testCase}" name)
            labels(caseLabels "${testCase}" "${caseName}")
            set(allLabels ${classLabels} ${caseLabels})
            # A generated case may have any name; the filter's own characters in it match themselves through '?',
            # so that the filter still selects that case, where they would have split or widened the pattern.
            string(REGEX REPLACE "[*?:-]" "?" filter "${className}.${caseName}")
            add_one("${className}.${caseName}" "${filter}" "${allLabels}")
        endforeach()
    endforeach()
endif()
file(WRITE "${OUTPUT}" "${script}")
