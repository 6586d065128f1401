# `make package`: Debian packages in Debian's split, built by CPack from the install components.
#   libvantabase5          runtime   the core library (SONAME libvantabase.so.5) and its resources
#   libvantabase-widgets5  widgets   the widgets library (SONAME libvantabase-widgets.so.5)
#   libvantabase-dev       dev       headers, .so links, the CMake package, the pkg-config files
#   vanta                  tool      the vanta program, its manual page, its bash completion
# Every package carries its copyright file and changelog; the library packages carry shlibs and
# symbols files and an ldconfig trigger instead of maintainer scripts.
set(VANTA_DEB_VERSION ${PROJECT_VERSION})
set(VANTA_DEB_MAINTAINER "vanta-base developers <vanta-base@orvane.com>")
set(VANTA_DEB_COMPONENTS runtime widgets dev tool)
set(VANTA_DEB_NAME_runtime libvantabase${VANTA_SOVERSION})
set(VANTA_DEB_NAME_widgets libvantabase-widgets${VANTA_SOVERSION})
set(VANTA_DEB_NAME_dev libvantabase-dev)
set(VANTA_DEB_NAME_tool vanta)

# The changelog, in Debian's format and compressed as policy asks (gzip -9n: no name, no time
# stamp, so the packages build the same twice).
string(TIMESTAMP VANTA_DEB_DATE "%a, %d %b %Y 00:00:00 +0000" UTC)
set(VANTA_DEB_DIR ${CMAKE_BINARY_DIR}/debian)
file(WRITE ${VANTA_DEB_DIR}/changelog
"vanta-base (${VANTA_DEB_VERSION}) stable; urgency=medium

  * Release ${VANTA_DEB_VERSION}.

 -- ${VANTA_DEB_MAINTAINER}  ${VANTA_DEB_DATE}
")
execute_process(COMMAND gzip -9nf ${VANTA_DEB_DIR}/changelog)

# Each library package: shlibs and symbols (dependents need at least the version that introduced
# what they use) and a trigger that refreshes the loader cache once per dpkg run.
foreach(lib runtime widgets)
  if(lib STREQUAL runtime)
    set(soname libvantabase)
  else()
    set(soname libvantabase-widgets)
  endif()
  set(dir ${VANTA_DEB_DIR}/${lib})
  file(MAKE_DIRECTORY ${dir})
  file(WRITE ${dir}/triggers "activate-noawait ldconfig\n")
  file(WRITE ${dir}/shlibs
       "${soname} ${VANTA_SOVERSION} ${VANTA_DEB_NAME_${lib}} (>= ${VANTA_DEB_VERSION})\n")
  file(READ ${PROJECT_SOURCE_DIR}/abi/${soname}.symbols symbols)
  file(WRITE ${dir}/symbols "${soname}.so.${VANTA_SOVERSION} ${VANTA_DEB_NAME_${lib}} #MINVER#
* Build-Depends-Package: ${VANTA_DEB_NAME_dev}
${symbols}")
  string(TOUPPER ${lib} LIB)
  set(CPACK_DEBIAN_${LIB}_PACKAGE_CONTROL_EXTRA ${dir}/shlibs ${dir}/symbols ${dir}/triggers)
  set(CPACK_DEBIAN_${LIB}_PACKAGE_CONTROL_STRICT_PERMISSION ON)
endforeach()
# The symbols files follow the committed lists: a change to either reconfigures.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/abi/libvantabase.symbols ${PROJECT_SOURCE_DIR}/abi/libvantabase-widgets.symbols)

foreach(component ${VANTA_DEB_COMPONENTS})
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright ${VANTA_DEB_DIR}/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${VANTA_DEB_NAME_${component}}
          COMPONENT ${component} EXCLUDE_FROM_ALL)
  string(TOUPPER ${component} COMPONENT)
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${VANTA_DEB_NAME_${component}})
endforeach()
# CPack's own dependency scan would also give the library packages maintainer scripts that call
# ldconfig; their Depends come from dpkg-shlibdeps run by cmake/cpack-project.cmake instead, and
# only the tool's from CPack's scan.
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_BINARY_DIR}/debian/cpack-project.cmake)
configure_file(${CMAKE_CURRENT_LIST_DIR}/cpack-project.cmake.in ${CPACK_PROJECT_CONFIG_FILE} @ONLY)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "foundation library of the globe application
Status codes, locks and threads, timers, memory pools, typed and observable
settings, readers for coordinates, dates and XML, and platform services
(clock, machine facts, locales, paths and files, zip archives, packaged
resources, libraries and processes), on Qt 6 Core and Gui.
.
This package holds the shared library and its packaged resources.")
set(CPACK_DEBIAN_WIDGETS_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_WIDGETS_DESCRIPTION "foundation library of the globe application - widgets
The Qt Widgets part of vanta-base: the low-memory message dialog and the
message box behind System::AsyncMessageBox. Programs that use only the core
library never load it.")
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "foundation library of the globe application - development files
Headers under /usr/include/vanta, the CMake package VantaBase (targets
Vanta::Base and Vanta::Widgets) and the pkg-config files vantabase and
vantabase-widgets, for building programs against vanta-base.")
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_DESCRIPTION "try the parsers and services of vanta-base from a shell
The vanta command reads coordinates, ISO 8601 and HTTP dates, XML files,
resource dictionaries and status codes, describes the machine, and shows
the low-memory dialog, one result per line. A text of '-' reads one text
per line from standard input.")

# The -dev package needs the libraries at exactly this version and the -dev packages of what
# the public headers and the pkg-config files name.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
  "${VANTA_DEB_NAME_runtime} (= ${VANTA_DEB_VERSION}), ${VANTA_DEB_NAME_widgets} (= ${VANTA_DEB_VERSION}), qt6-base-dev, libexpat1-dev, libminizip-dev, zlib1g-dev, pkg-config")

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${VANTA_DEB_COMPONENTS})
set(CPACK_PACKAGE_NAME vanta-base)
set(CPACK_PACKAGE_VENDOR "Orvane")
set(CPACK_PACKAGE_CONTACT "${VANTA_DEB_MAINTAINER}")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://vanta.orvane.com/")
set(CPACK_DEBIAN_PACKAGE_SOURCE vanta-base)
set(CPACK_DEBIAN_PACKAGE_VERSION ${VANTA_DEB_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Debug information stays in the build tree; the packages ship stripped binaries.
set(CPACK_STRIP_FILES ON)
# dpkg-shlibdeps reads the packages' own shlibs for the libraries they depend on among each other.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/libs/base)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS OFF)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS
  "${VANTA_DEB_NAME_runtime} (>= ${VANTA_DEB_VERSION}), ${VANTA_DEB_NAME_widgets} (>= ${VANTA_DEB_VERSION})")
set(CPACK_DEBIAN_WIDGETS_PACKAGE_DEPENDS "${VANTA_DEB_NAME_runtime} (>= ${VANTA_DEB_VERSION})")
include(CPack)
