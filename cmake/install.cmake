# What `cmake --install` puts where: libraries, public headers, the CMake package, pkg-config, the viewer.

include(CMakePackageConfigHelpers)

install(TARGETS zelqcood zelqcoob pumwtrac zelqsp1 EXPORT zelqcood-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/zelqcood platform/include/zelqplatform DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT zelqcood-targets NAMESPACE zelqcood:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zelqcood)

configure_package_config_file(cmake/zelqcoodConfig.cmake.in ${PROJECT_BINARY_DIR}/zelqcoodConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zelqcood)
# The 32-bit libraries are used from a CMake run whose compiler defaults to 64 bits (-m32), which
# is why the width is not part of the version check.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zelqcoodConfigVersion.cmake
  COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
install(FILES ${PROJECT_BINARY_DIR}/zelqcoodConfig.cmake ${PROJECT_BINARY_DIR}/zelqcoodConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zelqcood)

if(ZELQCOOD_32BIT)
  set(ZELQCOOD_PC_FLAGS "-m32 ")
endif()
configure_file(cmake/zelqcood.pc.in ${PROJECT_BINARY_DIR}/zelqcood.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zelqcood.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(ZELQCOOD_TOOLS)
  install(TARGETS zelq RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES docs/zelq.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES tools/zelq.bash-completion DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME zelq)
endif()
