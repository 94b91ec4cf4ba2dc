# tarvix_folder(NAME SOURCES ... LIBRARIES ...): one folder of the framework as an object library. The
# objects go into the shared library for hosts and into the static one for tests, benchmarks and the
# command-line tool.
function(tarvix_folder NAME)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_library(tarvix_${NAME} OBJECT ${ARG_SOURCES})
  target_link_libraries(tarvix_${NAME} PUBLIC tarvix_settings ${ARG_LIBRARIES})
  tarvix_use_precompiled(tarvix_${NAME} tarvix_precompiled)
  set_property(GLOBAL APPEND PROPERTY TARVIX_FOLDERS tarvix_${NAME})
endfunction()

# tarvix_tool(NAME DIRECTORY [WITH_QT] SOURCES ... LIBRARIES ...): a program of the framework's resources. It stands
# alone, that is, needs nothing but the C library at run time, unless it uses the Qt of the bundle.
function(tarvix_tool NAME DIRECTORY)
  cmake_parse_arguments(ARG "WITH_QT" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(tool_${NAME} ${ARG_SOURCES})
  set_target_properties(tool_${NAME} PROPERTIES
    OUTPUT_NAME ${NAME} AUTOMOC OFF
    RUNTIME_OUTPUT_DIRECTORY ${TARVIXUPDATE_RESOURCES_DIR}${DIRECTORY})
  target_link_libraries(tool_${NAME} PRIVATE tarvix_settings ${ARG_LIBRARIES})
  if(NOT ARG_WITH_QT)
    target_link_libraries(tool_${NAME} PRIVATE tarvix_standing_alone)
  endif()
endfunction()
