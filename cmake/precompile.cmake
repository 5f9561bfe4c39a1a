# Headers of others that most sources of a target include, and that take long to read, are compiled once for the whole target;
# the project's own are not, since the compiler would keep back its warnings about them. A source still includes what it names,
# and compiles without.
option(ZOR_PRECOMPILE "Compile headers of others that many sources share once" OFF)

# A compiler cache stores objects made with such headers only when told that they do not differ by their own definitions.
if(ZOR_PRECOMPILE AND CMAKE_CXX_COMPILER_LAUNCHER)
  list(PREPEND CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros)
endif()

# zor_precompile(target headers...)
function(zor_precompile target)
  if(ZOR_PRECOMPILE)
    target_precompile_headers(${target} PRIVATE ${ARGN})
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fpch-preprocess>)
  endif()
endfunction()

# zor_precompile_as(target other): by the headers of another target, whose processor, definitions and position independence
# are the same.
function(zor_precompile_as target other)
  if(ZOR_PRECOMPILE)
    target_precompile_headers(${target} REUSE_FROM ${other})
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fpch-preprocess>)
  endif()
endfunction()
