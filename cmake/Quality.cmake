# Targets that format and check the sources (format, check-format, check-layers, tidy) and, with doxygen, make the API reference.
add_custom_target(format COMMAND ${PROJECT_SOURCE_DIR}/scripts/format WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
add_custom_target(check-format COMMAND ${PROJECT_SOURCE_DIR}/scripts/format --check
                  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
add_custom_target(check-layers COMMAND ${PROJECT_SOURCE_DIR}/scripts/check-layers
                  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_custom_target(tidy COMMAND ${PROJECT_SOURCE_DIR}/scripts/tidy ${CMAKE_BINARY_DIR}
                    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
endif()
find_program(TARVIXUPDATE_DOXYGEN doxygen)
mark_as_advanced(TARVIXUPDATE_DOXYGEN)
if(TARVIXUPDATE_DOXYGEN)
  add_custom_target(reference COMMAND ${PROJECT_SOURCE_DIR}/scripts/reference WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
endif()
