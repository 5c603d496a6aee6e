# What an installed hybase offers to its users' builds: find_package(hybase), hybase.pc, hyplatform.pc.
# Components: runtime (the two libraries), development (headers, links, these files), tools.
include(CMakePackageConfigHelpers)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/hybase)
configure_package_config_file(cmake/hybase-config.cmake.in hybase-config.cmake
    INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(hybase-config-version.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT hybase-targets NAMESPACE hybase:: DESTINATION ${config_dir} COMPONENT development)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/hybase-config.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/hybase-config-version.cmake
    DESTINATION ${config_dir} COMPONENT development)

# A .pc file names the prefix, and `cmake --install --prefix` may give another one than was configured:
# so they are written when installed. Paths below the prefix stay relative to it, for a sysroot's sake.
foreach(kind LIB INCLUDE)
    string(TOLOWER ${kind} lower)
    set(${lower}dir "\${prefix}/${CMAKE_INSTALL_${kind}DIR}")
    if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}DIR}")
        set(${lower}dir "${CMAKE_INSTALL_${kind}DIR}")
    endif()
endforeach()
# Another platform library than our own may have another name, and needs what it needs.
set(platform_requires "")
if(HYBASE_PLATFORM STREQUAL hyplatform)
    set(platform_requires libmd)
endif()
foreach(name hyplatform hybase)
    install(CODE "
        set(platform_file [[$<TARGET_LINKER_FILE_NAME:${HYBASE_PLATFORM}>]])
        string(REGEX REPLACE [[^lib|\\.so.*]] [[]] platform_library \"\${platform_file}\")
        set(platform_requires [[${platform_requires}]])
        set(version [[${PROJECT_VERSION}]])
        set(cjson_version [[${HYBASE_CJSON_VERSION}]])
        set(time64_cflags [[${HYBASE_TIME64_CFLAGS}]])
        set(libdir [[${libdir}]])
        set(includedir [[${includedir}]])
        configure_file([[${CMAKE_CURRENT_SOURCE_DIR}/cmake/${name}.pc.in]]
            [[${CMAKE_CURRENT_BINARY_DIR}/${name}.pc]] @ONLY)"
        COMPONENT development)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()
