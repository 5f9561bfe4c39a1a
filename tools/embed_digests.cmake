# cmake -DFOLDER=... -DOUTPUT=... -P embed_digests.cmake: makes a source that holds the files of FOLDER.
file(GLOB files ${FOLDER}/*.txt ${FOLDER}/fused/*.txt)
set(entries "")
foreach(file ${files})
  get_filename_component(family ${file} NAME_WE)
  set(arithmetic separate)
  if(file MATCHES "/fused/[^/]*$")
    set(arithmetic fused)
  endif()
  file(READ ${file} text)
  string(APPEND entries "    {\"${arithmetic}\", \"${family}\", R\"(${text})\"},\n")
endforeach()
file(WRITE ${OUTPUT} "#include \"tools/kept_digests.h\"\n\nnamespace zor_tools {\n"
     "static constexpr kept_digest_file files[] = {\n${entries}    {nullptr, nullptr, nullptr}};\n"
     "const std::span<const kept_digest_file> kept_digest_files(files, std::size(files) - 1);\n}\n")
