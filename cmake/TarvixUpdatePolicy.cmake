# A polkit policy for an application that is installed for all users. Without it, the password dialog says "Authentication is
# needed to run <path> as the super user". With it, the dialog names the application.
#
# tarvixupdate_install_policy(NAME "My App" IDENTIFIER org.example.MyApp BUNDLE /opt/MyApp.app [LAYOUT app|prefix]
#                             [DESTINATION DIR])
#   installs <identifier>.update.policy into DIR, by default share/polkit-1/actions below the prefix. polkit reads
#   /usr/share/polkit-1/actions: install with the prefix /usr, or pass that folder.
# tarvixupdate_write_policy(FILE PATH NAME ... IDENTIFIER ... BUNDLE ... [LAYOUT ...])
#   only writes the policy. Without a CMake project: cmake -DFILE=... -DNAME=... -DIDENTIFIER=... -DBUNDLE=... -P TarvixUpdatePolicy.cmake
#
# BUNDLE is the path of the application on the users' machines: an absolute path without symbolic links. It need not exist on
# this machine. LAYOUT is that of the bundle, as in tarvixupdate_add_bundle(): app, the default, or prefix for a folder such as
# /opt/myapp. polkit finds the policy by the path of the program that it is asked to start.
set(TARVIXUPDATE_POLICY_TEMPLATE "${CMAKE_CURRENT_LIST_DIR}/TarvixUpdatePolicy.policy.in")

function(tarvixupdate_write_policy)
  cmake_parse_arguments(PARSE_ARGV 0 ARG "" "FILE;NAME;IDENTIFIER;BUNDLE;LAYOUT" "")
  foreach(argument FILE NAME IDENTIFIER BUNDLE)
    if("${ARG_${argument}}" STREQUAL "")
      message(FATAL_ERROR "tarvixupdate_write_policy: ${argument} is missing.")
    endif()
  endforeach()
  if(NOT ARG_LAYOUT)
    set(ARG_LAYOUT app)
  endif()
  # The folder of the framework's tools is the one that `txupdate bundle` makes.
  if(ARG_LAYOUT STREQUAL "app")
    set(expected "^/[^\n]*[^/\n]\\.app$")
    set(example /opt/MyApp.app)
    set(libraries Contents/Frameworks)
  elseif(ARG_LAYOUT STREQUAL "prefix")
    set(expected "^/[^\n]*[^/.\n][^/\n]*$")
    set(example /opt/myapp)
    set(libraries Contents/lib)
  else()
    message(FATAL_ERROR "LAYOUT must be app or prefix; found \"${ARG_LAYOUT}\".")
  endif()
  if(NOT ARG_BUNDLE MATCHES "${expected}" OR ARG_BUNDLE MATCHES "/\\.?\\.?(/|$)")
    message(FATAL_ERROR "BUNDLE must be the absolute path of an application, such as ${example} for the layout ${ARG_LAYOUT}; "
                        "found \"${ARG_BUNDLE}\".")
  endif()
  # polkit replaces $(...) in messages, and both strings are in CDATA sections.
  if(ARG_NAME MATCHES "\\$\\(|[\n\r\t]" OR "${ARG_NAME}${ARG_BUNDLE}" MATCHES "]]>")
    message(FATAL_ERROR "NAME is shown to users and must hold neither \"$(\" nor \"]]>\" nor control characters, and "
                        "BUNDLE no \"]]>\"; found \"${ARG_NAME}\" and \"${ARG_BUNDLE}\".")
  endif()
  string(TOLOWER "${ARG_IDENTIFIER}.update" POLICY_ID)
  string(REPLACE "_" "-" POLICY_ID "${POLICY_ID}")
  if(NOT POLICY_ID MATCHES "^[a-z0-9-]+(\\.[a-z0-9-]+)+$")
    message(FATAL_ERROR "IDENTIFIER must be made of letters, digits, dots, dashes and underscores; found "
                        "\"${ARG_IDENTIFIER}\".")
  endif()
  set(POLICY_NAME "${ARG_NAME}")
  set(POLICY_PROGRAM "${ARG_BUNDLE}/${libraries}/TarvixUpdate/Resources/TXUpdateAuthorize")
  configure_file("${TARVIXUPDATE_POLICY_TEMPLATE}" "${ARG_FILE}" @ONLY NEWLINE_STYLE UNIX)
endfunction()

function(tarvixupdate_install_policy)
  cmake_parse_arguments(PARSE_ARGV 0 ARG "" "NAME;IDENTIFIER;BUNDLE;LAYOUT;DESTINATION" "")
  if(NOT ARG_DESTINATION)
    set(ARG_DESTINATION "share/polkit-1/actions")
  endif()
  string(TOLOWER "${ARG_IDENTIFIER}.update.policy" name)
  set(file "${CMAKE_CURRENT_BINARY_DIR}/${name}")
  tarvixupdate_write_policy(FILE "${file}" NAME "${ARG_NAME}" IDENTIFIER "${ARG_IDENTIFIER}" BUNDLE "${ARG_BUNDLE}"
                            LAYOUT "${ARG_LAYOUT}")
  install(FILES "${file}" DESTINATION "${ARG_DESTINATION}")
endfunction()

if(CMAKE_SCRIPT_MODE_FILE AND CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  tarvixupdate_write_policy(FILE "${FILE}" NAME "${NAME}" IDENTIFIER "${IDENTIFIER}" BUNDLE "${BUNDLE}" LAYOUT "${LAYOUT}")
endif()
