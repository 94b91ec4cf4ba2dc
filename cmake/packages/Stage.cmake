# CPack runs this after it has copied the files of each package to CPACK_TEMPORARY_DIRECTORY, and before it writes the packages.
# Adds the texts that a Debian package must contain, compresses the manual page, and computes the dependencies of the package
# that has a plug-in for Qt WebEngine: it only recommends what this plug-in needs.
set(stage ${CPACK_TEMPORARY_DIRECTORY})
set(date "$ENV{SOURCE_DATE_EPOCH}")
if(date STREQUAL "")
  string(TIMESTAMP date "%s" UTC)
endif()
execute_process(COMMAND date -uR -d @${date} OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
file(READ ${CPACK_TARVIXUPDATE_LICENSE} license)
string(REGEX REPLACE "^MIT License\n\nCopyright [^\n]*\n\n" "" license "${license}")
string(REGEX REPLACE "\n\n" "\n.\n" license "${license}")
string(STRIP "${license}" license)
string(REPLACE "\n" "\n " license "${license}")

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(name ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(texts ${stage}/${component}/usr/share/doc/${name})
  file(WRITE ${texts}/copyright
    "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\nUpstream-Name: TarvixUpdate\n\n"
    "Files: *\nCopyright: 2026 The TarvixUpdate authors\nLicense: Expat\n\nLicense: Expat\n ${license}\n")
  file(WRITE ${texts}/changelog.Debian
    "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium\n\n"
    "  * See CHANGELOG.md in the source tree.\n\n -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
  set(compressed ${texts}/changelog.Debian)
  if(EXISTS ${CPACK_TARVIXUPDATE_FILES}/${name}.lintian-overrides)
    configure_file(${CPACK_TARVIXUPDATE_FILES}/${name}.lintian-overrides
                   ${stage}/${component}/usr/share/lintian/overrides/${name} COPYONLY)
  endif()
  file(GLOB pages ${stage}/${component}/usr/share/man/man1/*.1)
  execute_process(COMMAND gzip -9n ${compressed} ${pages} COMMAND_ERROR_IS_FATAL ANY)
  # Whatever umask the build has.
  execute_process(COMMAND chmod -R u=rwX,go=rX ${stage}/${component} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

set(widgets ${stage}/TarvixUpdateWidgets/usr)
set(resources ${widgets}/${CPACK_TARVIXUPDATE_RESOURCES})
file(GLOB pages ${resources}/TXUpdateWebView.so)
set(recommended)
if(pages)
  set(recommended -dRecommends -e${pages})
endif()
find_program(shlibdeps dpkg-shlibdeps)
if(NOT shlibdeps)
  message(FATAL_ERROR "The program dpkg-shlibdeps, which finds the packages that the libraries depend on, was not found. "
                      "Install dpkg-dev, then run cpack again.")
endif()
# dpkg-shlibdeps expects to run in a source package.
file(WRITE ${stage}/shlibdeps/debian/control "Source: tarvixupdate\n\nPackage: libtarvixupdate-widgets0\nArchitecture: any\n")
execute_process(
  COMMAND ${shlibdeps} -O --ignore-missing-info -l${stage}/TarvixUpdateCore/usr/${CPACK_TARVIXUPDATE_LIBDIR}
          -e${widgets}/${CPACK_TARVIXUPDATE_LIBDIR}/libTarvixUpdateWidgets.so.${CPACK_PACKAGE_VERSION}
          -e${resources}/TXUpdateInterface.so ${recommended}
  WORKING_DIRECTORY ${stage}/shlibdeps OUTPUT_VARIABLE found COMMAND_ERROR_IS_FATAL ANY)
if(NOT found MATCHES "shlibs:Depends=([^\n]+)")
  message(FATAL_ERROR "dpkg-shlibdeps found no dependencies of libtarvixupdate-widgets0: ${found}")
endif()
string(APPEND CPACK_DEBIAN_TARVIXUPDATEWIDGETS_PACKAGE_DEPENDS ", ${CMAKE_MATCH_1}")
if(found MATCHES "shlibs:Recommends=([^\n]+)")
  string(APPEND CPACK_DEBIAN_TARVIXUPDATEWIDGETS_PACKAGE_RECOMMENDS ", ${CMAKE_MATCH_1}")
endif()
file(REMOVE_RECURSE ${stage}/shlibdeps)
