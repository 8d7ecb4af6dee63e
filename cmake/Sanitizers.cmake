# The presets asan and tsan set KVO_SANITIZE, which applies to all targets.
if(KVO_SANITIZE)
  add_compile_options(-fsanitize=${KVO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KVO_SANITIZE})
endif()

# kvo_sanitize_in_part(TARGET [CHECKS...]): switches off some checks of undefined behaviour, "null,alignment" by default. These
# checks at every use of a pointer take a quarter of the compile time, and a null pointer stops the program anyway.
function(kvo_sanitize_in_part target)
  set(unchecked null,alignment)
  if(ARGN)
    list(JOIN ARGN , unchecked)
  endif()
  if(KVO_SANITIZE MATCHES undefined)
    target_compile_options(${target} PRIVATE -fno-sanitize=${unchecked})
  endif()
endfunction()
