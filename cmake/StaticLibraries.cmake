# The stand-alone tools run beside bundles that bring their own libraries, on machines that may have none of them:
# everything but the C library is inside them.

# tarvix_static_library(NAME): the imported target tarvix_static_NAME for libNAME.a, which Requirements.cmake has found.
function(tarvix_static_library NAME)
  add_library(tarvix_static_${NAME} STATIC IMPORTED GLOBAL)
  set_target_properties(tarvix_static_${NAME} PROPERTIES IMPORTED_LOCATION ${TARVIXUPDATE_STATIC_${NAME}})
endfunction()

foreach(name IN LISTS TARVIX_STATIC_LIBRARIES)
  tarvix_static_library(${name})
endforeach()
# What its readers of tar and zip archives and its writer to disk refer to. Its other formats, which would need XML
# and more, are not linked.
target_link_libraries(tarvix_static_archive INTERFACE
  tarvix_static_acl tarvix_static_bz2 tarvix_static_lzma tarvix_static_nettle tarvix_static_zstd tarvix_static_z)

# The compiler's own libraries, too. Sanitizers need the shared ones; such a build is for tests alone.
add_library(tarvix_standing_alone INTERFACE)
if(NOT TARVIXUPDATE_SANITIZE)
  target_link_options(tarvix_standing_alone INTERFACE -static-libstdc++ -static-libgcc -Wl,--gc-sections)
endif()
