# kvo_warnings(TARGET): enables the project's warnings for a target. CMAKE_COMPILE_WARNING_AS_ERROR, which presets and continuous
# integration set, turns them into errors.
function(kvo_warnings target)
  if(PROJECT_IS_TOP_LEVEL)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
      # Only clang's -Wall includes this warning, which requires braces for inherited members in the rows of test tables.
      $<$<CXX_COMPILER_ID:Clang>:-Wno-missing-braces>)
  endif()
endfunction()
