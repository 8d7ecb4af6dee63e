# Checks that every function that the library imports is either in the first table of docs/reliability.md, or in the list below
# with the reason why it is not. Add a new function to one of the two, so the faults of every call are tested.
cmake_minimum_required(VERSION 3.25)
set(without_faults
  # Texts, numbers, and memory that is already allocated.
  free memchr memcmp memcpy memmove memset snprintf vsnprintf sscanf strchr strchrnul strcpy strcspn strlen strnlen strspn
  strtok_r strtol_l strtoul_l htonl htons inet_addr inet_aton inet_ntop newlocale strerror
  # They fail only for arguments that the library does not pass, or do not report failures.
  clock_gettime time localtime_r closedir fclose shutdown fwrite stderr exit openlog closelog syslog vsyslog
  pthread_self pthread_detach pthread_kill pthread_mutex_lock pthread_mutex_unlock pthread_setcancelstate sem_post sem_destroy
  # The panel's libraries.
  GetCurrentThreadId GetIpByInterface GetTickCount64 getAdapterBroadcastCache getAdapterMacCache getAdapterValuesDirect
  setAdapterInterfaceCache libpavo_getMetric keywords read_conf read_int read_str read_u16)
set(memory malloc calloc realloc strdup strndup)

file(STRINGS ${PAGE} rows REGEX "^\\| [a-z0-9_]+ (\\(TCP\\) )?\\| [A-Zu]")
list(TRANSFORM rows REPLACE "^\\| ([a-z0-9_]+) .*" "\\1")
execute_process(COMMAND ${NM} -D --undefined-only ${LIBRARY} OUTPUT_VARIABLE table COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL " [Uw] [A-Za-z0-9_]+" names "${table}")
list(TRANSFORM names REPLACE "^ [Uw] (__isoc[0-9]+_)?" "")
list(FILTER names EXCLUDE REGEX "^_")  # of the language runtime
list(LENGTH names count)
if(count LESS 50)
  message(FATAL_ERROR "${NM} lists only ${count} functions that ${LIBRARY} calls")
endif()
foreach(name ${names})
  string(REGEX REPLACE "^(open|fopen|fstat|readdir)64$" "\\1" name ${name})
  if(NOT name IN_LIST rows AND NOT name IN_LIST memory AND NOT name IN_LIST without_faults)
    message(SEND_ERROR "the library calls ${name}, which is neither in the table of faults nor in the list without faults")
  endif()
  list(APPEND called ${name})
endforeach()
foreach(row ${rows})
  if(NOT row IN_LIST called AND NOT row STREQUAL "memory")
    message(SEND_ERROR "the table of faults contains ${row}, which the library does not call")
  endif()
endforeach()
