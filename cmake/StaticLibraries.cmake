# Static libraries for the stand-alone tools. The machines on which the tools run may not have these libraries, so all libraries
# except the C library are linked statically.

# tarvix_static_library(NAME): defines the imported target tarvix_static_NAME for libNAME.a, which Requirements.cmake has found.
function(tarvix_static_library NAME)
  add_library(tarvix_static_${NAME} STATIC IMPORTED GLOBAL)
  set_target_properties(tarvix_static_${NAME} PROPERTIES IMPORTED_LOCATION ${TARVIXUPDATE_STATIC_${NAME}})
endfunction()

foreach(name IN LISTS TARVIX_STATIC_LIBRARIES)
  tarvix_static_library(${name})
endforeach()
# The libraries that libarchive's tar and zip readers and its disk writer need. Its other formats, which would need an XML
# library and others, are not linked.
target_link_libraries(tarvix_static_archive INTERFACE
  tarvix_static_acl tarvix_static_bz2 tarvix_static_lzma tarvix_static_nettle tarvix_static_zstd tarvix_static_z)

# The compiler's own libraries are linked statically as well. Sanitizers need the shared ones; such a build is only for tests.
add_library(tarvix_standing_alone INTERFACE)
if(NOT TARVIXUPDATE_SANITIZE)
  target_link_options(tarvix_standing_alone INTERFACE -static-libstdc++ -static-libgcc -Wl,--gc-sections)
endif()
