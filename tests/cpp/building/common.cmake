# The warnings with which the headers compile: all of the compiler's that make sense for a header.
if(COMPILER MATCHES clang)
  # Not those about older languages, padding, classes without a source, and the form of the comments and names of the C headers.
  set(warnings -Weverything -Wno-c++98-compat -Wno-c++98-compat-pedantic -Wno-unknown-warning-option -Wno-pre-c++20-compat-pedantic
    -Wno-padded -Wno-weak-vtables -Wno-documentation -Wno-reserved-identifier)
else()
  set(warnings -Wall -Wextra -Wpedantic -Wcast-align -Wcast-qual -Wconversion -Wdouble-promotion -Wduplicated-branches
    -Wduplicated-cond -Wextra-semi -Wformat=2 -Wlogical-op -Wmissing-declarations -Wnon-virtual-dtor -Wnull-dereference
    -Wold-style-cast -Woverloaded-virtual -Wredundant-decls -Wshadow -Wsign-conversion -Wundef -Wuseless-cast
    -Wzero-as-null-pointer-constant)
endif()
list(APPEND warnings -Werror)
separate_arguments(OPTIONS UNIX_COMMAND "${OPTIONS}")
separate_arguments(FLAGS UNIX_COMMAND "${FLAGS}")
set(program ${CMAKE_CURRENT_LIST_DIR}/program)
file(MAKE_DIRECTORY ${WORK})

# compile(SOURCE OBJECT OPTIONS...): compiles as a user does.
function(compile source object)
  execute_process(COMMAND ${COMPILER} ${FLAGS} ${OPTIONS} ${warnings} -I ${ROOT}/include ${ARGN} -c ${source} -o ${object}
    RESULT_VARIABLE result ERROR_VARIABLE output OUTPUT_VARIABLE output)
  if(NOT result EQUAL 0)
    string(REPLACE ";" " " options "${OPTIONS} ${ARGN}")
    message(FATAL_ERROR "${COMPILER} ${options} ${source}\n${output}")
  endif()
endfunction()
