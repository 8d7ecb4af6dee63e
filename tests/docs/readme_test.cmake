# Runs the commands of README.md and then docs/python.md, with an empty home directory and demo.sh's build folder already built.
file(REMOVE_RECURSE ${WORK})
set(project ${WORK}/libkvo_hws)
file(MAKE_DIRECTORY ${project}/build ${WORK}/home)
foreach(name demo.sh docs examples include python README.md)
  file(CREATE_LINK ${ROOT}/${name} ${project}/${name} SYMBOLIC)
endforeach()
file(CREATE_LINK ${BUILD} ${project}/build/demo SYMBOLIC)

foreach(variable PKG_CONFIG_PATH PYTHONPATH LD_LIBRARY_PATH KVO_HWS_LIBRARY KVO_KVOSIM CMAKE_PREFIX_PATH)
  unset(ENV{${variable}})
endforeach()
set(ENV{HOME} ${WORK}/home)
set(ENV{CFLAGS} "${FLAGS}")
execute_process(COMMAND ${SANDBOX} --network ${PYTHON} ${CMAKE_CURRENT_LIST_DIR}/run_page.py --lax README.md docs/python.md
  WORKING_DIRECTORY ${project} COMMAND_ERROR_IS_FATAL ANY)

# Other files that the pages promise in the folder.
set(promised share/bash-completion/completions/kvosim share/zsh/site-functions/_kvo share/fish/vendor_completions.d/kvosim.fish)
if(MANUALS)
  list(APPEND promised share/man/man3/kvo_hws.3 share/man/man1/kvoctl.1)
endif()
foreach(file ${promised})
  if(NOT EXISTS ${WORK}/home/kvo/${file})
    message(FATAL_ERROR "${file} is not in the folder that README installs into")
  endif()
endforeach()
