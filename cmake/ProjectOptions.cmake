# Warnings are errors on every compiler we support.
add_compile_options(-Wall -Wextra -Wpedantic -Werror)

if(SCRIPTING_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=address,undefined)
endif()

include(CheckIncludeFileCXX)
check_include_file_cxx(fakeit.hpp SCRIPTING_HAVE_FAKEIT)
