# The installed product: what cmake --install and the Debian packages give. The component `runtime`
# is what programs need to run, `dev` what they need to be built.
include(CMakePackageConfigHelpers)

install(TARGETS norvaks EXPORT norvaks
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(DIRECTORY ${NORVAKS_NLS_DIR} DESTINATION ${CMAKE_INSTALL_DATADIR}/norvaks COMPONENT runtime)

install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/norvaks COMPONENT dev
  FILES_MATCHING PATTERN "*.h")
install(PROGRAMS tools/norvaks-messages DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT dev)

# The package finds the rest from its own place, so an installed tree may be moved.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pkgconfig_to_prefix /prefix/${pkgconfig_dir} /prefix)
get_target_property(user_definitions norvaks INTERFACE_COMPILE_DEFINITIONS)
list(TRANSFORM user_definitions PREPEND -D OUTPUT_VARIABLE user_flags)
list(JOIN user_flags " " NORVAKS_USER_FLAGS)
configure_file(cmake/norvaks.pc.in norvaks.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/norvaks.pc DESTINATION ${pkgconfig_dir} COMPONENT dev)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/norvaks)
configure_package_config_file(cmake/norvaks-config.cmake.in norvaks-config.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(norvaks-config-version.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT norvaks NAMESPACE norvaks:: FILE norvaks-targets.cmake
  DESTINATION ${package_dir} COMPONENT dev)
install(FILES
  ${PROJECT_BINARY_DIR}/norvaks-config.cmake
  ${PROJECT_BINARY_DIR}/norvaks-config-version.cmake
  cmake/NorvaksMessages.cmake
  DESTINATION ${package_dir} COMPONENT dev)
