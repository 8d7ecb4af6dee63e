# The binary interface of the built library (exports, signatures, records) against its description in library/abi. Anything that
# differs is a failure, additions too: KVO_WRITE_ABI=1 in the environment writes the description anew, for a reader to judge.
set(described ${ROOT}/library/abi/x86_64.abi)
execute_process(COMMAND ${ABIDW} --exported-interfaces-only --headers-dir ${ROOT}/include --drop-private-types --no-show-locs
    --type-id-style hash --no-corpus-path --no-comp-dir-path --no-elf-needed --no-parameter-names ${LIBRARY}
  OUTPUT_VARIABLE description COMMAND_ERROR_IS_FATAL ANY)
# Sources by module and name, wherever they were compiled: a compiler cache keeps the paths of the first build.
string(REGEX REPLACE "path='/[^']*/([^/']+/[^/']+)'" "path='\\1'" description "${description}")

if(DEFINED ENV{KVO_WRITE_ABI})
  file(WRITE ${described} "${description}")
  message(STATUS "wrote ${described} instead of comparing")
  return()
endif()
file(WRITE ${WORK}/built.abi "${description}")
execute_process(COMMAND ${ABIDIFF} ${described} ${WORK}/built.abi RESULT_VARIABLE difference)
if(NOT difference EQUAL 0)
  message(FATAL_ERROR "the binary interface is not the one that library/abi describes (KVO_WRITE_ABI=1 describes it anew)")
endif()
