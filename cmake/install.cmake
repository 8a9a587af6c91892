# What `cmake --install` puts where: libraries, public headers, the CMake package, pkg-config, manual
# pages, the viewer. The components are what the Debian packages are cut along.

include(CMakePackageConfigHelpers)

if(ZELQCOOD_32BIT AND NOT DEFINED CMAKE_INSTALL_LIBDIR)
  set(CMAKE_INSTALL_LIBDIR lib)  # not the folder of the host's width
endif()
include(GNUInstallDirs)

install(TARGETS zelqcood zelqcoob pumwtrac zelqsp1 EXPORT zelqcood-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)

install(DIRECTORY include/zelqcood platform/include/zelqplatform
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT headers)
install(FILES docs/zelqcood.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT headers)

# Debian's CMake looks into lib and its own width's folder, but not into lib32.
if(CMAKE_INSTALL_LIBDIR STREQUAL lib32)
  set(cmake_folder lib/cmake/zelqcood)
else()
  set(cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/zelqcood)
endif()
install(EXPORT zelqcood-targets NAMESPACE zelqcood:: DESTINATION ${cmake_folder} COMPONENT development)
configure_package_config_file(cmake/zelqcoodConfig.cmake.in ${PROJECT_BINARY_DIR}/zelqcoodConfig.cmake
  INSTALL_DESTINATION ${cmake_folder})
# With both widths installed, the version file is what makes find_package() pass over the wrong one.
# It records the compiler's width, which is the host's where the project itself adds -m32.
set(compiler_width ${CMAKE_SIZEOF_VOID_P})
if(ZELQCOOD_32BIT)
  set(CMAKE_SIZEOF_VOID_P 4)
endif()
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zelqcoodConfigVersion.cmake COMPATIBILITY SameMajorVersion)
set(CMAKE_SIZEOF_VOID_P ${compiler_width})
install(FILES ${PROJECT_BINARY_DIR}/zelqcoodConfig.cmake ${PROJECT_BINARY_DIR}/zelqcoodConfigVersion.cmake
  DESTINATION ${cmake_folder} COMPONENT development)

if(ZELQCOOD_32BIT)
  set(ZELQCOOD_PC_FLAGS "-m32 ")
endif()
string(REGEX REPLACE "[^/]+" ".." ZELQCOOD_PC_PREFIX ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
configure_file(cmake/zelqcood.pc.in ${PROJECT_BINARY_DIR}/zelqcood.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zelqcood.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(ZELQCOOD_TOOLS)
  install(TARGETS zelq RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES docs/zelq.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES tools/zelq.bash-completion DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME zelq COMPONENT tools)
endif()
