# The libraries that are built from the modules' objects. For hosts there are two: one contains everything below the user
# interface, the other one contains the user interface. A third one contains all modules, for tests, benchmarks and the
# command-line tool.
get_property(rooms GLOBAL PROPERTY TARVIX_ROOMS)
set(objects)
foreach(room IN LISTS rooms)
  if(NOT room STREQUAL "tarvix_widgets")
    list(APPEND objects $<TARGET_OBJECTS:${room}>)
  endif()
endforeach()
set(dependencies
  Qt6::Network simdjson::simdjson PkgConfig::xml2 PkgConfig::plist ZLIB::ZLIB tarvix_static_sodium Threads::Threads)

# tarvix_library(NAME OBJECTS... ): a shared library for hosts, exported as TarvixUpdate::NAME.
function(tarvix_library NAME)
  set(library TarvixUpdate${NAME})
  add_library(${library} SHARED ${ARGN})
  add_library(TarvixUpdate::${NAME} ALIAS ${library})
  target_include_directories(${library} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_features(${library} PUBLIC cxx_std_20)
  set_target_properties(${library} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${interface_version} EXPORT_NAME ${NAME} AUTOMOC OFF LINKER_LANGUAGE CXX
    INSTALL_RPATH "$ORIGIN")
  # The symbols of libsodium are not exported, because a host may use another version of it.
  target_link_options(${library} PRIVATE -Wl,--as-needed -Wl,--exclude-libs,libsodium.a)
  if(NOT TARVIXUPDATE_SANITIZE)
    target_link_options(${library} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()
tarvix_library(Core ${objects})
target_link_libraries(TarvixUpdateCore PUBLIC Qt6::Core PRIVATE ${dependencies})
tarvix_library(Widgets $<TARGET_OBJECTS:tarvix_widgets>)
target_link_libraries(TarvixUpdateWidgets PUBLIC TarvixUpdateCore Qt6::Widgets)
# Both libraries. The user interface registers itself when it is loaded, so it is linked even if a host calls none of its
# functions.
add_library(TarvixUpdate INTERFACE)
add_library(TarvixUpdate::TarvixUpdate ALIAS TarvixUpdate)
target_link_libraries(TarvixUpdate INTERFACE
  TarvixUpdateCore -Wl,--push-state,--no-as-needed TarvixUpdateWidgets -Wl,--pop-state)

# The linker takes only the objects that a program uses from this archive, so a program without windows does not load the
# widget libraries.
add_library(TarvixUpdateInternals STATIC ${objects} $<TARGET_OBJECTS:tarvix_widgets>)
target_link_libraries(TarvixUpdateInternals PUBLIC tarvix_settings Qt6::Core ${dependencies} Qt6::Widgets)
# The programs that link it may include the headers of all modules.
target_include_directories(TarvixUpdateInternals PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
set_target_properties(TarvixUpdateInternals PROPERTIES AUTOMOC OFF LINKER_LANGUAGE CXX)
target_link_options(TarvixUpdateInternals INTERFACE -Wl,--as-needed)

include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/TarvixUpdate)
# Each COMPONENT is one of the packages in Packages.cmake. `cmake --install` installs all of them.
install(TARGETS TarvixUpdateCore EXPORT TarvixUpdateTargets
        LIBRARY COMPONENT TarvixUpdateCore NAMELINK_COMPONENT TarvixUpdateDevelopment)
install(TARGETS TarvixUpdateWidgets EXPORT TarvixUpdateTargets
        LIBRARY COMPONENT TarvixUpdateWidgets NAMELINK_COMPONENT TarvixUpdateDevelopment)
install(TARGETS TarvixUpdate EXPORT TarvixUpdateTargets)
install(DIRECTORY include/TarvixUpdate DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT TarvixUpdateDevelopment)
# The tools and their resources. In a bundle they are beside the library instead. Only hosts with windows use the interface files
# and the plug-ins.
set(installed_resources ${CMAKE_INSTALL_LIBEXECDIR}/${TARVIXUPDATE_LIBEXEC_NAME}/Resources)
install(DIRECTORY ${TARVIXUPDATE_RESOURCES_DIR}/ DESTINATION ${installed_resources} USE_SOURCE_PERMISSIONS
        COMPONENT TarvixUpdateCore
        REGEX "/Resources/[^/]+\\.(so|ui|svg)$" EXCLUDE)
install(DIRECTORY ${TARVIXUPDATE_RESOURCES_DIR}/ DESTINATION ${installed_resources} USE_SOURCE_PERMISSIONS
        COMPONENT TarvixUpdateWidgets
        FILES_MATCHING REGEX "/Resources/[^/]+\\.(so|ui|svg)$" REGEX "/Resources/(Archives|[^/]+\\.(app|lproj))$" EXCLUDE)
install(EXPORT TarvixUpdateTargets NAMESPACE TarvixUpdate:: DESTINATION ${package_dir} COMPONENT TarvixUpdateDevelopment)
configure_package_config_file(cmake/TarvixUpdateConfig.cmake.in TarvixUpdateConfig.cmake
  INSTALL_DESTINATION ${package_dir} PATH_VARS CMAKE_INSTALL_BINDIR installed_resources)
write_basic_package_version_file(TarvixUpdateConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/TarvixUpdateConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/TarvixUpdateConfigVersion.cmake
              cmake/TarvixUpdateBundle.cmake cmake/TarvixUpdatePolicy.cmake cmake/TarvixUpdatePolicy.policy.in
        DESTINATION ${package_dir} COMPONENT TarvixUpdateDevelopment)

# For build systems that use pkg-config.
file(RELATIVE_PATH PREFIX_FROM_PC ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
function(tarvix_pkg_config NAME DESCRIPTION LIBS REQUIRES)
  configure_file(cmake/TarvixUpdate.pc.in ${NAME}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${NAME}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
          COMPONENT TarvixUpdateDevelopment)
endfunction()
tarvix_pkg_config(TarvixUpdateCore "Software updates for Qt applications" "-lTarvixUpdateCore" "Qt6Core >= 6.4")
tarvix_pkg_config(TarvixUpdateWidgets "The windows of TarvixUpdate" "-lTarvixUpdateWidgets"
  "TarvixUpdateCore = ${PROJECT_VERSION}, Qt6Widgets >= 6.4")
tarvix_pkg_config(TarvixUpdate "Software updates for Qt applications, with their windows"
  "-Wl,--push-state,--no-as-needed -lTarvixUpdateWidgets -Wl,--pop-state"
  "TarvixUpdateCore = ${PROJECT_VERSION}, Qt6Widgets >= 6.4")
