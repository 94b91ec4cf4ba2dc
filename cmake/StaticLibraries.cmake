# The stand-alone tools run beside bundles that bring their own libraries, on machines that may have none of them:
# everything but the C library is inside them. A static library that is missing ends the configuration, as a tool that
# was linked to the shared one would fail only on such a machine.

# tarvix_static_library(NAME PACKAGE): the imported target tarvix_static_NAME for libNAME.a, which comes with PACKAGE.
function(tarvix_static_library NAME PACKAGE)
  find_library(TARVIXUPDATE_STATIC_${NAME} lib${NAME}.a)
  if(NOT TARVIXUPDATE_STATIC_${NAME})
    message(FATAL_ERROR
      "The static library lib${NAME}.a was not found. The tools of the framework link everything but the C library "
      "statically. Install it (Debian: apt-get install ${PACKAGE}), or set TARVIXUPDATE_STATIC_${NAME} to its path.")
  endif()
  add_library(tarvix_static_${NAME} STATIC IMPORTED GLOBAL)
  set_target_properties(tarvix_static_${NAME} PROPERTIES IMPORTED_LOCATION ${TARVIXUPDATE_STATIC_${NAME}})
endfunction()

tarvix_static_library(z zlib1g-dev)
tarvix_static_library(acl libacl1-dev)
tarvix_static_library(bz2 libbz2-dev)
tarvix_static_library(lzma liblzma-dev)
tarvix_static_library(nettle nettle-dev)
tarvix_static_library(zstd libzstd-dev)
tarvix_static_library(archive libarchive-dev)
# What its readers of tar and zip archives and its writer to disk refer to. Its other formats, which would need XML
# and more, are not linked.
target_link_libraries(tarvix_static_archive INTERFACE
  tarvix_static_acl tarvix_static_bz2 tarvix_static_lzma tarvix_static_nettle tarvix_static_zstd tarvix_static_z)

# The compiler's own libraries, too. Sanitizers need the shared ones; such a build is for tests alone.
add_library(tarvix_standing_alone INTERFACE)
if(NOT TARVIXUPDATE_SANITIZE)
  target_link_options(tarvix_standing_alone INTERFACE -static-libstdc++ -static-libgcc -Wl,--gc-sections)
endif()
