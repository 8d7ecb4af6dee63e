# kvo_warnings(TARGET): what every target of the project is compiled with. Whether a warning is an error is up to
# CMAKE_COMPILE_WARNING_AS_ERROR, which presets and continuous integration set.
function(kvo_warnings target)
  if(PROJECT_IS_TOP_LEVEL)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
  endif()
endfunction()
