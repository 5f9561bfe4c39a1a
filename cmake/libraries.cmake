# The two libraries. libzor_kern is built three times from one list of sources, or as often as ZOR_BUILDS says; only the
# vector width and the compiler's target differ. The dynamic loader picks a build from lib/ and lib/glibc-hwcaps/, or, for
# the fused arithmetic, from lib/fused/ and lib/fused/glibc-hwcaps/.

file(GLOB_RECURSE ZOR_KERN_SOURCES CONFIGURE_DEPENDS
     serv/*.cpp serv/*.S blas/*.cpp lapack/*.cpp xblas/*.cpp spblas/*.cpp dft/*.cpp pde/*.cpp trans/*.cpp
     conv/*.cpp gmp/*.cpp)
file(GLOB_RECURSE ZOR_CORE_SOURCES CONFIGURE_DEPENDS core/*.cpp core/*.S)

# Expands a table of names into a linker version script.
function(zor_version_script library)
  add_custom_command(
    OUTPUT ${PROJECT_BINARY_DIR}/${library}.map
    COMMAND ${CMAKE_CXX_COMPILER} -E -P -x c++ -I ${PROJECT_BINARY_DIR}/internal
            ${PROJECT_SOURCE_DIR}/cmake/${library}.map.in -o ${PROJECT_BINARY_DIR}/${library}.map
    DEPENDS ${PROJECT_SOURCE_DIR}/cmake/${library}.map.in ${interface_rows}/made)
  add_custom_target(zor_${library}_map DEPENDS ${PROJECT_BINARY_DIR}/${library}.map)
endfunction()
zor_version_script(kern)
zor_version_script(core)

# GMP of the library's own: a copy of its static library in which every symbol is renamed and, by the version scripts,
# hidden or exported under a name of the tables. One copy for the kernel library, one for libzor_core.
find_library(ZOR_GMP_LIBRARY NAMES libgmp.a DOC "GMP's static library, which goes into the libraries")
if(NOT ZOR_GMP_LIBRARY)
  message(FATAL_ERROR "libgmp.a not found: install the package libgmp-dev, or give -DZOR_GMP_LIBRARY=FILE")
endif()
set(gmp_names ${PROJECT_BINARY_DIR}/gmp_names)
add_custom_command(
  OUTPUT ${gmp_names}
  COMMAND ${CMAKE_CXX_COMPILER} -E -P -x c++ -I ${PROJECT_BINARY_DIR}/internal
          ${PROJECT_SOURCE_DIR}/cmake/gmp_names.in -o ${gmp_names}
  DEPENDS ${PROJECT_SOURCE_DIR}/cmake/gmp_names.in ${interface_rows}/made)

# zor_private_gmp(library [arguments...]): the target zor_gmp_LIBRARY makes the archive of one library.
function(zor_private_gmp library)
  set(archive ${PROJECT_BINARY_DIR}/libgmp_${library}.a)
  add_custom_command(
    OUTPUT ${archive} ${archive}.ld
    COMMAND ${CMAKE_COMMAND} -DARCHIVE=${ZOR_GMP_LIBRARY} -DNM=${CMAKE_NM} -DOBJCOPY=${CMAKE_OBJCOPY}
            -DOUTPUT=${archive} ${ARGN} -P ${PROJECT_SOURCE_DIR}/cmake/private_gmp.cmake
    DEPENDS ${ZOR_GMP_LIBRARY} ${gmp_names} ${PROJECT_SOURCE_DIR}/cmake/private_gmp.cmake)
  add_custom_target(zor_gmp_${library} DEPENDS ${archive} ${archive}.ld)
endfunction()
zor_private_gmp(kern -DNAMES=${gmp_names})
zor_private_gmp(core)

function(zor_shared_library target library)
  set(gmp ${PROJECT_BINARY_DIR}/libgmp_${library}.a)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME zor_${library} SOVERSION 1 C_VISIBILITY_PRESET hidden
                        CXX_VISIBILITY_PRESET hidden LINK_DEPENDS "${PROJECT_BINARY_DIR}/${library}.map;${gmp}")
  add_dependencies(${target} zor_${library}_map zor_gmp_${library})
  target_link_libraries(${target} PRIVATE ${gmp}.ld ${gmp})
  target_link_options(${target} PRIVATE -Wl,--version-script=${PROJECT_BINARY_DIR}/${library}.map
                      -Wl,-Bsymbolic-functions -Wl,--as-needed -Wl,-O1)
  if(NOT ZOR_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,-z,defs)
  endif()
endfunction()

# The kernels vectorise by hand. The compiler's own vectoriser is off: in spite of -ffp-contract=off it fuses the
# products of complex arithmetic into vfmaddsub, and elsewhere it forms both sum and difference to keep one of each,
# which raises flags that the data do not cause.
# The rounding mode is the caller's: no constant expression is rounded at compile time, and the square of a quotient does
# not lose the magnitude of its numerator (-fssa-backprop drops it, and the quotient then rounds the other way).
set(ZOR_KERN_ARITHMETIC -fno-tree-vectorize -frounding-math -fno-ssa-backprop)

# In the sparse kernels -fipa-ra lets functions return with the upper halves of vector registers in use, which slows the
# 16-byte arithmetic of the caller. Elsewhere it does not, and helps small products.
foreach(source ${ZOR_KERN_SOURCES})
  if(source MATCHES "/spblas/")
    set_property(SOURCE ${source} APPEND PROPERTY COMPILE_OPTIONS -fno-ipa-ra)
  endif()
endforeach()

# The two arithmetics. These sources sum through serv/mul_add.h and are compiled for each of them; all other objects go
# into the libraries of both. serv/software_fma.cpp serves the fused build whose processors lack the instruction.
set(ZOR_ARITHMETIC_SOURCES
    blas/level1/axpy.cpp blas/level1/rot.cpp blas/level2/gbmv.cpp blas/level2/gemv.cpp blas/level2/symv.cpp
    blas/level2/syr.cpp blas/level2/syr2.cpp blas/level2/trmv.cpp blas/level2/trsv.cpp blas/level3/gemm.cpp
    blas/level3/gemm_mixed.cpp blas/level3/gemm_plain.cpp blas/level3/trmm.cpp blas/level3/trsm.cpp lapack/cspr.cpp
    lapack/potrf_small.cpp lapack/symv_nb.cpp)
list(TRANSFORM ZOR_ARITHMETIC_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/)
set(software_fma ${PROJECT_SOURCE_DIR}/serv/software_fma.cpp)
list(REMOVE_ITEM ZOR_KERN_SOURCES ${ZOR_ARITHMETIC_SOURCES} ${software_fma})

# Objects of one build, compiled as for its shared library: zor_kern_objects(target build bytes options sources...)
function(zor_kern_objects target build bytes options)
  add_library(${target} OBJECT ${ARGN})
  target_compile_definitions(${target} PRIVATE ZOR_VEC_BYTES=${bytes} zor_kern_${build}_EXPORTS)
  target_compile_options(${target} PRIVATE ${options} ${ZOR_KERN_ARITHMETIC} $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions
                         -fno-rtti -fno-threadsafe-statics -fno-asynchronous-unwind-tables>)
  set_target_properties(${target} PROPERTIES C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden)
endfunction()

# The kernel library of one build in one arithmetic, from the objects of other targets. Its C++ is freestanding of the
# C++ runtime, so it is linked as C. It finds libzor_core in one of these folders, seen from its own.
function(zor_kern_library target folder to_core)
  list(TRANSFORM ARGN REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE objects)
  add_library(${target} SHARED ${objects})
  zor_shared_library(${target} kern)
  if(ZOR_SANITIZE)
    set(language CXX)
  else()
    set(language C)
  endif()
  set_target_properties(${target} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${folder} INSTALL_RPATH "${to_core}"
                        LINKER_LANGUAGE ${language})
endfunction()

# One build, if ZOR_BUILDS lists it, in both arithmetics: zor_kern_BUILD and zor_kern_fused_BUILD. The libraries of a build
# that is no longer listed are removed, because the loader might pick them.
function(zor_kern_build build bytes up subfolder)
  set(separate ${PROJECT_BINARY_DIR}/lib${subfolder})
  set(fused ${PROJECT_BINARY_DIR}/lib/fused${subfolder})
  set(ZOR_FOLDER_${build} ${separate} PARENT_SCOPE)
  set(ZOR_FOLDER_fused_${build} ${fused} PARENT_SCOPE)
  if(NOT build IN_LIST ZOR_BUILDS)
    foreach(folder ${separate} ${fused})
      file(REMOVE ${folder}/libzor_kern.so ${folder}/libzor_kern.so.1)
    endforeach()
    return()
  endif()
  set(objects zor_objects_${build})
  set(fused_sources ${ZOR_ARITHMETIC_SOURCES})
  if(bytes EQUAL 16)
    list(APPEND fused_sources ${software_fma})
  endif()
  zor_kern_objects(${objects}_shared ${build} ${bytes} "${ARGN}" ${ZOR_KERN_SOURCES})
  zor_kern_objects(${objects}_separate ${build} ${bytes} "${ARGN}" ${ZOR_ARITHMETIC_SOURCES})
  zor_kern_objects(${objects}_fused ${build} ${bytes} "${ARGN}" ${fused_sources})
  target_compile_definitions(${objects}_fused PRIVATE ZOR_FUSED=1)
  zor_precompile(${objects}_shared <immintrin.h> <cstdint> <cstring> <type_traits> <utility>)
  zor_precompile_as(${objects}_separate ${objects}_shared)
  zor_precompile_as(${objects}_fused ${objects}_shared)
  zor_kern_library(zor_kern_${build} ${separate} "$ORIGIN;$ORIGIN/../.." ${objects}_shared ${objects}_separate)
  # In the build tree lib/fused, installed lib/zor/fused.
  zor_kern_library(zor_kern_fused_${build} ${fused} "$ORIGIN/${up}..;$ORIGIN/${up}../.." ${objects}_shared ${objects}_fused)
endfunction()
zor_kern_build(baseline 16 "" "" -march=x86-64 -msse3)
zor_kern_build(v3 32 ../../ /glibc-hwcaps/x86-64-v3 -march=x86-64-v3)
zor_kern_build(v4 64 ../../ /glibc-hwcaps/x86-64-v4 -march=x86-64-v4)
list(TRANSFORM ZOR_BUILDS PREPEND fused_ OUTPUT_VARIABLE ZOR_FUSED_BUILDS)
list(TRANSFORM ZOR_BUILDS PREPEND zor_kern_ OUTPUT_VARIABLE ZOR_KERN_TARGETS)
list(TRANSFORM ZOR_FUSED_BUILDS PREPEND zor_kern_ OUTPUT_VARIABLE ZOR_FUSED_TARGETS)
if(NOT TARGET zor_kern_baseline)
  message(FATAL_ERROR "ZOR_BUILDS=${ZOR_BUILDS} lacks baseline, which programs are linked with")
endif()

find_package(OpenMP REQUIRED COMPONENTS CXX)
add_library(zor_core SHARED ${ZOR_CORE_SOURCES})
zor_shared_library(zor_core core)
set_target_properties(zor_core PROPERTIES INSTALL_RPATH "$ORIGIN")
# It too is freestanding of the C++ runtime, so that no exception can arise in it, let alone leave it.
target_compile_options(zor_core PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
# A call on short vectors takes as long as a few jumps: those to the kernels go straight to their addresses.
file(GLOB core_blas CONFIGURE_DEPENDS core/blas/*.cpp)
set_source_files_properties(${core_blas} PROPERTIES COMPILE_OPTIONS -fno-plt)
if(NOT ZOR_SANITIZE)
  set_target_properties(zor_core PROPERTIES LINKER_LANGUAGE C)
endif()
# Its threads outlive every call, so it stays loaded when a program closes it.
target_link_options(zor_core PRIVATE -Wl,-z,nodelete)
target_link_libraries(zor_core PRIVATE zor_kern_baseline OpenMP::OpenMP_CXX)
zor_precompile(zor_core <algorithm> <atomic> <cstring>)
add_dependencies(zor_core ${ZOR_KERN_TARGETS})

# What a program links: the sibling first, so that names both libraries export bind to it, and needed even by a
# program that calls no name of it, since the kernel library does.
add_library(zor INTERFACE)
target_link_libraries(zor INTERFACE -Wl,--push-state,--no-as-needed zor_core -Wl,--pop-state zor_kern_baseline)

# As installed: zor::zor, zor::core and zor::kern, with the headers.
add_library(zor::zor ALIAS zor)
add_library(zor::core ALIAS zor_core)
add_library(zor::kern ALIAS zor_kern_baseline)
foreach(target zor zor_core zor_kern_baseline)
  target_include_directories(${target} INTERFACE $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
                             $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
endforeach()
