# Targets "format" (rewrites) and "format-check" for all files that git tracks.
find_program(CLANG_FORMAT clang-format)

set(list_sources git ls-files "*.cpp" "*.h" "*.hpp" "*.c")
if(CLANG_FORMAT)
  add_custom_target(format COMMAND ${list_sources} | xargs ${CLANG_FORMAT} -i
                    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM COMMAND_EXPAND_LISTS)
  add_custom_target(format-check COMMAND ${list_sources} | xargs ${CLANG_FORMAT} --dry-run -Werror
                    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM COMMAND_EXPAND_LISTS)
endif()
