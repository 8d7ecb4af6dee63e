# Installs the library and its tools into an empty prefix, and runs the commands of a page with it.
file(REMOVE_RECURSE ${WORK})
set(prefix ${WORK}/prefix)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)

# The compiler for the page: this build's compiler with its flags, and with warnings as errors.
file(CONFIGURE OUTPUT ${WORK}/bin/${NAME} CONTENT "#!/bin/sh\nexec ${COMPILER} ${FLAGS} -Wall -Wextra -Wpedantic -Werror \"$@\"\n")
file(CHMOD ${WORK}/bin/${NAME} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)

set(ENV{PATH} ${WORK}/bin:${prefix}/bin:$ENV{PATH})
set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
set(ENV{LD_LIBRARY_PATH} ${prefix}/${LIBDIR})
execute_process(COMMAND ${SANDBOX} --network ${PYTHON} ${CMAKE_CURRENT_LIST_DIR}/run_page.py ${PAGE} COMMAND_ERROR_IS_FATAL ANY)
