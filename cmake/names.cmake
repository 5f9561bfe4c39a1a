# build/names.txt: every exported name with its file and template, see cmake/names.cpp.
add_executable(zor_names_maker ${PROJECT_SOURCE_DIR}/cmake/names.cpp)
target_compile_options(zor_names_maker PRIVATE -O1)
set_target_properties(zor_names_maker PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${interface_rows})

set(names_objects)
set(objects_of_zor_kern_baseline $<TARGET_OBJECTS:zor_objects_baseline_shared> $<TARGET_OBJECTS:zor_objects_baseline_separate>)
set(objects_of_zor_core $<TARGET_OBJECTS:zor_core>)
# A precompiled header counts as an object, but has no names.
foreach(target zor_kern_baseline zor_core)
  file(GENERATE OUTPUT ${interface_rows}/${target}.objects CONTENT "$<JOIN:$<FILTER:${objects_of_${target}},EXCLUDE,\\.gch$>,\n>\n")
  list(APPEND names_objects ${interface_rows}/${target}.objects)
endforeach()
add_custom_command(
  OUTPUT ${PROJECT_BINARY_DIR}/names.txt
  COMMAND zor_names_maker ${PROJECT_SOURCE_DIR} ${interface_rows}/tables ${CMAKE_NM} ${PROJECT_BINARY_DIR}/names.txt
          ${names_objects}
  DEPENDS zor_names_maker ${interface_rows}/made $<TARGET_FILE:zor_kern_baseline> $<TARGET_FILE:zor_core>
  COMMENT "Listing names" VERBATIM)
add_custom_target(zor_names ALL DEPENDS ${PROJECT_BINARY_DIR}/names.txt)
