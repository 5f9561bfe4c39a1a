# cmake --install: libraries with their builds, headers, program, documents, and what find_package and pkg-config need.
# Components, which become packages: libraries, fused, development, tools, blas.
include(CMakePackageConfigHelpers)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)

foreach(build ${ZOR_BUILDS})
  set(subfolder /glibc-hwcaps/x86-64-${build})
  if(build STREQUAL "baseline")
    set(subfolder "")
    set_target_properties(zor_kern_baseline PROPERTIES EXPORT_NAME kern)
    install(TARGETS zor_kern_baseline EXPORT zorTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT libraries NAMELINK_COMPONENT development)
  else()
    install(TARGETS zor_kern_${build} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}${subfolder}
            COMPONENT libraries NAMELINK_SKIP)
  endif()
  install(TARGETS zor_kern_fused_${build} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/zor/fused${subfolder}
          COMPONENT fused NAMELINK_SKIP)
endforeach()
set_target_properties(zor_core PROPERTIES EXPORT_NAME core)
install(TARGETS zor_core zor EXPORT zorTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT libraries NAMELINK_COMPONENT development)
install(DIRECTORY ${PROJECT_BINARY_DIR}/include/zor DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/zor)
install(EXPORT zorTargets NAMESPACE zor:: DESTINATION ${package_folder})
file(WRITE ${PROJECT_BINARY_DIR}/zorConfig.cmake "include(\${CMAKE_CURRENT_LIST_DIR}/zorTargets.cmake)\n")
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zorConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zorConfig.cmake ${PROJECT_BINARY_DIR}/zorConfigVersion.cmake
        DESTINATION ${package_folder})

# zor.pc finds its prefix from where it stands, so that an installed tree can be moved. zor-fused.pc makes a program look for
# the kernel library among those of the fused arithmetic first.
file(RELATIVE_PATH prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
foreach(name zor zor-fused)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/zor.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES ${PROJECT_BINARY_DIR}/zor-fused.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT fused)

# The BLAS libraries: a folder each, so that a library path chooses one, and a description for pkg-config.
set(definition_of_blas64 " -DZOR_CBLAS_64")
set(definition_of_blas64_ " -DZOR_CBLAS_SUFFIX_64")
foreach(name blas blas64 blas64_)
  install(TARGETS zor_${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/zor/${name} COMPONENT blas)
  set(library ${name})
  set(library_definition "${definition_of_${name}}")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/zor-blas.pc.in ${PROJECT_BINARY_DIR}/zor-${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/zor-${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT blas)
endforeach()

if(TARGET zor_program)
  file(RELATIVE_PATH lib_from_bin /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_property(TARGET zor_program APPEND PROPERTY INSTALL_RPATH "$ORIGIN/${lib_from_bin}")
  install(TARGETS zor_program RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  find_program(HELP2MAN help2man)
  if(HELP2MAN)
    set(manual ${PROJECT_BINARY_DIR}/manual)
    add_custom_command(OUTPUT ${manual}/zor.1.gz
                       COMMAND ${PROJECT_SOURCE_DIR}/cmake/manual.sh $<TARGET_FILE:zor_program> ${PROJECT_VERSION} ${manual}
                       DEPENDS zor_program ${PROJECT_SOURCE_DIR}/cmake/manual.sh VERBATIM)
    add_custom_target(zor_manual ALL DEPENDS ${manual}/zor.1.gz)
    install(DIRECTORY ${manual}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools OPTIONAL
            FILES_MATCHING PATTERN "*.1.gz")
  endif()
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${PROJECT_SOURCE_DIR}/LICENSE
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${CMAKE_INSTALL_DOCDIR})
# Of GMP, which the libraries contain.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/licenses DESTINATION ${CMAKE_INSTALL_DOCDIR})

if(PROJECT_IS_TOP_LEVEL)
  include(cmake/packages.cmake)
  add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -DMANIFEST=${PROJECT_BINARY_DIR}/install_manifest.txt -P
                    ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake VERBATIM)
endif()
