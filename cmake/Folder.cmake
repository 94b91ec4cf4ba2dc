# tarvix_folder(NAME SOURCES ... LIBRARIES ...): one folder of the framework as an object library. The
# objects go into the shared library for hosts and into the static one for tests, benchmarks and the
# command-line tool.
function(tarvix_folder NAME)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_library(tarvix_${NAME} OBJECT ${ARG_SOURCES})
  target_link_libraries(tarvix_${NAME} PUBLIC tarvix_settings ${ARG_LIBRARIES})
  set_property(GLOBAL APPEND PROPERTY TARVIX_FOLDERS tarvix_${NAME})
endfunction()

# tarvix_tool(NAME DIRECTORY SOURCES ... LIBRARIES ...): a stand-alone program of the framework's resources.
function(tarvix_tool NAME DIRECTORY)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(tool_${NAME} ${ARG_SOURCES})
  set_target_properties(tool_${NAME} PROPERTIES
    OUTPUT_NAME ${NAME} AUTOMOC OFF
    RUNTIME_OUTPUT_DIRECTORY ${TARVIXUPDATE_RESOURCES_DIR}${DIRECTORY})
  target_link_libraries(tool_${NAME} PRIVATE tarvix_settings ${ARG_LIBRARIES})
endfunction()
