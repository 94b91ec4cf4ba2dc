# The modules ("rooms") of the framework: each folder of src/ is one. A module can include its own headers and those of the
# modules below it, which it names, and no others. The build makes one folder of links to headers for each module and puts only
# the permitted ones on the include path, so a forbidden include does not compile.
set(TARVIX_ROOMS ${PROJECT_BINARY_DIR}/rooms)
file(REMOVE_RECURSE ${TARVIX_ROOMS})
file(MAKE_DIRECTORY ${TARVIX_ROOMS})

# tarvix_room(NAME [WITHOUT_QT] BELOW ... HEADERS ... SOURCES ... OBJECTS ... LIBRARIES ...): defines a module as an object
# library. BELOW names the modules from which it may include; it may also include from the modules below these. HEADERS are its
# public headers. OBJECTS are those of them that moc must read. The objects go into a shared library for hosts and into the
# static library for tests, benchmarks and the command-line tool.
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

# tarvix_see(TARGET ROOM): lets a target that is not a module include from a module and from those below it, without linking their
# objects.
function(tarvix_see TARGET ROOM)
  target_include_directories(${TARGET} PRIVATE $<TARGET_PROPERTY:tarvix_${ROOM},INTERFACE_INCLUDE_DIRECTORIES>)
endfunction()

# tarvix_see_tool(TARGET FOLDER): lets a target include from a folder of tools/.
function(tarvix_see_tool TARGET FOLDER)
  file(MAKE_DIRECTORY ${TARVIX_ROOMS}/tools/${FOLDER})
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/tools/${FOLDER} ${TARVIX_ROOMS}/tools/${FOLDER}/${FOLDER} SYMBOLIC)
  target_include_directories(${TARGET} PUBLIC ${TARVIX_ROOMS}/tools/${FOLDER})
endfunction()

# tarvix_tool(NAME FOLDER [WITH_QT] [IN DIRECTORY] SOURCES ... LIBRARIES ...): a program in the framework's resources, built from a
# folder of tools/. It is stand-alone: it needs only the C library at run time. With WITH_QT it uses the Qt of the bundle as well.
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
