# cpack: Debian packages from the components of cmake/install.cmake. scripts/package.sh configures, builds and checks them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zor)
set(CPACK_PACKAGE_VENDOR "The zor authors")
set(CPACK_PACKAGE_CONTACT "The zor authors <zor@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_COMPONENTS_ALL libraries fused development tools blas)

set(about "The same bits on every x86-64 processor and for every number of
threads, at the speed of the processor at hand: dense and sparse linear
algebra, Fourier transforms, Poisson solvers, convolution, integers.")
# describe(COMPONENT package section depends summary)
macro(describe component package section depends summary)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${summary}\n${about}")
  if(ZOR_SYSTEM_PACKAGE)
    install(FILES ${PROJECT_BINARY_DIR}/copyright ${PROJECT_BINARY_DIR}/changelog.gz
            DESTINATION share/doc/${package} COMPONENT ${component})
  endif()
endmacro()
set(same "libzor1 (= ${PROJECT_VERSION})")
describe(libraries libzor1 libs "" "numerical kernels with the same bits everywhere")
describe(fused libzor1-fused libs "${same}" "numerical kernels with the same bits everywhere, fused arithmetic")
describe(development libzor-dev libdevel "${same}" "numerical kernels with the same bits everywhere, for programmers")
describe(tools zor-tools math "${same}" "numerical kernels with the same bits everywhere, program")
describe(blas libblas3-zor libs "${same}" "BLAS with the same bits everywhere, for programs that use libblas.so.3")
set(CPACK_DEBIAN_BLAS_PACKAGE_PROVIDES libblas.so.3)

set(control ${PROJECT_BINARY_DIR}/control)
file(WRITE ${control}/libraries/triggers "activate-noawait ldconfig\n")
set(needs "libzor1 (>= ${PROJECT_VERSION})")
file(WRITE ${control}/libraries/shlibs "libzor_core 1 ${needs}\nlibzor_kern 1 ${needs}\n")
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_CONTROL_EXTRA ${control}/libraries/triggers ${control}/libraries/shlibs)
# Below the distribution's own, so that nobody gets another BLAS by installing the package.
set(link_name libblas.so.3-${CMAKE_LIBRARY_ARCHITECTURE})
set(blas_link /usr/${CMAKE_INSTALL_LIBDIR}/libblas.so.3)
set(blas_file /usr/${CMAKE_INSTALL_LIBDIR}/zor/blas/libblas.so.3)
file(WRITE ${control}/blas/postinst
     "#!/bin/sh\nset -e\nif [ \"$1\" = configure ]; then\n  update-alternatives --install ${blas_link} ${link_name} ${blas_file} 5\nfi\n")
file(WRITE ${control}/blas/prerm
     "#!/bin/sh\nset -e\nif [ \"$1\" != upgrade ]; then\n  update-alternatives --remove ${link_name} ${blas_file}\nfi\n")
file(CHMOD ${control}/blas/postinst ${control}/blas/prerm
     PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_BLAS_PACKAGE_CONTROL_EXTRA ${control}/blas/postinst ${control}/blas/prerm)

include(CPack)
