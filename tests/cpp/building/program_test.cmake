# A program of two units, one without exceptions and RTTI, with hidden symbols: it links and runs, and a value that does not exist
# throws in one unit and ends the process with a message in the other.
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)
compile(${program}/with_exceptions.cpp ${WORK}/with_exceptions.o -fvisibility=hidden)
compile(${program}/without_exceptions.cpp ${WORK}/without_exceptions.o -fvisibility=hidden -fno-exceptions -fno-rtti)
get_filename_component(folder ${LIBRARY} DIRECTORY)

function(expect_run pattern ends)
  execute_process(COMMAND ${WORK}/program ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output TIMEOUT 60)
  if(NOT result MATCHES "${ends}" OR NOT output MATCHES "${pattern}")
    message(FATAL_ERROR "program ${ARGN} ended with ${result} instead of ${ends}, and printed\n${output}")
  endif()
endfunction()

# The order of the objects decides whose copy of a function the linker keeps.
foreach(objects "with_exceptions.o without_exceptions.o" "without_exceptions.o with_exceptions.o")
  string(REPLACE " " ";" objects ${objects})
  list(TRANSFORM objects PREPEND ${WORK}/)
  execute_process(COMMAND ${COMPILER} ${FLAGS} ${objects} ${LIBRARY} -pthread -Wl,-rpath,${folder} -o ${WORK}/program
    RESULT_VARIABLE result ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${output}")
  endif()
  expect_run("^all of it works\n$" "^0$")
  expect_run("^kvo_hws: no service answers at /tmp/kvo_hws/cmd_sock \\(KVO_HWS_getMCPAddress: -2\\)\n$" "abort|Aborted" "end")
endforeach()
