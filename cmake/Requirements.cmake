# Looks for everything that the build needs, then names all that is missing at once, by the libraries' own names: not
# every system calls its packages as Debian does.
set(TARVIX_MISSING "")

# tarvix_need(FOUND DESCRIPTION): notes that something is missing unless the variable FOUND is true.
macro(tarvix_need FOUND DESCRIPTION)
  if(NOT ${FOUND})
    list(APPEND TARVIX_MISSING "${DESCRIPTION}")
  endif()
endmacro()

# tarvix_pkg(PREFIX MODULE DESCRIPTION): a library by its pkg-config name.
macro(tarvix_pkg PREFIX MODULE DESCRIPTION)
  if(PKG_CONFIG_FOUND)
    pkg_check_modules(${PREFIX} QUIET IMPORTED_TARGET ${MODULE})
  endif()
  tarvix_need(${PREFIX}_FOUND "${DESCRIPTION} (pkg-config: ${MODULE})")
endmacro()

find_package(PkgConfig QUIET)
tarvix_need(PKG_CONFIG_FOUND "pkg-config")
foreach(module Core Network DBus Gui Widgets UiTools)
  find_package(Qt6${module} 6.4 QUIET)
  tarvix_need(Qt6${module}_FOUND "Qt 6.4 or newer, module ${module}")
endforeach()
find_package(simdjson QUIET)
tarvix_need(simdjson_FOUND "simdjson")
find_package(Threads QUIET)
tarvix_need(Threads_FOUND "a thread library")
find_package(ZLIB QUIET)
tarvix_need(ZLIB_FOUND "zlib")
find_package(ICU QUIET COMPONENTS i18n uc)
tarvix_need(ICU_FOUND "ICU")
tarvix_pkg(xcb xcb "libxcb")
tarvix_pkg(plist libplist-2.0 "libplist 2.2 or newer")
tarvix_pkg(xml2 libxml-2.0 "libxml2")
tarvix_pkg(libarchive libarchive "libarchive")
tarvix_pkg(httplib cpp-httplib "cpp-httplib")
find_package(CLI11 QUIET)
tarvix_need(CLI11_FOUND "CLI11")
find_package(OpenSSL QUIET)
tarvix_need(OPENSSL_FOUND "OpenSSL")
# For the tools that stand alone. A tool that was linked to a shared library in place of a static one would fail only on
# a machine without it.
set(TARVIX_STATIC_LIBRARIES z acl bz2 lzma nettle zstd archive sodium)
foreach(name IN LISTS TARVIX_STATIC_LIBRARIES)
  find_library(TARVIXUPDATE_STATIC_${name} lib${name}.a)
  tarvix_need(TARVIXUPDATE_STATIC_${name} "the static library lib${name}.a (or set TARVIXUPDATE_STATIC_${name} to its path)")
endforeach()
if(TARVIXUPDATE_BUILD_TESTS)
  find_package(GTest QUIET)
  tarvix_need(GTest_FOUND "GoogleTest with GoogleMock, for the tests")
endif()
if(TARVIXUPDATE_BUILD_BENCH)
  find_package(benchmark QUIET)
  tarvix_need(benchmark_FOUND "Google Benchmark, for the benchmarks")
endif()

if(TARVIX_MISSING)
  list(JOIN TARVIX_MISSING "\n  - " lines)
  message(FATAL_ERROR "TarvixUpdate cannot be built: these are missing, with their headers:\n  - ${lines}\n"
                      "On Debian and what is alike, scripts/setup installs them.")
endif()

# The whole of Qt once more, which gives the targets' properties; and what the build can do without.
find_package(Qt6 6.4 REQUIRED COMPONENTS Core Network DBus Gui Widgets UiTools)
if(TARVIXUPDATE_BUILD_PAGES)
  find_package(Qt6 6.4 QUIET OPTIONAL_COMPONENTS WebEngineWidgets Quick)
endif()
