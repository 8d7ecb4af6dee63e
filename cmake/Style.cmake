# Targets "format" (rewrites), "format-check" and "tidy" over everything that git tracks.
find_program(CLANG_FORMAT clang-format)
find_program(RUN_CLANG_TIDY NAMES run-clang-tidy run-clang-tidy-14)

set(list_sources git ls-files "*.cpp" "*.h" "*.c")
if(CLANG_FORMAT)
  add_custom_target(format COMMAND ${list_sources} | xargs ${CLANG_FORMAT} -i
                    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM COMMAND_EXPAND_LISTS)
  add_custom_target(format-check COMMAND ${list_sources} | xargs ${CLANG_FORMAT} --dry-run -Werror
                    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM COMMAND_EXPAND_LISTS)
endif()
# clang-tidy takes the compiler's precompiled headers for its own, and fails: it has the preset debug.
if(RUN_CLANG_TIDY AND NOT KVO_PCH)
  add_custom_target(tidy COMMAND ${RUN_CLANG_TIDY} -quiet -p ${CMAKE_BINARY_DIR}
                    "${PROJECT_SOURCE_DIR}/(runtime|service|codecs|requests|usbevents|config|agent|platform|tools)/.*"
                    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM)
endif()
