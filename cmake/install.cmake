# cmake --install: libraries with their builds, headers, program, documents, and what find_package and pkg-config need.
include(CMakePackageConfigHelpers)

foreach(target ${ZOR_KERN_TARGETS})
  string(REPLACE zor_kern_ "" build ${target})
  if(build STREQUAL "baseline")
    set_target_properties(${target} PROPERTIES EXPORT_NAME kern)
    install(TARGETS ${target} EXPORT zorTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  else()
    install(TARGETS ${target} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/glibc-hwcaps/x86-64-${build} NAMELINK_SKIP)
  endif()
endforeach()
set_target_properties(zor_core PROPERTIES EXPORT_NAME core)
install(TARGETS zor_core zor EXPORT zorTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_BINARY_DIR}/include/zor DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/zor)
install(EXPORT zorTargets NAMESPACE zor:: DESTINATION ${package_folder})
file(WRITE ${PROJECT_BINARY_DIR}/zorConfig.cmake "include(\${CMAKE_CURRENT_LIST_DIR}/zorTargets.cmake)\n")
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zorConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zorConfig.cmake ${PROJECT_BINARY_DIR}/zorConfigVersion.cmake
        DESTINATION ${package_folder})

# zor.pc finds its prefix from where it stands, so that an installed tree can be moved.
file(RELATIVE_PATH prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${PROJECT_SOURCE_DIR}/cmake/zor.pc.in ${PROJECT_BINARY_DIR}/zor.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zor.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(TARGET zor_program)
  file(RELATIVE_PATH lib_from_bin /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_property(TARGET zor_program APPEND PROPERTY INSTALL_RPATH "$ORIGIN/${lib_from_bin}")
  install(TARGETS zor_program RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${PROJECT_SOURCE_DIR}/LICENSE
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${CMAKE_INSTALL_DOCDIR})
# Of GMP, which the libraries contain.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/licenses DESTINATION ${CMAKE_INSTALL_DOCDIR})

if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -DMANIFEST=${PROJECT_BINARY_DIR}/install_manifest.txt -P
                    ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake VERBATIM)
endif()
