# Headers of others that cost more to read than the sources that include them. The sources name what they use all the same:
# a build with -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON is the same program.
function(disk_precompile target)
  target_precompile_headers(${target} PRIVATE ${ARGN})
  if(CCACHE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -fpch-preprocess) # lets ccache see what went into the precompiled header
  endif()
endfunction()
