# The version has one place, include/kvo_hws/version.h: programs can be built against the headers before anything is configured.
# kvo_read_version(VARIABLE): the version that stands there.
function(kvo_read_version variable)
  set(header ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/../include/kvo_hws/version.h)
  file(READ ${header} text)
  foreach(part MAJOR MINOR PATCH)
    string(REGEX MATCH "#define KVO_HWS_VERSION_${part} ([0-9]+)\n" line "${text}")
    list(APPEND numbers ${CMAKE_MATCH_1})
  endforeach()
  string(REGEX MATCH "#define KVO_HWS_VERSION_STRING \"([^\"]*)\"" line "${text}")
  list(JOIN numbers . version)
  if(NOT version STREQUAL CMAKE_MATCH_1)
    message(FATAL_ERROR "include/kvo_hws/version.h: the numbers are ${version}, KVO_HWS_VERSION_STRING is \"${CMAKE_MATCH_1}\"")
  endif()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
  set(${variable} ${version} PARENT_SCOPE)
endfunction()

# kvo_file_version(VERSION VARIABLE): what follows "libkvo_hws.so." in the name of the library's file.
# ldconfig has the SONAME's link point to the file whose name sorts last, number by number. The first number is the SONAME's,
# whatever the version; the rest has to rise with the version, past 1.0.0 too. So the second carries both the version's first
# and second: 0.9.5 lies in libkvo_hws.so.0.9.5, 1.0.0 in libkvo_hws.so.0.1000.0, 1.2.3 in libkvo_hws.so.0.1002.3.
function(kvo_file_version version variable)
  string(REPLACE . ";" numbers ${version})
  list(GET numbers 0 major)
  list(GET numbers 1 minor)
  list(GET numbers 2 patch)
  math(EXPR second "${major} * 1000 + ${minor}")
  set(${variable} 0.${second}.${patch} PARENT_SCOPE)
endfunction()
