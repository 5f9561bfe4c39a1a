# The BLAS libraries that other programs use: adapters over libzor_core, made by cmake/libblas.cpp, under Fortran and CBLAS
# names; its header include/zor/cblas/cblas.h is made too. lib/blas/libblas.so.3 has 32-bit integers, lib/blas64/libblas64.so.3 has 64-bit ones, and lib/blas64_ the same
# with the suffix 64_ on every name. Each folder holds nothing else, so that a library path chooses exactly that.
set(libblas_output ${PROJECT_BINARY_DIR}/internal/zor/libblas)
add_executable(zor_libblas_maker ${PROJECT_SOURCE_DIR}/cmake/libblas.cpp)
target_compile_options(zor_libblas_maker PRIVATE -O1)
set_target_properties(zor_libblas_maker PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${interface_rows})
add_custom_command(
  OUTPUT ${libblas_output}/made
  BYPRODUCTS ${libblas_output}/fortran.inc ${libblas_output}/cblas.inc ${libblas_output}/names.txt
             ${PROJECT_BINARY_DIR}/include/zor/cblas/cblas.h
  COMMAND zor_libblas_maker ${PROJECT_BINARY_DIR}/include/zor ${interface_rows}/tables ${libblas_output}
  COMMAND ${CMAKE_COMMAND} -E touch ${libblas_output}/made
  DEPENDS zor_libblas_maker ${interface_rows}/made
  COMMENT "Making the adapters of the BLAS libraries" VERBATIM)
add_custom_target(zor_libblas_adapters DEPENDS ${libblas_output}/made)

# zor_libblas(target name integer suffix)
function(zor_libblas target name integer suffix)
  add_library(${target} SHARED libblas/fortran.cpp libblas/cblas.cpp libblas/errors.cpp)
  add_dependencies(${target} zor_libblas_adapters)
  target_compile_definitions(${target} PRIVATE ZOR_BLAS_INTEGER=${integer} ZOR_BLAS_SUFFIX=${suffix})
  target_compile_options(${target} PRIVATE -fno-exceptions -fno-rtti -fno-threadsafe-statics -frounding-math -fno-plt)
  string(REGEX REPLACE "^blas" "lib/blas" folder ${name})
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${name} SOVERSION 3 CXX_VISIBILITY_PRESET hidden
                        LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/${folder} INSTALL_RPATH "$ORIGIN/..;$ORIGIN/../..")
  if(NOT ZOR_SANITIZE)
    set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
    target_link_options(${target} PRIVATE -Wl,-z,defs)
  endif()
  # libzor_core keeps the address of a function here for its reports.
  target_link_options(${target} PRIVATE -Wl,-z,nodelete -Wl,--as-needed -Wl,-O1)
  target_link_libraries(${target} PRIVATE zor_core zor_kern_baseline)
endfunction()
zor_libblas(zor_blas blas int32_t "")
zor_libblas(zor_blas64 blas64 int64_t "")
zor_libblas(zor_blas64_ blas64_ int64_t 64_)
