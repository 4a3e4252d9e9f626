# scripting_add_documented_program(<target> <test> <label> <source dir> <block>)
# A whole program shown in the documentation (a Markdown `cpp` block with a `main`) is built on the Lua runtime
# and run by the CTest <test>; its comment "// prints TEXT" is the one line it must print. The text is used as a
# regular expression, so the documentation keeps to plain words and numbers there.
function(scripting_add_documented_program target test label sourceDir block)
    set(source ${sourceDir}/${target}.cpp)
    # Rewritten only when the block changed, so that a configure alone rebuilds nothing.
    file(CONFIGURE OUTPUT ${source} CONTENT "${block}" @ONLY)
    add_executable(${target} ${source})
    target_link_libraries(${target} PRIVATE Scripting::Lua)
    add_test(NAME ${test} COMMAND ${target})
    set_tests_properties(${test} PROPERTIES LABELS ${label})
    string(REGEX MATCH "// prints ([^\n]*)" printsComment "${block}")
    if(printsComment)
        set_tests_properties(${test} PROPERTIES PASS_REGULAR_EXPRESSION "^${CMAKE_MATCH_1}\n$")
    endif()
endfunction()
