# The presets asan and tsan set KVO_SANITIZE; it holds for everything that is built.
if(KVO_SANITIZE)
  add_compile_options(-fsanitize=${KVO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KVO_SANITIZE})
endif()

# kvo_sanitize_in_part(TARGET [CHECKS...]): without some checks of undefined behaviour, "null,alignment" if none are named. Checked at
# every use of a pointer, these take a quarter of the time to compile; a null pointer stops the program without them too.
function(kvo_sanitize_in_part target)
  set(unchecked null,alignment)
  if(ARGN)
    list(JOIN ARGN , unchecked)
  endif()
  if(KVO_SANITIZE MATCHES undefined)
    target_compile_options(${target} PRIVATE -fno-sanitize=${unchecked})
  endif()
endfunction()
