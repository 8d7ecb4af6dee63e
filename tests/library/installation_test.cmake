# Installs the library into an empty prefix and builds the examples against it as a program of somebody else's would be built:
# by find_package, in C and in C++, and by pkg-config; then runs what came out against a simulated service. All of it starts
# without LD_LIBRARY_PATH, and with it takes the panel's own library that it names.
file(REMOVE_RECURSE ${WORK})
set(prefix ${WORK}/prefix)
unset(ENV{LD_LIBRARY_PATH})

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    string(REPLACE ";" " " command "${ARGV}")
    message(FATAL_ERROR "${command}\nended with ${result}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect pattern what)
  if(NOT output MATCHES "${pattern}")
    message(FATAL_ERROR "${what}: no \"${pattern}\" in\n${output}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})

foreach(file include/kvo_hws/kvo_hws.h ${LIBDIR}/libkvo_hws.so ${LIBDIR}/libkvo_hws.so.0 ${LIBDIR}/libdrak.so
        ${LIBDIR}/libpavo.so.1 ${LIBDIR}/pkgconfig/kvo_hws.pc bin/kvoctl bin/kvosim)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "${file} was not installed")
  endif()
endforeach()

# ---- Programs of others ----

set(ENV{CFLAGS} "${FLAGS}")
set(ENV{CXXFLAGS} "${FLAGS}")
run(${CMAKE_COMMAND} -G Ninja -S ${EXAMPLES} -B ${WORK}/examples -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${WORK}/examples)

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(sh -c "cc $CFLAGS ${EXAMPLES}/stations.c -o ${WORK}/with_pkg_config $(pkg-config --cflags --libs kvo_hws) \
  -Wl,-rpath,$(pkg-config --variable=libdir kvo_hws)")

foreach(program ${WORK}/examples/example_stations ${WORK}/examples/example_stations_cpp ${WORK}/with_pkg_config)
  run(${prefix}/bin/kvosim run --plant ${PLANT} -- ${program})
  expect("10\\.[0-9]+\\.[0-9]+\\.[0-9]+  " "stations printed by ${program}")
endforeach()

run(${prefix}/bin/kvosim run --plant ${PLANT} -- ${prefix}/bin/kvoctl stations)

if(PYTHON)
  run(${CMAKE_COMMAND} -E env PYTHONPATH=${EXAMPLES}/../python PYTHONDONTWRITEBYTECODE=1
    KVO_HWS_LIBRARY=${prefix}/${LIBDIR}/libkvo_hws.so.0 KVO_KVOSIM=${prefix}/bin/kvosim
    ${SANDBOX} ${PYTHON} -c "from kvo_hws import Service, Simulator\nwith Simulator(plant='${PLANT}'): print(Service().get_stations())")
  expect("10\\.0\\.0\\.5" "stations printed by Python")
else()
  message(STATUS "Not tried from Python: there is none here that can load this library")
endif()

# ---- The run paths ----

file(GLOB_RECURSE files ${prefix}/bin/* ${prefix}/${LIBDIR}/*.so*)
foreach(file ${files})
  run(readelf -dW ${file})
  if(output MATCHES "\\(RPATH\\)")
    message(FATAL_ERROR "${file} has a DT_RPATH, which goes before LD_LIBRARY_PATH:\n${output}")
  endif()
endforeach()

# The panel's own, as far as the loader can tell: another file of the same name.
set(panel ${WORK}/panel)
file(COPY ${prefix}/${LIBDIR}/libpavo.so.1 DESTINATION ${panel})
run(${prefix}/bin/kvosim run -- ${prefix}/bin/kvoctl doctor)
expect("took ${prefix}/[^\n]*libpavo.so.1" "the stand-in is taken")
set(ENV{LD_LIBRARY_PATH} ${panel})
run(${prefix}/bin/kvosim run -- ${prefix}/bin/kvoctl doctor)
expect("took ${panel}/libpavo.so.1" "kvoctl takes the panel's own")
run(${CMAKE_COMMAND} -E env LD_TRACE_LOADED_OBJECTS=1 ${prefix}/bin/kvosim)
expect("libpavo.so.1 => ${panel}/libpavo.so.1" "kvosim takes the panel's own")
