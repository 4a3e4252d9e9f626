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
