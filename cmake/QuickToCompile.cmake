# kvo_quick_to_compile(TARGET): for the tools and the tests. They are most of what is compiled, and wait for the service or for
# one another; the library itself is always compiled in full.
# With BATCHES, and where KVO_QUICK is on, several sources are compiled as one: they include the same large headers.
function(kvo_quick_to_compile target)
  cmake_parse_arguments(arg "BATCHES" "" "" ${ARGN})
  target_compile_options(${target} PRIVATE $<$<CONFIG:RelWithDebInfo>:-Os;-g1>)
  if(KVO_SANITIZE MATCHES undefined)
    # Checked at every use of a pointer, a quarter of the time to compile; a null pointer stops the program without them too.
    target_compile_options(${target} PRIVATE -fno-sanitize=null,alignment)
  endif()
  if(arg_BATCHES AND KVO_QUICK)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON)
  endif()
endfunction()
