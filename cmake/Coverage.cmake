# kvo_count_coverage(TARGET): with the preset coverage, every run of the target counts its lines and branches.
# The counters are atomic because several threads of the library run the same lines.
function(kvo_count_coverage target)
  if(KVO_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic -fprofile-abs-path)
    target_link_options(${target} PRIVATE --coverage)
  endif()
endfunction()
