# Debian packages of the install components: cmake --preset packages && cmake --build --preset packages && cpack --preset packages
# cmake/packages/ holds files of the packages; Stage.cmake there completes them before CPack writes them.
# scripts/packages-check tests them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tarvixupdate)
set(CPACK_PACKAGE_CONTACT "The TarvixUpdate authors <tarvixupdate@example.org>")
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL TarvixUpdateCore TarvixUpdateWidgets TarvixUpdateDevelopment TarvixUpdateTools)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/packages/Stage.cmake)
set(CPACK_TARVIXUPDATE_FILES ${PROJECT_SOURCE_DIR}/cmake/packages)
set(CPACK_TARVIXUPDATE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_TARVIXUPDATE_LIBDIR ${CMAKE_INSTALL_LIBDIR})
set(CPACK_TARVIXUPDATE_RESOURCES ${installed_resources})
set(package_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

# tarvix_package(COMPONENT NAME SECTION SUMMARY DESCRIPTION): lines of DESCRIPTION are at most 79 characters long.
macro(tarvix_package COMPONENT NAME SECTION SUMMARY DESCRIPTION)
  string(TOUPPER ${COMPONENT} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${NAME})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${SECTION})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${SUMMARY}\n${DESCRIPTION}")
endmacro()
# Otherwise CPack would put the project's description before each SUMMARY.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(about "TarvixUpdate finds new builds of an application in a feed, verifies and
unpacks them, and replaces the application's bundle in one atomic step.
.
This package contains")
tarvix_package(TarvixUpdateCore libtarvixupdate0 libs "software updates for Qt applications"
"${about} the library for applications without windows, the
installer and the other tools that it starts.")
tarvix_package(TarvixUpdateWidgets libtarvixupdate-widgets0 libs "software updates for Qt applications - windows"
"${about} the standard user interface. Release notes are shown
as web pages if Qt WebEngine is installed.")
tarvix_package(TarvixUpdateDevelopment libtarvixupdate-dev libdevel "software updates for Qt applications - development files"
"${about} the headers, and the files for CMake and pkg-config.")
tarvix_package(TarvixUpdateTools txupdate devel "bundle and publish applications that update themselves"
"This command-line tool makes a bundle that runs without Qt from a built
program, packs, signs and uploads it, and edits the feed in which installed
applications find it. It can also check, update and report on installed
applications.")

# The dependencies on other packages of Debian are computed from the files. A package of this build needs the others of the same build.
set(CPACK_DEBIAN_TARVIXUPDATECORE_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TARVIXUPDATETOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TARVIXUPDATECORE_PACKAGE_RECOMMENDS "procps, xdg-utils")
set(CPACK_DEBIAN_TARVIXUPDATECORE_PACKAGE_SUGGESTS "pci.ids, pkexec | policykit-1")
# Stage.cmake appends what the files need.
set(CPACK_DEBIAN_TARVIXUPDATEWIDGETS_PACKAGE_DEPENDS "libtarvixupdate0 (= ${package_version})")
set(CPACK_DEBIAN_TARVIXUPDATEWIDGETS_PACKAGE_RECOMMENDS "qt6-svg-plugins | libqt6svg6")
set(CPACK_DEBIAN_TARVIXUPDATEDEVELOPMENT_PACKAGE_DEPENDS
    "libtarvixupdate0 (= ${package_version}), libtarvixupdate-widgets0 (= ${package_version}), qt6-base-dev")
set(CPACK_DEBIAN_TARVIXUPDATEDEVELOPMENT_PACKAGE_RECOMMENDS "txupdate")
set(CPACK_DEBIAN_TARVIXUPDATETOOLS_PACKAGE_DEPENDS "libtarvixupdate0 (= ${package_version})")
set(CPACK_DEBIAN_TARVIXUPDATETOOLS_PACKAGE_RECOMMENDS "binutils, patchelf")
set(CPACK_DEBIAN_TARVIXUPDATETOOLS_PACKAGE_SUGGESTS "libtarvixupdate-dev, rclone")

# The names of the packages contain the major version only, as their users expect, while the binary interface may change with each
# minor version. The dependencies of programs that link the libraries therefore exclude later versions.
set(next_interface ${PROJECT_VERSION_MAJOR})
if(PROJECT_VERSION_MAJOR EQUAL 0)
  math(EXPR next_interface "${PROJECT_VERSION_MINOR} + 1")
  set(next_interface 0.${next_interface})
else()
  math(EXPR next_interface "${PROJECT_VERSION_MAJOR} + 1")
endif()
foreach(component IN ITEMS Core Widgets)
  string(TOUPPER TarvixUpdate${component} upper)
  set(name ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(control ${PROJECT_BINARY_DIR}/packages/${name})
  file(CONFIGURE OUTPUT ${control}/shlibs @ONLY CONTENT
    "libTarvixUpdate${component} ${interface_version} ${name} (>= ${PROJECT_VERSION}), ${name} (<< ${next_interface}~)\n")
  file(CONFIGURE OUTPUT ${control}/triggers @ONLY CONTENT "activate-noawait ldconfig\n")
  set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${control}/shlibs ${control}/triggers)
endforeach()
include(CPack)
