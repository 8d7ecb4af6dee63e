# Without presets the user's flags decide: the project does not optimize, add debug information, make warnings errors, compile in
# batches or precompile headers. A configuration that is not supported is refused with a message.
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)
unset(ENV{CFLAGS})
unset(ENV{CXXFLAGS})
set(configure ${CMAKE_COMMAND} -S ${ROOT} -B ${WORK} -G Ninja)
file(REMOVE_RECURSE ${WORK})

run_refused("shared library only.*leave BUILD_SHARED_LIBS unset or ON" ${configure} -DBUILD_SHARED_LIBS=OFF)
file(REMOVE_RECURSE ${WORK})

run(${configure} -DCMAKE_CXX_FLAGS=-DUSERS=1 -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DBUILD_SHARED_LIBS=ON)
file(READ ${WORK}/compile_commands.json commands)
string(REGEX MATCHALL "\"command\": \"[^\n]*-DUSERS=1[^\n]*" lines "${commands}")
list(LENGTH lines count)
if(count LESS 100)
  message(FATAL_ERROR "only ${count} compilations have the user's flags")
endif()
foreach(line IN LISTS lines)
  if(line MATCHES " -(O[^ ]*|g[0-9]?|Werror[^ ]*|fno-sanitize[^ ]*|Winvalid-pch) |cmake_pch|Unity/")
    message(FATAL_ERROR "${CMAKE_MATCH_0} in\n${line}")
  endif()
endforeach()
message(STATUS "${count} compilations checked")

run(${configure} -DBUILD_TESTING=OFF)
file(READ ${WORK}/compile_commands.json commands)
if(commands MATCHES "\"file\": \"${ROOT}/tests/")
  message(FATAL_ERROR "tests are built despite BUILD_TESTING=OFF")
endif()

# If the four lines of version.h disagree, configuring fails.
file(REMOVE_RECURSE ${WORK})
file(COPY ${ROOT}/cmake/Version.cmake DESTINATION ${WORK}/cmake)
file(READ ${ROOT}/include/kvo_hws/version.h header)
string(REGEX REPLACE "(VERSION_MINOR) [0-9]+" "\\1 77" header "${header}")
file(WRITE ${WORK}/include/kvo_hws/version.h "${header}")
file(WRITE ${WORK}/CMakeLists.txt "cmake_minimum_required(VERSION 3.25)\ninclude(cmake/Version.cmake)\nkvo_read_version(version)\n"
  "project(read LANGUAGES NONE)\n")
run_refused("version.h: the numbers are [0-9]+\\.77\\.[0-9]+, KVO_HWS_VERSION_STRING is" ${CMAKE_COMMAND} -S ${WORK} -B ${WORK}/build)
