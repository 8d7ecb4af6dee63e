# Tests that cannot run on this machine. They print the reason and are counted as skipped (scripts/test_report.py lists them).

# kvo_skipped_test(NAME REASON): adds a test that is skipped and prints the reason.
function(kvo_skipped_test name reason)
  add_test(NAME ${name} COMMAND ${CMAKE_COMMAND} -E echo "skipped: ${reason}")
  set_tests_properties(${name} PROPERTIES SKIP_REGULAR_EXPRESSION "^skipped: ")
endfunction()

# kvo_missing_tool(NAME TOOLS...): adds a test that is skipped because tools or packages are missing; "./test.sh --require-all" then
# fails.
function(kvo_missing_tool name)
  list(JOIN ARGN ", " tools)
  kvo_skipped_test(${name} "missing tool: ${tools}")
endfunction()
