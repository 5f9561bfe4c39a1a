# The headers that users include, the signatures and the tables, made from include/zor by cmake/interface.cpp before
# anything else is compiled.
set(interface_source ${PROJECT_SOURCE_DIR}/include/zor)
set(interface_rows ${PROJECT_BINARY_DIR}/rows)
file(GLOB interface_tables CONFIGURE_DEPENDS ${interface_source}/tables/*.inc ${interface_source}/tables/*.h)
file(GLOB interface_headers CONFIGURE_DEPENDS ${interface_source}/*.h.in)

add_executable(zor_interface_maker ${PROJECT_SOURCE_DIR}/cmake/interface.cpp)
target_compile_options(zor_interface_maker PRIVATE -O1)
set_target_properties(zor_interface_maker PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${interface_rows})

set(interface_commands)
set(interface_outputs)
# Rows of tables that are gone go too; the others stay, since a new configuration does not make them again.
file(GLOB stale_rows ${interface_rows}/tables/*.rows)
file(MAKE_DIRECTORY ${interface_rows}/tables)
foreach(table ${interface_tables})
  get_filename_component(name ${table} NAME)
  list(APPEND interface_outputs ${PROJECT_BINARY_DIR}/internal/zor/tables/${name})
  get_filename_component(name ${table} NAME_WE)
  if(table MATCHES "\\.inc$" AND NOT name MATCHES "^all_")
    list(APPEND interface_commands COMMAND ${CMAKE_CXX_COMPILER} -E -P -x c++ -std=c++20 -I
         ${PROJECT_SOURCE_DIR}/include ${table} -o ${interface_rows}/tables/${name}.rows)
    list(REMOVE_ITEM stale_rows ${interface_rows}/tables/${name}.rows)
  endif()
endforeach()
list(FILTER interface_outputs INCLUDE REGEX "\\.inc$")
if(stale_rows)
  file(REMOVE ${stale_rows})
endif()
foreach(header ${interface_headers})
  get_filename_component(name ${header} NAME_WE)
  list(APPEND interface_outputs ${PROJECT_BINARY_DIR}/include/zor/${name}.h)
endforeach()
add_custom_command(
  OUTPUT ${interface_rows}/made
  BYPRODUCTS ${interface_outputs}
  ${interface_commands}
  COMMAND zor_interface_maker ${interface_source} ${interface_rows}/tables ${PROJECT_BINARY_DIR} ${PROJECT_VERSION}
  COMMAND ${CMAKE_COMMAND} -E touch ${interface_rows}/made
  DEPENDS zor_interface_maker ${interface_tables} ${interface_headers}
  COMMENT "Making headers and tables" VERBATIM)
add_custom_target(zor_interface DEPENDS ${interface_rows}/made)

# Every target of the project sees them and waits for them, and so does a project that uses the targets. Inside the
# project complex values are structures with members re and im.
include_directories(${PROJECT_BINARY_DIR}/include ${PROJECT_BINARY_DIR}/internal)
add_compile_definitions(ZOR_COMPLEX_STRUCT)
add_library(zor_headers INTERFACE)
add_dependencies(zor_headers zor_interface)
link_libraries($<BUILD_INTERFACE:zor_headers>)
