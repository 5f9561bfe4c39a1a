# cmake -DARCHIVE=... -DNM=... -DOBJCOPY=... -DOUTPUT=... [-DNAMES=...] -P private_gmp.cmake
# Copies GMP's static library, renaming every symbol that it defines, so that nothing in the copy meets another GMP of
# the process. NAMES lists pairs "gmp_name exported_name;"; a symbol of that list gets the exported name, every other one
# the prefix zor_own_. OUTPUT.ld makes the linker take in the exported ones.
# The standard streams are renamed as well: the archive is compiled for programs, which hold a copy of these variables,
# and a shared library does not; see gmp/streams.h.
execute_process(COMMAND ${NM} --defined-only --extern-only --format=posix ${ARCHIVE}
                OUTPUT_VARIABLE symbols ERROR_VARIABLE messages RESULT_VARIABLE failed)
string(REGEX MATCHALL "(^|\n)[A-Za-z_][A-Za-z_0-9]* [A-Z] " symbols "${symbols}")
if(failed OR NOT symbols)
  message(FATAL_ERROR "${ARCHIVE}: no symbols of GMP found; ${messages}")
endif()
set(renames "stdin zor_own_stdin\nstdout zor_own_stdout\nstderr zor_own_stderr\n")
set(externs "")
if(NAMES)
  file(READ ${NAMES} pairs)
endif()
foreach(pair ${pairs})
  string(REGEX MATCH "([A-Za-z_0-9]+) +([A-Za-z_0-9]+)" found "${pair}")
  if(found)
    set(exported_${CMAKE_MATCH_1} ${CMAKE_MATCH_2})
    string(APPEND externs "EXTERN(${CMAKE_MATCH_2})\n")
  endif()
endforeach()
foreach(symbol ${symbols})
  string(REGEX REPLACE "\n?([A-Za-z_0-9]+) [A-Z] " "\\1" symbol "${symbol}")
  if(exported_${symbol})
    string(APPEND renames "${symbol} ${exported_${symbol}}\n")
  else()
    string(APPEND renames "${symbol} zor_own_${symbol}\n")
  endif()
endforeach()
file(WRITE ${OUTPUT}.renames "${renames}")
file(WRITE ${OUTPUT}.ld "${externs}")
execute_process(COMMAND ${OBJCOPY} --redefine-syms=${OUTPUT}.renames ${ARCHIVE} ${OUTPUT} RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "${OBJCOPY} could not copy ${ARCHIVE}")
endif()
