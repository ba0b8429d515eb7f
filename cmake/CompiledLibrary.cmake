# add_compiled_library(<name> <sources>...)
# Builds a shared object that exports "quarn.debug_query", as a compiler back end would with
# the producer helper; tests, tools and benchmarks load it with dlopen.
function(add_compiled_library name)
  add_library(${name} MODULE ${ARGN})
  target_link_libraries(${name} PRIVATE mdh_headers)
  set_target_properties(${name} PROPERTIES
    PREFIX "lib"
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/compiled)
endfunction()
