# ve_layer(NAME [DEPS layers...] [LIBS libraries...])
#
# Declares the static library ve_NAME: all sources of the calling folder NAME but main.cpp, which is a
# program's, and build_config.cpp, which each build compiles for itself.
#
#   DEPS  every layer whose headers NAME includes, not only the nearest;
#         scripts/lib/check_includes.py reads this list and rejects any other include
#   LIBS  libraries that are not layers
function(ve_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 layer "" "" "DEPS;LIBS")
  file(GLOB sources CONFIGURE_DEPENDS *.cpp)
  list(FILTER sources EXCLUDE REGEX "/(main|build_config)\\.cpp$")
  list(TRANSFORM layer_DEPS PREPEND ve_)
  add_library(ve_${name} STATIC ${sources})
  target_include_directories(ve_${name} PUBLIC "${PROJECT_SOURCE_DIR}")
  target_link_libraries(ve_${name} PUBLIC ${layer_DEPS} ${layer_LIBS} PRIVATE ve_warnings)
endfunction()
