# Tests that are not run here and say so, so that they are counted (scripts/test_report.py prints them after ./test.sh).

# kvo_skipped_test(NAME REASON): a test that only says why it is not run.
function(kvo_skipped_test name reason)
  add_test(NAME ${name} COMMAND ${CMAKE_COMMAND} -E echo "skipped: ${reason}")
  set_tests_properties(${name} PROPERTIES SKIP_REGULAR_EXPRESSION "^skipped: ")
endfunction()

# kvo_missing_tool(NAME TOOLS...): the same for want of tools or packages; "./test.sh --require-all" fails then.
function(kvo_missing_tool name)
  list(JOIN ARGN ", " tools)
  kvo_skipped_test(${name} "missing tool: ${tools}")
endfunction()
