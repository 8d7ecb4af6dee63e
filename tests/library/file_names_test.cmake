# ldconfig makes the SONAME's link point to the file of the latest version, whatever versions are in the folder.
include(${ROOT}/cmake/Version.cmake)

# Checks which of several versions ldconfig chooses; the last argument is the latest. The file of 0.1.0 is always there, under
# its released name.
function(expect_latest)
  file(REMOVE_RECURSE ${WORK})
  file(MAKE_DIRECTORY ${WORK})
  file(COPY_FILE ${LIBRARY} ${WORK}/libkvo_hws.so.0.1.0)
  foreach(version ${ARGV})
    kvo_file_version(${version} number)
    file(COPY_FILE ${LIBRARY} ${WORK}/libkvo_hws.so.${number})
  endforeach()
  execute_process(COMMAND ${LDCONFIG} -n ${WORK} COMMAND_ERROR_IS_FATAL ANY)
  file(READ_SYMLINK ${WORK}/libkvo_hws.so.0 chosen)
  if(NOT chosen STREQUAL libkvo_hws.so.${number})
    message(FATAL_ERROR "of ${ARGV} ldconfig chose ${chosen}, not libkvo_hws.so.${number}")
  endif()
  message(STATUS "of ${ARGV}: ${chosen}")
endfunction()

expect_latest(${VERSION})
if(VERSION VERSION_LESS 1.0.0)
  expect_latest(${VERSION} 1.0.0)
endif()
set(earlier)
foreach(later 0.1.1 0.1.10 0.2.0 0.9.5 0.10.0 1.0.0 1.0.1 1.9.5 1.10.0 2.0.0 10.0.0)
  expect_latest(${earlier} ${later})
  set(earlier ${later})
endforeach()

# The built library has this name.
kvo_file_version(${VERSION} number)
get_filename_component(name ${LIBRARY} NAME)
if(NOT name STREQUAL libkvo_hws.so.${number})
  message(FATAL_ERROR "the library is ${name}, not libkvo_hws.so.${number}")
endif()
