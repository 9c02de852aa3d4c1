# Debian packages, made by `cpack` in a build configured with CMAKE_INSTALL_PREFIX=/usr (the
# 'package' and 'ppc' presets):
#   libconflink0     the shared libraries
#   libconflink-dev  headers, CMake package, pkg-config file and the testing library
#   conflink-tools   conflink_queue, conflink_decode and the protocol reference
# The -dev and tools packages need libconflink0 of exactly their own version.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME conflink)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "conflink developers <conflink-dev@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Packages carry stripped files, as Debian's do; the build keeps the debug information (the ABI
# check reads it there).
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(conflink_deb_version "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libconflink0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "conflink: control messages between PS, CC and CGI over shared-memory queues\n The shared libraries libconflink and libconflink_platform.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libconflink-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "conflink: development files\n Headers, the CMake package (find_package(conflink)), the pkg-config file and\n libconflink_testing, both ends of a link in one process for unit tests.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME conflink-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "conflink: command-line tools\n conflink_queue inspects and removes queues, conflink_decode decodes messages,\n and the protocol reference lists every message of both links.")

set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libconflink0 (= ${conflink_deb_version})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libconflink0 (= ${conflink_deb_version})")

if(CMAKE_CROSSCOMPILING)
  # dpkg-shlibdeps cannot read another architecture's C library here: name the dependencies.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6, libgcc-s1, libstdc++6")
  string(APPEND CPACK_DEBIAN_DEV_PACKAGE_DEPENDS ", libc6, libgcc-s1, libstdc++6")
  string(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ", libc6, libgcc-s1, libstdc++6")
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "powerpc")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE powerpc)
  endif()
else()
  # dpkg-shlibdeps adds the C and C++ libraries at the versions this build needs.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}
                                                  ${PROJECT_BINARY_DIR}/conflink/platform)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)
endif()

include(CPack)
