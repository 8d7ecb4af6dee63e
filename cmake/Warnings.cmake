# kvo_warnings(TARGET): enables the project's warnings for a target. CMAKE_COMPILE_WARNING_AS_ERROR, which presets and continuous
# integration set, turns them into errors.
function(kvo_warnings target)
  if(PROJECT_IS_TOP_LEVEL)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
      # Only clang includes this warning: rows of test tables would need braces for inherited members.
      $<$<CXX_COMPILER_ID:Clang>:-Wno-missing-braces>)
  endif()
endfunction()
