# The rooms of the framework. Each sees the headers of its own folder and of those that it names as lower, and no others:
# their folders are reached through links of one folder for each room, so that a forbidden include does not compile.
set(TARVIX_ROOMS ${PROJECT_BINARY_DIR}/rooms)
file(REMOVE_RECURSE ${TARVIX_ROOMS})
file(MAKE_DIRECTORY ${TARVIX_ROOMS})

# tarvix_room(NAME [WITHOUT_QT] BELOW ... HEADERS ... SOURCES ... OBJECTS ... LIBRARIES ...): one folder of src/ as an object
# library. BELOW are the rooms that it may include from, with what these include from; HEADERS are its public headers,
# and OBJECTS those of them with signals or properties. The objects go into the shared library for hosts and into the static
# one for tests, benchmarks and the command-line tool.
function(tarvix_room NAME)
  cmake_parse_arguments(ARG "WITHOUT_QT" "" "BELOW;HEADERS;SOURCES;OBJECTS;LIBRARIES" ${ARGN})
  set(public ${PROJECT_SOURCE_DIR}/include/TarvixUpdate)
  file(MAKE_DIRECTORY ${TARVIX_ROOMS}/${NAME}/TarvixUpdate)
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${TARVIX_ROOMS}/${NAME}/${NAME} SYMBOLIC)
  foreach(header IN LISTS ARG_HEADERS)
    file(CREATE_LINK ${public}/${header}.h ${TARVIX_ROOMS}/${NAME}/TarvixUpdate/${header}.h SYMBOLIC)
  endforeach()
  list(TRANSFORM ARG_OBJECTS REPLACE "(.+)" "${public}/\\1.h")
  list(TRANSFORM ARG_BELOW PREPEND tarvix_)
  add_library(tarvix_${NAME} OBJECT ${ARG_SOURCES} ${ARG_OBJECTS})
  target_include_directories(tarvix_${NAME} PUBLIC ${TARVIX_ROOMS}/${NAME})
  target_link_libraries(tarvix_${NAME} PUBLIC tarvix_settings ${ARG_BELOW} ${ARG_LIBRARIES})
  if(ARG_WITHOUT_QT)
    set_target_properties(tarvix_${NAME} PROPERTIES AUTOMOC OFF)
  else()
    tarvix_use_precompiled(tarvix_${NAME} tarvix_precompiled)
  endif()
  set_property(GLOBAL APPEND PROPERTY TARVIX_ROOMS tarvix_${NAME})
endfunction()

# tarvix_see(TARGET ROOM): lets a target that is no room include from a room, and from those below it, without its objects.
function(tarvix_see TARGET ROOM)
  target_include_directories(${TARGET} PRIVATE $<TARGET_PROPERTY:tarvix_${ROOM},INTERFACE_INCLUDE_DIRECTORIES>)
endfunction()

# tarvix_see_tool(TARGET FOLDER): lets it include from a folder of tools/.
function(tarvix_see_tool TARGET FOLDER)
  file(MAKE_DIRECTORY ${TARVIX_ROOMS}/tools/${FOLDER})
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/tools/${FOLDER} ${TARVIX_ROOMS}/tools/${FOLDER}/${FOLDER} SYMBOLIC)
  target_include_directories(${TARGET} PUBLIC ${TARVIX_ROOMS}/tools/${FOLDER})
endfunction()

# tarvix_tool(NAME FOLDER [WITH_QT] [IN DIRECTORY] SOURCES ... LIBRARIES ...): a program of the framework's resources, from a
# folder of tools/. It stands alone, that is, needs nothing but the C library at run time, unless it uses the Qt of the bundle.
function(tarvix_tool NAME FOLDER)
  cmake_parse_arguments(ARG "WITH_QT" "IN" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(tarvix_tool_${NAME} ${ARG_SOURCES})
  set_target_properties(tarvix_tool_${NAME} PROPERTIES
    OUTPUT_NAME ${NAME} AUTOMOC OFF
    RUNTIME_OUTPUT_DIRECTORY ${TARVIXUPDATE_RESOURCES_DIR}${ARG_IN})
  target_link_libraries(tarvix_tool_${NAME} PRIVATE tarvix_settings ${ARG_LIBRARIES})
  tarvix_see_tool(tarvix_tool_${NAME} ${FOLDER})
  if(NOT ARG_WITH_QT)
    target_link_libraries(tarvix_tool_${NAME} PRIVATE tarvix_standing_alone)
  endif()
endfunction()
