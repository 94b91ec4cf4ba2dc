# The language level, the warnings and the strict Qt definitions of every target.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # Without the first two settings, ccache would miss every file that uses a precompiled header. Without the others, it would miss
  # the precompiled header itself, because CMake generates the file from which it is compiled just before.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime ${CCACHE_PROGRAM})
endif()

add_library(tarvix_settings INTERFACE)
target_compile_features(tarvix_settings INTERFACE cxx_std_20)
target_compile_options(tarvix_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align
  -Wconversion -Wno-sign-conversion -Wno-missing-field-initializers -Wformat=2 -Wimplicit-fallthrough)
# Only in our own presets: a new warning of a newer compiler must not stop somebody who builds a release.
option(TARVIXUPDATE_WARNINGS_AS_ERRORS "Stop at compiler warnings" OFF)
if(TARVIXUPDATE_WARNINGS_AS_ERRORS)
  target_compile_options(tarvix_settings INTERFACE -Werror)
endif()
# GCC 12 warns at -O3 of copies between strings that overlap, in code of its own library that is right (bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(tarvix_settings INTERFACE $<$<CONFIG:Release>:-Wno-restrict>)
endif()
target_compile_definitions(tarvix_settings INTERFACE
  QT_NO_KEYWORDS QT_NO_FOREACH QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_CAST_FROM_BYTEARRAY
  QT_NO_URL_CAST_FROM_STRING QT_NO_NARROWING_CONVERSIONS_IN_CONNECT QT_NO_CONTEXTLESS_CONNECT
  QT_DISABLE_DEPRECATED_BEFORE=0x060400
  # Qt 6.4 is the oldest supported version. It has no replacement for functions that later versions deprecate.
  QT_WARN_DEPRECATED_UP_TO=0x060400
  # Otherwise messages of a debug build contain the paths of source files, and a bundle must not.
  QT_NO_MESSAGELOGCONTEXT)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  # Makes off_t 64 bits wide, for files larger than 2 GiB.
  target_compile_definitions(tarvix_settings INTERFACE _FILE_OFFSET_BITS=64)
endif()

set(TARVIXUPDATE_SANITIZE "" CACHE STRING "Sanitizers to build with, such as address,undefined or thread")
if(TARVIXUPDATE_SANITIZE)
  add_compile_options(-fsanitize=${TARVIXUPDATE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TARVIXUPDATE_SANITIZE})
endif()
if(TARVIXUPDATE_BUILD_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
option(TARVIXUPDATE_COVERAGE "Measure line coverage" OFF)
if(TARVIXUPDATE_COVERAGE)
  add_compile_options(--coverage -O0 -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
