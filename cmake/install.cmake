# Installs the library, its headers, its CMake package and its pkg-config module.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tarnwick-markdown)

install(DIRECTORY include/tarnwick TYPE INCLUDE)
install(TARGETS tarnwick_markdown EXPORT tarnwick-markdown-targets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT Development
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(EXPORT tarnwick-markdown-targets NAMESPACE tarnwick:: DESTINATION ${package_dir})

configure_package_config_file(cmake/tarnwick-markdown-config.cmake.in
  ${PROJECT_BINARY_DIR}/tarnwick-markdown-config.cmake INSTALL_DESTINATION ${package_dir})
# Before 1.0.0 a new minor version may break the API, so only the same minor version matches.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(compatibility SameMinorVersion)
else()
  set(compatibility SameMajorVersion)
endif()
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tarnwick-markdown-config-version.cmake
  COMPATIBILITY ${compatibility})
install(FILES ${PROJECT_BINARY_DIR}/tarnwick-markdown-config.cmake
              ${PROJECT_BINARY_DIR}/tarnwick-markdown-config-version.cmake
        DESTINATION ${package_dir})
install(FILES cmake/dependencies.cmake DESTINATION ${package_dir}
        RENAME tarnwick-markdown-dependencies.cmake)

# The .pc file finds the prefix from its own place, so the installed tree can be moved.
file(RELATIVE_PATH pc_prefix_from_pcfiledir "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" pc_prefix_from_pcfiledir "${pc_prefix_from_pcfiledir}")
configure_file(cmake/tarnwick-markdown.pc.in ${PROJECT_BINARY_DIR}/tarnwick-markdown.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tarnwick-markdown.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
