# What `cmake --install` puts under the prefix, and the package another project finds:
#
#   find_package(Scripting CONFIG)   Scripting::Scripting, Scripting::CoreTestFramework, Scripting::Platform,
#                                    Scripting::testhost, Scripting::contracthost, EnTT::EnTT (the bundled subset,
#                                    when bundled), zut_add_test_module, zut_discover_tests, zut_add_contract_test
#     ... COMPONENTS Lua             and Scripting::Lua, with lua5.4 found through pkg-config by the package
#   pkg-config scripting             the library's compile and link flags
#   pkg-config scripting-lua         the Lua runtime's, with the library's and lua5.4's
#
# Headers go to include/scripting/ (the component folders keep their layout, so "UUID.h" stays out of the
# prefix's include/), libraries to lib/, the hosts to bin/, the CMake files to lib/cmake/Scripting/. With
# BUILD_SHARED_LIBS the libraries are built and installed once more as shared libraries (Scripting::Scripting_shared
# and so on); the static ones stay, since a test module links those (see README).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(SCRIPTING_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/scripting)
set(SCRIPTING_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/Scripting)

# The components name their include folders as plain paths, which suits the build. An installed target needs them
# for the build only, and the installed folder instead.
function(_scripting_installable_includes target)
    get_target_property(directories ${target} INTERFACE_INCLUDE_DIRECTORIES)
    set(wrapped "")
    foreach(directory IN LISTS directories)
        if(directory MATCHES "^\\$<")
            list(APPEND wrapped "${directory}")
        else()
            list(APPEND wrapped "$<BUILD_INTERFACE:${directory}>")
        endif()
    endforeach()
    list(APPEND wrapped "$<INSTALL_INTERFACE:${SCRIPTING_INSTALL_INCLUDEDIR}>")
    set_target_properties(${target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${wrapped}")
endfunction()

# The library targets the package exports, with the names they have there. A runtime built here joins this list
# with its export name: a Lua runtime target `ScriptingLua`, where it is built, becomes Scripting::Lua.
set(_scripting_exported Platform CoreTestFramework Scripting)
set_target_properties(Platform PROPERTIES OUTPUT_NAME ScriptingPlatform)
set_target_properties(CoreTestFramework PROPERTIES OUTPUT_NAME ScriptingCoreTestFramework)
if(TARGET ScriptingLua)
    list(APPEND _scripting_exported ScriptingLua)
    set_target_properties(ScriptingLua PROPERTIES EXPORT_NAME Lua)
endif()
foreach(target IN LISTS _scripting_exported)
    _scripting_installable_includes(${target})
    get_target_property(exportName ${target} EXPORT_NAME)
    if(NOT exportName)
        set(exportName ${target})
    endif()
    if(NOT TARGET Scripting::${exportName})
        add_library(Scripting::${exportName} ALIAS ${target})
    endif()
endforeach()

# A library's code was built sanitized, so whatever links it needs the sanitizer runtimes.
if(SCRIPTING_SANITIZE)
    target_link_options(Platform INTERFACE $<INSTALL_INTERFACE:-fsanitize=address,undefined>)
endif()

# The shared twin of a static library target: the same sources, includes, definitions and links (to the twins of
# what it links here), with every symbol visible, since the code carries no export annotations.
function(_scripting_add_shared_twin target)
    get_target_property(sourceDir ${target} SOURCE_DIR)
    get_target_property(sources ${target} SOURCES)
    set(absolute "")
    foreach(source IN LISTS sources)
        if(IS_ABSOLUTE "${source}")
            list(APPEND absolute "${source}")
        else()
            list(APPEND absolute "${sourceDir}/${source}")
        endif()
    endforeach()
    add_library(${target}_shared SHARED ${absolute})
    get_target_property(outputName ${target} OUTPUT_NAME)
    if(NOT outputName)
        set(outputName ${target})
    endif()
    get_target_property(exportName ${target} EXPORT_NAME)
    if(NOT exportName)
        set(exportName ${target})
    endif()
    set_target_properties(${target}_shared PROPERTIES
        OUTPUT_NAME ${outputName} EXPORT_NAME ${exportName}_shared
        CXX_VISIBILITY_PRESET default VISIBILITY_INLINES_HIDDEN OFF
        # Each finds the others beside itself, wherever the prefix is.
        INSTALL_RPATH "$ORIGIN"
        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
    foreach(property INCLUDE_DIRECTORIES INTERFACE_INCLUDE_DIRECTORIES COMPILE_DEFINITIONS COMPILE_OPTIONS
                     INTERFACE_COMPILE_DEFINITIONS INTERFACE_COMPILE_FEATURES INTERFACE_LINK_OPTIONS)
        get_target_property(value ${target} ${property})
        if(value)
            set_target_properties(${target}_shared PROPERTIES ${property} "${value}")
        endif()
    endforeach()
    foreach(property LINK_LIBRARIES INTERFACE_LINK_LIBRARIES)
        get_target_property(value ${target} ${property})
        if(value)
            foreach(twin IN LISTS _scripting_exported)
                list(TRANSFORM value REPLACE "^${twin}$" "${twin}_shared")
            endforeach()
            # A static library hands its private dependencies on to whoever links it; a shared one holds them.
            list(FILTER value EXCLUDE REGEX "^\\$<LINK_ONLY:")
            set_target_properties(${target}_shared PROPERTIES ${property} "${value}")
        endif()
    endforeach()
    add_library(Scripting::${exportName}_shared ALIAS ${target}_shared)
endfunction()

set(_scripting_core ${_scripting_exported})
list(REMOVE_ITEM _scripting_core ScriptingLua)
if(BUILD_SHARED_LIBS)
    foreach(target IN LISTS _scripting_exported)
        _scripting_add_shared_twin(${target})
    endforeach()
    list(TRANSFORM _scripting_core APPEND _shared OUTPUT_VARIABLE _scripting_twins)
    list(APPEND _scripting_core ${_scripting_twins})
endif()

set(_scripting_destinations
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS ${_scripting_core} testhost contracthost EXPORT ScriptingTargets ${_scripting_destinations})
install(EXPORT ScriptingTargets NAMESPACE Scripting:: DESTINATION ${SCRIPTING_INSTALL_CMAKEDIR})
set(_scripting_installables ${_scripting_core} testhost contracthost)

set(_scripting_header_folders ${PROJECT_SOURCE_DIR}/Platform/src/ ${PROJECT_SOURCE_DIR}/CoreTestFramework/src/
                              ${PROJECT_SOURCE_DIR}/Scripting/include/)
if(TARGET ScriptingLua)
    # An export of its own, which the package loads only when the Lua component is asked for: it is the one that
    # needs lua5.4 on the consumer's machine.
    set(_scripting_lua ScriptingLua)
    if(BUILD_SHARED_LIBS)
        list(APPEND _scripting_lua ScriptingLua_shared)
    endif()
    install(TARGETS ${_scripting_lua} EXPORT ScriptingLuaTargets ${_scripting_destinations})
    install(EXPORT ScriptingLuaTargets NAMESPACE Scripting:: DESTINATION ${SCRIPTING_INSTALL_CMAKEDIR})
    list(APPEND _scripting_installables ${_scripting_lua})
    # A whole folder, so that a header added to the runtime is installed without an edit here.
    list(APPEND _scripting_header_folders ${PROJECT_SOURCE_DIR}/ScriptingLua/include/)
endif()
# Everything the install rules copy, for a build that is made only to be installed.
add_custom_target(scripting_installables)
add_dependencies(scripting_installables ${_scripting_installables})
if(SCRIPTING_ENTT STREQUAL "bundled")
    # The subset answers to upstream's target name, in an export of its own so that it keeps that name.
    install(TARGETS EnTT EXPORT ScriptingEnTTTargets)
    install(EXPORT ScriptingEnTTTargets NAMESPACE EnTT:: DESTINATION ${SCRIPTING_INSTALL_CMAKEDIR})
    _scripting_installable_includes(EnTT)
    list(APPEND _scripting_header_folders ${PROJECT_SOURCE_DIR}/Entt/include/)
endif()
foreach(folder IN LISTS _scripting_header_folders)
    install(DIRECTORY ${folder} DESTINATION ${SCRIPTING_INSTALL_INCLUDEDIR}
            FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")
endforeach()

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ScriptingConfig.cmake.in
    ${PROJECT_BINARY_DIR}/package/ScriptingConfig.cmake INSTALL_DESTINATION ${SCRIPTING_INSTALL_CMAKEDIR})
# 0.x: a minor release may change anything.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/ScriptingConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/package/ScriptingConfig.cmake
    ${PROJECT_BINARY_DIR}/package/ScriptingConfigVersion.cmake
    ${PROJECT_SOURCE_DIR}/cmake/TestModule.cmake
    ${PROJECT_SOURCE_DIR}/cmake/TestModule.map
    ${PROJECT_SOURCE_DIR}/cmake/CheckExports.cmake
    ${PROJECT_SOURCE_DIR}/cmake/CompareHosts.cmake
    ${PROJECT_SOURCE_DIR}/cmake/DiscoverTests.cmake
    ${PROJECT_SOURCE_DIR}/CoreTestFramework/src/ZentaryUnitTest/TestModuleEntry.cpp
    DESTINATION ${SCRIPTING_INSTALL_CMAKEDIR})

# pkg-config: the prefix is found from the file's own place, so that the package may be installed anywhere.
file(RELATIVE_PATH _scripting_pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" _scripting_pc_to_prefix "${_scripting_pc_to_prefix}")
set(_scripting_pc_files scripting)
# An upstream EnTT is not installed with the library: its own entt.pc gives its include directory.
set(_scripting_pc_requires fmt)
if(SCRIPTING_ENTT STREQUAL "system")
    string(APPEND _scripting_pc_requires " entt")
endif()
if(TARGET ScriptingLua)
    list(APPEND _scripting_pc_files scripting-lua)
endif()
foreach(name IN LISTS _scripting_pc_files)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/package/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/package/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
