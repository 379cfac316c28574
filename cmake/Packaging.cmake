# Debian packages: `cpack -G DEB --config <build dir>/CPackConfig.cmake` makes
#   libbvgeo1        the shared library libbvgeo.so.1 (C API and public C++ API)
#   libbvgeo-dev     headers, static libraries, CMake package, pkg-config file
#   bvgeo            the command line, its man page and the example data
#   python3-bvgeo    the Python package over the C API
# each with its copyright file and changelog, as lintian expects. The packages
# install under /usr (the library in /usr/lib, the Python package where Debian's
# python3 looks).

set(BVGEO_DEBIAN_DIR ${PROJECT_BINARY_DIR}/debian-docs)
foreach(package libbvgeo1 libbvgeo-dev bvgeo python3-bvgeo)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
    COMPONENT ${package})
  install(FILES ${BVGEO_DEBIAN_DIR}/changelog.Debian.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
    COMPONENT ${package})
endforeach()

# Compressed the way Debian wants: gzip -9n (no name or time stamp in the header).
find_program(BVGEO_GZIP gzip REQUIRED)
add_custom_command(OUTPUT ${BVGEO_DEBIAN_DIR}/changelog.Debian.gz ${BVGEO_DEBIAN_DIR}/bvgeo.1.gz
  COMMAND ${CMAKE_COMMAND} -E make_directory ${BVGEO_DEBIAN_DIR}
  COMMAND ${BVGEO_GZIP} -9nc ${PROJECT_SOURCE_DIR}/cmake/debian/changelog > ${BVGEO_DEBIAN_DIR}/changelog.Debian.gz
  COMMAND ${BVGEO_GZIP} -9nc ${PROJECT_SOURCE_DIR}/apps/bvgeo.1 > ${BVGEO_DEBIAN_DIR}/bvgeo.1.gz
  DEPENDS ${PROJECT_SOURCE_DIR}/cmake/debian/changelog ${PROJECT_SOURCE_DIR}/apps/bvgeo.1 VERBATIM)
add_custom_target(bvgeo_debian_docs ALL DEPENDS ${BVGEO_DEBIAN_DIR}/changelog.Debian.gz ${BVGEO_DEBIAN_DIR}/bvgeo.1.gz)
install(FILES ${BVGEO_DEBIAN_DIR}/bvgeo.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT bvgeo)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME bvgeo)
set(CPACK_PACKAGE_VENDOR "the bvgeo developers")
set(CPACK_PACKAGE_CONTACT "bvgeo developers <bvgeo@users.noreply.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# Installed with DESTDIR, so what the install writes about its prefix (the Python
# package's _location.py) names /usr, not the staging directory.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL libbvgeo1 libbvgeo-dev bvgeo python3-bvgeo)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "")
set(BVGEO_DEB_VERSION "${PROJECT_VERSION}-1")

set(CPACK_DEBIAN_LIBBVGEO1_PACKAGE_NAME libbvgeo1)
set(CPACK_DEBIAN_LIBBVGEO1_PACKAGE_SECTION libs)
# A shlibs file for packages built against it, and dpkg's ldconfig trigger.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/libbvgeo1.triggers ${BVGEO_DEBIAN_DIR}/libbvgeo1/triggers COPYONLY)
set(CPACK_DEBIAN_LIBBVGEO1_PACKAGE_CONTROL_EXTRA ${BVGEO_DEBIAN_DIR}/libbvgeo1/triggers)
set(CPACK_COMPONENT_LIBBVGEO1_DESCRIPTION "geofencing library: zones, fences, enter/linger/exit triggers
bvgeo snaps device positions to grid cells, fetches each cell's circular fences
from a server, decides enter, linger and exit triggers, stores them in SQLite
and posts them to an HTTP API. This package holds the shared library with the
C API and the public C++ API.")

set(CPACK_DEBIAN_LIBBVGEO-DEV_PACKAGE_NAME libbvgeo-dev)
set(CPACK_DEBIAN_LIBBVGEO-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_LIBBVGEO-DEV_PACKAGE_DEPENDS
  "libbvgeo1 (= ${BVGEO_DEB_VERSION}), libsqlite3-dev, libcurl4-openssl-dev | libcurl-dev, nlohmann-json3-dev, libgeographiclib-dev, libgps-dev, libcpp-httplib-dev, pkg-config")
set(CPACK_COMPONENT_LIBBVGEO-DEV_DESCRIPTION "geofencing library: development files
Headers of the C API (bvgeo/bvgeo.h) and of the C++ API, the static libraries
(the library and its testing bundle), the CMake package (find_package(bvgeo))
and the pkg-config file (pkg-config bvgeo).")

set(CPACK_DEBIAN_BVGEO_PACKAGE_NAME bvgeo)
set(CPACK_DEBIAN_BVGEO_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_BVGEO_DESCRIPTION "geofencing library: command line and reference server
The bvgeo program: a demo, replay of recorded GPX, NMEA and CSV tracks in
virtual time, live tracking from gpsd, a reference zone and trigger server, a
zone-file builder and the debug console, with example tracks and places.")

set(CPACK_DEBIAN_PYTHON3-BVGEO_PACKAGE_NAME python3-bvgeo)
set(CPACK_DEBIAN_PYTHON3-BVGEO_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON3-BVGEO_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON3-BVGEO_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PYTHON3-BVGEO_PACKAGE_DEPENDS "python3:any, libbvgeo1 (>= ${BVGEO_DEB_VERSION})")
set(CPACK_COMPONENT_PYTHON3-BVGEO_DESCRIPTION "geofencing library: Python 3 package
The bvgeo package: the tracker over the C API with ctypes (triggers to a
Python callable, positions fed from Python, virtual time) and replay() of
recorded tracks.")

include(CPack)

# The API reference, from the public headers' own comments (scripts/doxygen-filter.py
# turns them into Doxygen's). A warning about a public header fails the target.
find_package(Doxygen QUIET)
find_package(Python3 COMPONENTS Interpreter QUIET)
if(DOXYGEN_FOUND AND Python3_FOUND)
  set(BVGEO_DOCS_DIR ${PROJECT_BINARY_DIR}/docs)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/Doxyfile.in ${PROJECT_BINARY_DIR}/Doxyfile @ONLY)
  add_custom_target(docs COMMAND ${DOXYGEN_EXECUTABLE} ${PROJECT_BINARY_DIR}/Doxyfile
    WORKING_DIRECTORY ${PROJECT_BINARY_DIR} COMMENT "API reference in ${BVGEO_DOCS_DIR}/html" VERBATIM)
  if(BVGEO_BUILD_TESTS)
    add_test(NAME Docs.PublicHeadersMakeTheReferenceWithoutWarnings
             COMMAND ${CMAKE_COMMAND} --build ${PROJECT_BINARY_DIR} --target docs)
  endif()
endif()
