# Configures the project without the libraries of other event loops. Their tests are then skipped, and --require-all accepts that, unless
# KVO_TEST_LOOPS requires them. The test with poll() needs no library.
file(REMOVE_RECURSE ${WORK})
function(report required status_variable)
  execute_process(COMMAND ${CMAKE_COMMAND} -S ${ROOT} -B ${WORK} -G ${GENERATOR} -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=${CC}
      -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_DISABLE_FIND_PACKAGE_Qt5=ON
      -DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON -DKVO_TEST_LOOPS=${required}
    OUTPUT_QUIET ERROR_QUIET COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${CMAKE_CTEST_COMMAND} --test-dir ${WORK} -FA . -L loops -E _poll --output-junit tests.xml
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${ROOT}/scripts/test_report.py --require-all ${WORK}/tests.xml
    OUTPUT_VARIABLE listed ERROR_QUIET RESULT_VARIABLE status)
  if(NOT listed MATCHES "^3 of 3 tests were skipped" OR NOT listed MATCHES "qtbase5-dev")
    message(FATAL_ERROR "not every test of another event loop is skipped with its package:\n${listed}")
  endif()
  set(${status_variable} ${status} PARENT_SCOPE)
endfunction()

report(OFF accepted)
report(ON refused)
if(NOT accepted EQUAL 0 OR NOT refused EQUAL 1)
  message(FATAL_ERROR "--require-all ends with ${accepted} where the libraries are optional, and with ${refused} where they are required")
endif()

execute_process(COMMAND ${CMAKE_CTEST_COMMAND} --test-dir ${WORK} -N -R "^example_panel_poll$" OUTPUT_VARIABLE listed)
if(NOT listed MATCHES "Total Tests: 1")
  message(FATAL_ERROR "the test with poll() is missing:\n${listed}")
endif()
