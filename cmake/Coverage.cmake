# kvo_count_coverage(TARGET): under the preset coverage, every run of the target adds to the counts of its lines and branches.
# They are counted atomically, because threads of the library meet in the same lines.
function(kvo_count_coverage target)
  if(KVO_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic -fprofile-abs-path)
    target_link_options(${target} PRIVATE --coverage)
  endif()
endfunction()
