# Configures the project without the tools that only tests use. Their tests must exist, each skipped with a printed reason, and
# --require-all must not accept that.
file(REMOVE_RECURSE ${WORK})
set(tests binary_interface completions_zsh completions_fish headers_clang installation_python
  library_file_names manuals_build manuals_pages python_mypy structure_includes structure_places structure_test_names)
execute_process(COMMAND ${CMAKE_COMMAND} -S ${ROOT} -B ${WORK} -G ${GENERATOR} -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=${CC}
    -DCMAKE_CXX_COMPILER=${CXX} -DABIDW=OFF -DCLANG=OFF -DKVO_MYPY=OFF -DFOUND_doxygen=OFF -DFOUND_mandoc=OFF -DFOUND_fish=OFF -DFOUND_zsh=OFF
    -DKVO_PYTHON3=OFF -DKVO_LDCONFIG=OFF
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
list(JOIN tests "|" names)
execute_process(COMMAND ${CMAKE_CTEST_COMMAND} --test-dir ${WORK} -FA . -R "^(${names})$" --output-junit tests.xml
  OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${ROOT}/scripts/test_report.py --require-all ${WORK}/tests.xml
  OUTPUT_VARIABLE listed ERROR_VARIABLE refused RESULT_VARIABLE status)
list(LENGTH tests count)
if(NOT listed MATCHES "^${count} of ${count} tests were skipped" OR NOT status EQUAL 1)
  message(FATAL_ERROR "not every one of ${names} is skipped because its tool is missing:\n${output}${listed}${refused}")
endif()
foreach(tool "abidw and abidiff" clang mypy doxygen mandoc fish zsh python3 ldconfig)
  if(NOT listed MATCHES "missing tool: [^\n]*${tool}")
    message(FATAL_ERROR "no test is skipped because ${tool} is missing:\n${listed}")
  endif()
endforeach()
