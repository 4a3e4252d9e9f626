# cmake -DSOURCE_DIR=<project> -P CheckEnttUsage.cmake
# Code outside the EnTT subset must build against upstream EnTT as well, so it may not reach what only the subset
# has: its internal namespace and the one header that upstream lacks.
file(GLOB_RECURSE sources LIST_DIRECTORIES false
     "${SOURCE_DIR}/Scripting/*.h" "${SOURCE_DIR}/Scripting/*.cpp" "${SOURCE_DIR}/bench/*.cpp"
     "${SOURCE_DIR}/TestHost/*.h" "${SOURCE_DIR}/TestHost/*.cpp" "${SOURCE_DIR}/CoreTestFramework/*.h"
     "${SOURCE_DIR}/CoreTestFramework/*.cpp" "${SOURCE_DIR}/Platform/*.h" "${SOURCE_DIR}/Platform/*.cpp"
     "${SOURCE_DIR}/Entt/test/*.cpp")
set(offenders "")
foreach(source IN LISTS sources)
    file(STRINGS "${source}" lines REGEX "entt::internal|entt/core/id_table\\.hpp")
    if(lines)
        string(APPEND offenders "\n${source}: ${lines}")
    endif()
endforeach()
if(offenders)
    message(FATAL_ERROR "only the EnTT subset may use its internals:${offenders}")
endif()
list(LENGTH sources count)
message(STATUS "${count} sources use EnTT's public interface only")
