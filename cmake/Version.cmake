# The version is defined in one place, include/kvo_hws/version.h, so that programs can use the headers without configuring a build.
# kvo_read_version(VARIABLE): reads the version from that header.
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

# kvo_file_version(VERSION VARIABLE): the text after "libkvo_hws.so." in the name of the library's file.
# ldconfig lets the SONAME's link point to the file whose name sorts last, number by number. The first number is the SONAME's in
# every version. The others must grow with the version, also past 1.0.0; therefore the second number combines the first two numbers of
# the version: 0.9.5 is in libkvo_hws.so.0.9.5, 1.0.0 in libkvo_hws.so.0.1000.0, 1.2.3 in libkvo_hws.so.0.1002.3.
function(kvo_file_version version variable)
  string(REPLACE . ";" numbers ${version})
  list(GET numbers 0 major)
  list(GET numbers 1 minor)
  list(GET numbers 2 patch)
  math(EXPR second "${major} * 1000 + ${minor}")
  set(${variable} 0.${second}.${patch} PARENT_SCOPE)
endfunction()
