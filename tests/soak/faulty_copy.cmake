# Copies the source of an exchange and adds a fault: cmake -DSOURCE=... -DCOPY=... -DFAULT=... -P faulty_copy.cmake
set(anchor "    const kvo_hws::Lock lock(sGCriticalSectionCmdPipe);\n")
set(leaked_descriptor "if (++calls % 100 == 0) { static_cast<void>(fcntl(socket.get(), F_DUPFD_CLOEXEC, 0)); }")
set(held_lock "while (calls > 500) { pause(); } ++calls;")
set(lost_memory "static void *volatile lost; if (++calls % 2 == 0) { lost = malloc(200); }")
set(crash "if (++calls == 500) { __builtin_trap(); }")

file(READ ${SOURCE} source)
string(FIND "${source}" "${anchor}" place)
if(place EQUAL -1 OR NOT DEFINED ${FAULT})
  message(FATAL_ERROR "${SOURCE}: cannot insert ${FAULT}; find the lock of an exchange there and correct this script")
endif()
string(REPLACE "${anchor}" "${anchor}    static unsigned calls = 0;\n    ${${FAULT}}\n" source "${source}")
file(WRITE ${COPY} "#include <cstdlib>\n#include <fcntl.h>\n#include <unistd.h>\n${source}")
