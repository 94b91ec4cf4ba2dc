# The two libraries that are made of the rooms' objects.
get_property(rooms GLOBAL PROPERTY TARVIX_ROOMS)
set(objects)
foreach(room IN LISTS rooms)
  list(APPEND objects $<TARGET_OBJECTS:${room}>)
endforeach()
set(dependencies
  Qt6::Network simdjson::simdjson PkgConfig::xml2 PkgConfig::plist ZLIB::ZLIB tarvix_static_sodium Threads::Threads)

add_library(TarvixUpdate SHARED ${objects})
add_library(TarvixUpdate::TarvixUpdate ALIAS TarvixUpdate)
target_link_libraries(TarvixUpdate PUBLIC Qt6::Core PRIVATE ${dependencies} Qt6::Widgets)
target_include_directories(TarvixUpdate PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(TarvixUpdate PUBLIC cxx_std_20)
set_target_properties(TarvixUpdate PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} AUTOMOC OFF LINKER_LANGUAGE CXX)
# What libsodium defines stays inside: a host may use another version of it.
target_link_options(TarvixUpdate PRIVATE -Wl,--no-undefined -Wl,--as-needed -Wl,--exclude-libs,libsodium.a)
if(TARVIXUPDATE_SANITIZE)
  set_target_properties(TarvixUpdate PROPERTIES LINK_OPTIONS "-Wl,--as-needed;-Wl,--exclude-libs,libsodium.a")
endif()

# Everything but the user interface comes out of this archive only when it is used, so a program without
# windows does not load the widget libraries.
add_library(TarvixUpdateInternals STATIC ${objects})
target_link_libraries(TarvixUpdateInternals PUBLIC tarvix_settings Qt6::Core ${dependencies} Qt6::Widgets)
# Programs stand above all floors.
target_include_directories(TarvixUpdateInternals PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
set_target_properties(TarvixUpdateInternals PROPERTIES AUTOMOC OFF LINKER_LANGUAGE CXX)
target_link_options(TarvixUpdateInternals INTERFACE -Wl,--as-needed)

include(CMakePackageConfigHelpers)
install(TARGETS TarvixUpdate EXPORT TarvixUpdateTargets)
install(DIRECTORY include/TarvixUpdate DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/TarvixUpdate DESTINATION ${CMAKE_INSTALL_LIBDIR}
        USE_SOURCE_PERMISSIONS)
install(EXPORT TarvixUpdateTargets NAMESPACE TarvixUpdate::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TarvixUpdate)
configure_package_config_file(cmake/TarvixUpdateConfig.cmake.in TarvixUpdateConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TarvixUpdate)
write_basic_package_version_file(TarvixUpdateConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/TarvixUpdateConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/TarvixUpdateConfigVersion.cmake
              cmake/TarvixUpdatePolicy.cmake cmake/TarvixUpdatePolicy.policy.in
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TarvixUpdate)
