# Installs the library into an empty prefix and builds the examples against it as a program of somebody else's would be built:
# by find_package, in C and in C++, and by pkg-config; then runs what came out against a simulated service.
file(REMOVE_RECURSE ${WORK})
set(prefix ${WORK}/prefix)

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    string(REPLACE ";" " " command "${ARGV}")
    message(FATAL_ERROR "${command}\nended with ${result}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})

foreach(file include/kvo_hws/kvo_hws.h ${LIBDIR}/libkvo_hws.so ${LIBDIR}/libkvo_hws.so.0 ${LIBDIR}/libdrak.so
        ${LIBDIR}/libpavo.so.1 ${LIBDIR}/pkgconfig/kvo_hws.pc bin/kvoctl bin/kvosim)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "${file} was not installed")
  endif()
endforeach()

set(ENV{CFLAGS} "${FLAGS}")
set(ENV{CXXFLAGS} "${FLAGS}")
run(${CMAKE_COMMAND} -G Ninja -S ${EXAMPLES} -B ${WORK}/examples -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${WORK}/examples)

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(sh -c "cc $CFLAGS ${EXAMPLES}/stations.c -o ${WORK}/with_pkg_config $(pkg-config --cflags --libs kvo_hws)")

set(ENV{LD_LIBRARY_PATH} ${prefix}/${LIBDIR})
foreach(program ${WORK}/examples/example_stations ${WORK}/examples/example_stations_cpp ${WORK}/with_pkg_config)
  run(${KVOSIM} run --plant ${PLANT} -- ${program})
  if(NOT output MATCHES "10\\.[0-9]+\\.[0-9]+\\.[0-9]+  ")
    message(FATAL_ERROR "${program} printed no station:\n${output}")
  endif()
endforeach()

run(${KVOSIM} run --plant ${PLANT} -- ${prefix}/bin/kvoctl stations)
