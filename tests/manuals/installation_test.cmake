# Installs the completions, and the manuals if they are built, and checks that the files are where programs look for them.
file(REMOVE_RECURSE ${PREFIX})

function(install component)
  execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --component ${component} --prefix ${PREFIX}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${component}: ${output}")
  endif()
endfunction()

set(files bash-completion/completions/kvoctl bash-completion/completions/kvosim zsh/site-functions/_kvo
  fish/vendor_completions.d/kvoctl.fish fish/vendor_completions.d/kvosim.fish)
install(completions)
if(MANUALS)
  install(manuals)
  list(APPEND files man/man1/kvoctl.1 man/man1/kvosim.1 man/man3/kvo_hws.3 man/man3/KVO_HWS_getBacklightBrightnessV2.3
    man/man3/kvo::Result::value.3 man/man5/kvo-plant.5 man/man5/kvo-recording.5 man/man5/kvo_hws.conf.5 doc/kvo_hws/html/index.html)
else()
  message(STATUS "The manuals are not built here (KVO_BUILD_MANUALS), and not installed")
endif()

foreach(file ${files})
  if(NOT EXISTS ${PREFIX}/share/${file})
    message(FATAL_ERROR "${file} was not installed")
  endif()
endforeach()
