# A parent project includes libkvo_hws with GUEST=add_subdirectory or GUEST=FetchContent: it gets only the library, none of its own
# settings change (parent/CMakeLists.txt checks), and the build does not write into the sources. With FetchContent the parent also
# installs the library, without the stand-ins, and programs are built and run against the installation.
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)
unset(ENV{LD_LIBRARY_PATH})
set(ENV{CFLAGS} "${FLAGS}")
set(ENV{CXXFLAGS} "${FLAGS} -O0 -DDEBUG")  # a common macro, which is also the name of one of our functions
set(source ${WORK}/source)
set(prefix ${WORK}/prefix)
file(REMOVE_RECURSE ${WORK})
copy_sources(${source})
listing(${source} before)

set(options -DGUEST=${GUEST} -DSOURCE=${source} -DCMAKE_INSTALL_PREFIX=${prefix})
if(GUEST STREQUAL FetchContent)
  list(APPEND options -DWITHOUT_PROGRAMS=ON -DKVO_INSTALL=ON -DKVO_INSTALL_PLATFORM=OFF)
else()
  # Makes sure that there is one on every machine.
  file(WRITE ${WORK}/bin/clang-format "#!/bin/sh\n")
  file(CHMOD ${WORK}/bin/clang-format PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  set(ENV{PATH} ${WORK}/bin:$ENV{PATH})
endif()
run(${CMAKE_COMMAND} -G Ninja -S ${CMAKE_CURRENT_LIST_DIR}/parent -B ${WORK}/build ${options})
expect("target kvo_hws\n" "the guest's targets")
if(output MATCHES "target kvo(sim|ctl)|_test")
  message(FATAL_ERROR "more than the library is built:\n${output}")
endif()
run(${CMAKE_COMMAND} --build ${WORK}/build)
run(${WORK}/build/program)
expect("headers [0-9.]+, ready: -2" "a parent's program without a service")

listing(${source} after)
if(NOT before STREQUAL after)
  message(FATAL_ERROR "the build wrote into its sources, before:\n${before}after:\n${after}")
endif()

if(NOT GUEST STREQUAL FetchContent)
  run_refused("not built as part of another project" ${CMAKE_COMMAND} ${WORK}/build -DKVO_BUILD_TESTS=ON)
  return()
endif()

# ---- Installed without the stand-ins ----

run(${CMAKE_COMMAND} --install ${WORK}/build)
file(GLOB_RECURSE stand_ins ${prefix}/*pavo* ${prefix}/*drak*)
if(stand_ins)
  message(FATAL_ERROR "stand-ins were installed: ${stand_ins}")
endif()
run(readelf -dW ${prefix}/${LIBDIR}/libkvo_hws.so.0)
if(output MATCHES "RPATH|RUNPATH")
  message(FATAL_ERROR "the library has a run path although no stand-ins are installed next to it:\n${output}")
endif()

# Simulates the panel's own libraries.
file(GLOB panel ${WORK}/build/_deps/kvo_hws-build/platform/*.so*)
file(COPY ${panel} DESTINATION ${WORK}/panel)
function(run_program program)
  run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${WORK}/panel ${program})
  expect("headers [0-9.]+, ready: -2" "${program}")
endfunction()

file(WRITE ${WORK}/user/CMakeLists.txt "cmake_minimum_required(VERSION 3.16)\nproject(user C)\nfind_package(kvo_hws REQUIRED)\n"
  "add_executable(program ${CMAKE_CURRENT_LIST_DIR}/parent/program.c)\ntarget_link_libraries(program PRIVATE kvo_hws::kvo_hws)\n")
run(${CMAKE_COMMAND} -G Ninja -S ${WORK}/user -B ${WORK}/user/build -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${WORK}/user/build)
run_program(${WORK}/user/build/program)

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(sh -c "cc $CFLAGS ${CMAKE_CURRENT_LIST_DIR}/parent/program.c -o ${WORK}/with_pkg_config \
  $(pkg-config --cflags --libs kvo_hws) -Wl,-rpath,${prefix}/${LIBDIR}")
run_program(${WORK}/with_pkg_config)
