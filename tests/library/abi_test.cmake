# Compares the binary interface of the built library (exports, signatures, records) with its description in library/abi. Any
# difference fails, additions too. With KVO_WRITE_ABI=1 in the environment the description is rewritten, for review.
set(described ${ROOT}/library/abi/x86_64.abi)
execute_process(COMMAND ${ABIDW} --exported-interfaces-only --headers-dir ${ROOT}/include --drop-private-types --no-show-locs
    --type-id-style hash --no-corpus-path --no-comp-dir-path --no-elf-needed --no-parameter-names ${LIBRARY}
  OUTPUT_VARIABLE description COMMAND_ERROR_IS_FATAL ANY)
# Names sources by module and file only: a compiler cache keeps the paths of the first build.
string(REGEX REPLACE "path='/[^']*/([^/']+/[^/']+)'" "path='\\1'" description "${description}")

if(DEFINED ENV{KVO_WRITE_ABI})
  file(WRITE ${described} "${description}")
  message(STATUS "wrote ${described} instead of comparing")
  return()
endif()
file(WRITE ${WORK}/built.abi "${description}")
execute_process(COMMAND ${ABIDIFF} ${described} ${WORK}/built.abi RESULT_VARIABLE difference)
if(NOT difference EQUAL 0)
  message(FATAL_ERROR "the binary interface differs from its description in library/abi (KVO_WRITE_ABI=1 rewrites the description)")
endif()
