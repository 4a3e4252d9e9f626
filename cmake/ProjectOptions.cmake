# Warnings are errors on every compiler we support.
add_compile_options(-Wall -Wextra -Wpedantic -Werror)

if(SCRIPTING_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "SCRIPTING_FUZZ needs clang, whose libFuzzer it links (package libclang-rt-14-dev)")
    endif()
    set(SCRIPTING_SANITIZE ON)
    # Coverage feedback from every library the targets reach; only the targets link libFuzzer's main.
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(SCRIPTING_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=address,undefined)
endif()

if(SCRIPTING_TSAN)
    if(SCRIPTING_SANITIZE)
        message(FATAL_ERROR "ThreadSanitizer cannot be combined with AddressSanitizer")
    endif()
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
endif()

include(CheckIncludeFileCXX)
check_include_file_cxx(fakeit.hpp SCRIPTING_HAVE_FAKEIT)

# A program uses a small part of the libraries (a few error types, a few builder members, no declarations writer),
# and a static archive hands the linker whole object files. With each function and datum in a section of its own, the
# linker of a program that asks for it keeps only what the program reaches; the libraries ask for it on behalf of
# whoever links them, and so does the installed package (CMake targets and pkg-config alike).
set(SCRIPTING_CONSUMER_LINK_FLAGS "")
if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang" AND NOT APPLE AND NOT WIN32)
    set(SCRIPTING_CONSUMER_LINK_FLAGS "-Wl,--gc-sections")
endif()
function(scripting_library_sections target)
    if(SCRIPTING_CONSUMER_LINK_FLAGS)
        target_compile_options(${target} PRIVATE -ffunction-sections -fdata-sections)
        target_link_options(${target} INTERFACE ${SCRIPTING_CONSUMER_LINK_FLAGS})
    endif()
endfunction()

# Sources of `target` whose code is cold (setup, failure reports) are optimized for size in the optimized
# configurations; Debug keeps -O0.
function(scripting_size_optimized target)
    get_target_property(sourceDir ${target} SOURCE_DIR)
    list(TRANSFORM ARGN PREPEND "${sourceDir}/")
    set_source_files_properties(${ARGN} TARGET_DIRECTORY ${target}
                                PROPERTIES COMPILE_OPTIONS "$<$<CONFIG:Release,RelWithDebInfo>:-Os>")
endfunction()
