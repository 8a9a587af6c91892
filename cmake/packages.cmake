# What cpack makes Debian packages from. Each of the two package presets gives those of its width:
#
#   package-native   libzelqcood      libraries          libzelqcood-dev     CMake package, pkg-config
#                    zelq             viewer             zelqcood-headers    headers, zelqcood(3)
#   package-i386     lib32zelqcood    libraries          lib32zelqcood-dev   CMake package, pkg-config
#
# The lib32 packages belong to the 64-bit architecture, as Debian's own lib32 packages do: they need
# no foreign architecture, and the dynamic linker of 32-bit programs looks into /usr/lib32.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "zelqcood maintainers <maintainers@zelqcood.example>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_SOURCE_DIR}/build/packages)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE zelqcood)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)  # strips what is packaged; symbols for addr2line go to -dbgsym
set(CPACK_BUILD_SOURCE_DIRS ${PROJECT_SOURCE_DIR})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/compress-manuals.cmake)

if(ZELQCOOD_32BIT)
  set(library_package lib32zelqcood)
  set(width "32-bit")
  set(CPACK_COMPONENTS_ALL runtime development)
else()
  set(library_package libzelqcood)
  set(width "64-bit")
  set(CPACK_COMPONENTS_ALL runtime development headers tools)
endif()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/platform)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "error logs, trace scopes and exceptions (${width} libraries)
With zelqcood, service programs build log records with data items, write trace
lines and raise exceptions that carry an error log.

This package holds the ${width} libraries: zelqcood and the platform layer that
records the logs and keeps the trace.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${library_package}-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${library_package} (= ${PROJECT_VERSION}), zelqcood-headers (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "error logs, trace scopes and exceptions (${width} development)
With zelqcood, service programs build log records with data items, write trace
lines and raise exceptions that carry an error log.

This package lets CMake and pkg-config find the ${width} libraries.")

set(CPACK_DEBIAN_HEADERS_PACKAGE_NAME zelqcood-headers)
set(CPACK_DEBIAN_HEADERS_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_HEADERS_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_HEADERS_DESCRIPTION "error logs, trace scopes and exceptions (headers)
With zelqcood, service programs build log records with data items, write trace
lines and raise exceptions that carry an error log.

This package holds the headers, which are the same for every width, and the
manual page zelqcood(3).")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zelq)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "viewer for the error logs and the trace of zelqcood programs
zelq lists and shows the log records that programs using the zelqcood library
left on this machine, and prints their trace lines, of 32-bit and 64-bit
programs alike.")

# What every package carries in its own folder of /usr/share/doc.
set(changelog ${PROJECT_BINARY_DIR}/debian/changelog)
string(TIMESTAMP ZELQCOOD_CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)  # SOURCE_DATE_EPOCH, if set
configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in ${changelog} @ONLY)
execute_process(COMMAND gzip -9nf ${changelog} COMMAND_ERROR_IS_FATAL ANY)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  install(FILES ${changelog}.gz ${PROJECT_SOURCE_DIR}/cmake/debian/copyright
    DESTINATION share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME} COMPONENT ${component})
endforeach()

include(CPack)
