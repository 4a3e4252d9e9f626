# cmake -DSOURCE_DIR=... -DBUILD_DIR=... -DPREFIX=... -DLUA=ON|OFF -P InstallPrefix.cmake
#
# Installs the built tree into a fresh prefix, which the consumer checks then use, and checks what it holds: the
# files a consumer needs, and nothing that points back into the source or build tree.
foreach(var SOURCE_DIR BUILD_DIR PREFIX)
    if(NOT DEFINED ${var})
        message(FATAL_ERROR "needs -D${var}=...")
    endif()
endforeach()

file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX}
                RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "installing: exit ${result}\n${output}")
endif()

set(expected bin/testhost bin/contracthost lib/libScripting.a lib/libScriptingPlatform.a
    lib/libScriptingCoreTestFramework.a include/scripting/Scripting/Version.h
    include/scripting/ZentaryUnitTest/TestClass.h include/scripting/Diagnostics/Assert.h
    include/scripting/entt/entt.hpp lib/cmake/Scripting/ScriptingConfig.cmake
    lib/cmake/Scripting/ScriptingConfigVersion.cmake lib/cmake/Scripting/TestModule.cmake
    lib/cmake/Scripting/CompareHosts.cmake lib/pkgconfig/scripting.pc)
if(LUA)
    # Every header of the runtime's public folder, whatever it holds by now.
    file(GLOB luaHeaders RELATIVE ${SOURCE_DIR}/ScriptingLua/include ${SOURCE_DIR}/ScriptingLua/include/Scripting/Lua/*)
    list(TRANSFORM luaHeaders PREPEND include/scripting/)
    list(APPEND expected lib/libScriptingLua.a lib/cmake/Scripting/ScriptingLuaTargets.cmake
         lib/pkgconfig/scripting-lua.pc ${luaHeaders})
endif()
foreach(file IN LISTS expected)
    if(NOT EXISTS ${PREFIX}/${file})
        file(GLOB_RECURSE installed RELATIVE ${PREFIX} ${PREFIX}/*)
        message(FATAL_ERROR "the install lacks ${file}; it holds:\n${installed}")
    endif()
endforeach()
file(GLOB_RECURSE packageFiles ${PREFIX}/lib/cmake/Scripting/*.cmake ${PREFIX}/lib/pkgconfig/*.pc)
foreach(file IN LISTS packageFiles)
    file(READ ${file} text)
    string(FIND "${text}" "${SOURCE_DIR}" source)
    string(FIND "${text}" "${BUILD_DIR}" build)
    if(source GREATER -1 OR build GREATER -1)
        message(FATAL_ERROR "${file} names the source or build tree")
    endif()
endforeach()
message(STATUS "installed into ${PREFIX}")
