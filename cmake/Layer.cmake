# ve_layer(NAME [SOURCES ...] [HEADERS ...] [DEPS layers...] [LIBS import libraries...])
#
# One static library per source folder. Its headers are seen as "NAME/header.h", and only by itself
# and by the layers above it: every layer has an include directory of its own in the build tree that
# forwards to the headers, so that including a header of a layer that one does not stand on fails to
# compile.
function(ve_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 layer "" "" "SOURCES;HEADERS;DEPS;LIBS")
  ve_forward_headers(${name} ${layer_HEADERS})
  add_library(${name} STATIC ${layer_SOURCES} ${layer_HEADERS})
  target_include_directories(${name} PUBLIC "${CMAKE_BINARY_DIR}/include/${name}")
  target_link_libraries(${name} PUBLIC ${layer_DEPS} PRIVATE ve_warnings)
  target_link_libraries(${name} PUBLIC ${layer_LIBS})
endfunction()

# The forwarding headers of one folder, as "<build>/include/NAME/NAME/header.h".
function(ve_forward_headers name)
  foreach(header IN LISTS ARGN)
    file(CONFIGURE OUTPUT "${CMAKE_BINARY_DIR}/include/${name}/${name}/${header}"
         CONTENT "#include \"${CMAKE_CURRENT_SOURCE_DIR}/${header}\"\n" @ONLY)
  endforeach()
endfunction()
