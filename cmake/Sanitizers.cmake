# The presets asan and tsan set KVO_SANITIZE; it holds for everything that is built.
if(KVO_SANITIZE)
  add_compile_options(-fsanitize=${KVO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KVO_SANITIZE})
endif()
