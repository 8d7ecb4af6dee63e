# kvo_warnings(TARGET): what every target of the project is compiled with. Whether a warning is an error is up to
# CMAKE_COMPILE_WARNING_AS_ERROR, which presets and continuous integration set.
function(kvo_warnings target)
  if(PROJECT_IS_TOP_LEVEL)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
      # clang alone counts this among them: a row of a test's table would need braces for what it inherits.
      $<$<CXX_COMPILER_ID:Clang>:-Wno-missing-braces>)
  endif()
endfunction()
