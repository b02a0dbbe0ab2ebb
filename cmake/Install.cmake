# What a program that embeds the library finds: headers, library and icon module, the CMake package and the pkg-config
# file; and the tool with its manual page.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Disk)

install(TARGETS Disk EXPORT DiskTargets)
install(TARGETS DiskIcons LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}) # found beside the library
install(DIRECTORY inc/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/disk)
install(EXPORT DiskTargets NAMESPACE Disk:: FILE DiskConfig.cmake DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/DiskConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/DiskConfigVersion.cmake DESTINATION ${package_dir})

file(RELATIVE_PATH TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /) # so that the installed tree can be moved
configure_file(cmake/disk.pc.in disk.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/disk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(DISK_TOOLS)
  install(TARGETS fileset)
  install(FILES docs/fileset.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
