# kvo_warnings(TARGET): what every target of the project is compiled with.
function(kvo_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
endfunction()
