# Installation: headers, both libraries, a CMake package (find_package(conflink CONFIG)) and a
# pkg-config file.
include(CMakePackageConfigHelpers)

#
# Each file belongs to one of three components, which are also the Debian packages
# (cmake/package.cmake): runtime (the shared libraries a program runs with), dev (what building
# against them takes, and the testing library) and tools (the programs and the protocol reference).
install(DIRECTORY conflink/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/conflink COMPONENT dev
        FILES_MATCHING PATTERN "*.h" PATTERN "testing" EXCLUDE PATTERN "*test*" EXCLUDE
        PATTERN "queue_*.h" EXCLUDE)
install(FILES conflink/testing/link_pair.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/conflink/testing
        COMPONENT dev)
install(TARGETS conflink conflink_platform EXPORT conflinkTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS conflink_testing EXPORT conflinkTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT conflinkTargets NAMESPACE conflink::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/conflink COMPONENT dev)
configure_package_config_file(cmake/conflinkConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/conflinkConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/conflink)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/conflinkConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/conflinkConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/conflinkConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/conflink COMPONENT dev)
# The .pc file finds its prefix relative to itself, so an install moved with --prefix still works.
file(RELATIVE_PATH CONFLINK_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/conflink.pc.in ${CMAKE_CURRENT_BINARY_DIR}/conflink.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/conflink.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# Installed libraries and programs find the libraries beside them wherever the prefix is put or
# moved, with no LD_LIBRARY_PATH: a library looks in its own directory (so libconflink finds
# libconflink_platform), a program in the library directory next to its own.
set_target_properties(conflink conflink_testing PROPERTIES INSTALL_RPATH "$ORIGIN")
foreach(tool conflink_queue conflink_decode)
  if(TARGET ${tool})
    set_target_properties(${tool} PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  endif()
endforeach()
