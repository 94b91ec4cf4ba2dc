# Targets that keep the tree in shape: format, check-format, check-layers, tidy.
add_custom_target(format COMMAND ${PROJECT_SOURCE_DIR}/scripts/format WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
add_custom_target(check-format COMMAND ${PROJECT_SOURCE_DIR}/scripts/format --check
                  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
add_custom_target(check-layers COMMAND ${PROJECT_SOURCE_DIR}/scripts/check-layers
                  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
add_custom_target(tidy COMMAND ${PROJECT_SOURCE_DIR}/scripts/tidy ${CMAKE_BINARY_DIR}
                  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
