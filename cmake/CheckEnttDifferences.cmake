# cmake -DCXX_COMPILER=... -DINCLUDES=<EnTT include dirs> -DUPSTREAM=<0|1> -DWORK_DIR=... -P CheckEnttDifferences.cmake
#
# The differences from upstream EnTT that show at compile time: each row is a unit that compiles against one and not
# the other, tried against the EnTT the project builds with. The first row compiles against both, so that a broken
# include path cannot pass the rows that expect a failure.
foreach(var CXX_COMPILER INCLUDES UPSTREAM WORK_DIR)
    if(NOT DEFINED ${var})
        message(FATAL_ERROR "CheckEnttDifferences.cmake needs -D${var}=...")
    endif()
endforeach()
file(MAKE_DIRECTORY ${WORK_DIR})
set(flags -std=c++20 -fsyntax-only)
foreach(directory IN LISTS INCLUDES)
    list(APPEND flags -I${directory})
endforeach()

set(failures "")
# try(<name> <compiles with the subset> <compiles with upstream> <source>)
function(try name subset upstream source)
    set(file ${WORK_DIR}/${name}.cpp)
    file(WRITE ${file} "${source}")
    execute_process(COMMAND ${CXX_COMPILER} ${flags} ${file} RESULT_VARIABLE result OUTPUT_VARIABLE output
                    ERROR_VARIABLE output)
    set(expected ${subset})
    if(UPSTREAM)
        set(expected ${upstream})
    endif()
    if(result EQUAL 0)
        set(compiled 1)
    else()
        set(compiled 0)
    endif()
    if(NOT compiled EQUAL expected)
        set(failures "${failures}\n${name}: compiled ${compiled}, expected ${expected}\n${output}" PARENT_SCOPE)
    endif()
endfunction()

try(template_info_with_its_header 1 1 [=[
#include <entt/meta/meta.hpp>
#include <entt/meta/resolve.hpp>
#include <entt/meta/template.hpp>
#include <optional>
int main() { return static_cast<int>(entt::resolve<std::optional<int>>().template_arity()) - 1; }
]=])
# Upstream gives the type no template information in such a unit, and another unit may give it some.
try(template_info_without_its_header 0 1 [=[
#include <entt/meta/meta.hpp>
#include <entt/meta/resolve.hpp>
#include <optional>
int main() { return static_cast<int>(entt::resolve<std::optional<int>>().template_arity()); }
]=])
try(context_header_declares_the_meta_classes 1 0 [=[
#include <entt/meta/context.hpp>
entt::meta_any* pointer = nullptr;
int main() { return pointer == nullptr ? 0 : 1; }
]=])
try(id_table_header 1 0 [=[
#include <entt/core/id_table.hpp>
int main() { return 0; }
]=])

if(failures)
    message(FATAL_ERROR "EnTT differs from what Entt/README.md says:${failures}")
endif()
message(STATUS "the compile-time differences are as Entt/README.md says (upstream: ${UPSTREAM})")
