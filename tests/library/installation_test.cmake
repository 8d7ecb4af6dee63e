# Installs the library into an empty prefix and builds the examples against it as other projects do: with find_package, in C and
# C++, and with pkg-config. Then runs the programs against a simulated service. All programs start without LD_LIBRARY_PATH;
# with it they use the panel's library in the folder that it names.
include(${CMAKE_CURRENT_LIST_DIR}/../building/common.cmake)
file(REMOVE_RECURSE ${WORK})
set(prefix ${WORK}/prefix)
unset(ENV{LD_LIBRARY_PATH})

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})

foreach(file include/kvo_hws/kvo_hws.h ${LIBDIR}/libkvo_hws.so ${LIBDIR}/libkvo_hws.so.0 ${LIBDIR}/libdrak.so
        ${LIBDIR}/libpavo.so.1 ${LIBDIR}/pkgconfig/kvo_hws.pc bin/kvoctl bin/kvosim)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "${file} was not installed")
  endif()
endforeach()

# Every public header is installed, also those that the C++ interface includes.
file(GLOB_RECURSE headers RELATIVE ${EXAMPLES}/../include ${EXAMPLES}/../include/*)
foreach(header ${headers})
  if(NOT EXISTS ${prefix}/include/${header})
    message(FATAL_ERROR "include/${header} was not installed")
  endif()
endforeach()
if(NOT headers MATCHES "kvo_hws/detail/call.hpp")
  message(FATAL_ERROR "the headers of the C++ interface were not found in the sources")
endif()

# The component of the stand-ins has exactly the files that must not be installed on a panel.
run(${CMAKE_COMMAND} --install ${BUILD} --component platform --prefix ${WORK}/platform)
file(GLOB_RECURSE stand_ins RELATIVE ${WORK}/platform/${LIBDIR} ${WORK}/platform/*)
list(SORT stand_ins)
if(NOT stand_ins STREQUAL "libdrak.so;libpavo.so;libpavo.so.1")
  message(FATAL_ERROR "the component platform has ${stand_ins}")
endif()

# ---- Other projects' programs ----

set(ENV{CFLAGS} "${FLAGS}")
set(ENV{CXXFLAGS} "${FLAGS}")
run(${CMAKE_COMMAND} -G Ninja -S ${EXAMPLES} -B ${WORK}/examples -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${WORK}/examples)

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(sh -c "cc $CFLAGS ${EXAMPLES}/stations.c -o ${WORK}/with_pkg_config $(pkg-config --cflags --libs kvo_hws) \
  -Wl,-rpath,$(pkg-config --variable=libdir kvo_hws)")

run(sh -c "c++ $CXXFLAGS -std=c++17 ${EXAMPLES}/stations.cpp -o ${WORK}/cpp_with_pkg_config $(pkg-config --cflags --libs kvo_hws) \
  -Wl,-rpath,$(pkg-config --variable=libdir kvo_hws)")

foreach(program ${WORK}/examples/example_stations ${WORK}/examples/example_stations_cpp ${WORK}/with_pkg_config
    ${WORK}/cpp_with_pkg_config)
  run(${prefix}/bin/kvosim run --plant ${PLANT} -- ${program})
  expect("10\\.[0-9]+\\.[0-9]+\\.[0-9]+  " "stations printed by ${program}")
endforeach()

run(${prefix}/bin/kvosim run --plant ${PLANT} -- ${prefix}/bin/kvoctl stations)

if(PYTHON)
  run(${CMAKE_COMMAND} -E env PYTHONPATH=${EXAMPLES}/../python PYTHONDONTWRITEBYTECODE=1
    KVO_HWS_LIBRARY=${prefix}/${LIBDIR}/libkvo_hws.so.0 KVO_KVOSIM=${prefix}/bin/kvosim
    ${SANDBOX} ${PYTHON} -c "from kvo_hws import Service, Simulator\nwith Simulator(plant='${PLANT}'): print(Service().get_stations())")
  expect("10\\.0\\.0\\.5" "stations printed by Python")
  if(EXISTS ${prefix}/lib/python3/dist-packages/kvo_hws)  # KVO_INSTALL_PYTHON
    run(${CMAKE_COMMAND} -E env PYTHONPATH=${prefix}/lib/python3/dist-packages PYTHONDONTWRITEBYTECODE=1
      ${PYTHON} -c "import kvo_hws\nprint(kvo_hws.OutOfRange('KVO_HWS_setBacklightBrightness', -3))")
    expect("the level is not one of 0 to 100" "a text of the installed Python module")
  endif()
endif()

# ---- The run paths ----

file(GLOB_RECURSE files ${prefix}/bin/* ${prefix}/${LIBDIR}/*.so*)
foreach(file ${files})
  run(readelf -dW ${file})
  if(output MATCHES "\\(RPATH\\)")
    message(FATAL_ERROR "${file} has a DT_RPATH, which takes precedence over LD_LIBRARY_PATH:\n${output}")
  endif()
endforeach()

# Simulates the panel's own library: the loader only sees another file with the same name.
set(panel ${WORK}/panel)
file(COPY ${prefix}/${LIBDIR}/libpavo.so.1 DESTINATION ${panel})
run(${prefix}/bin/kvosim run -- ${prefix}/bin/kvoctl doctor)
expect("uses ${prefix}/[^\n]*libpavo.so.1" "the stand-in is loaded")
set(ENV{LD_LIBRARY_PATH} ${panel})
run(${prefix}/bin/kvosim run -- ${prefix}/bin/kvoctl doctor)
expect("uses ${panel}/libpavo.so.1" "kvoctl loads the panel's library")
run(${CMAKE_COMMAND} -E env LD_TRACE_LOADED_OBJECTS=1 ${prefix}/bin/kvosim)
expect("libpavo.so.1 => ${panel}/libpavo.so.1" "kvosim loads the panel's library")
