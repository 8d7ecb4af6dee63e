# The library can not do what it has no function for: these must not be among the functions that it takes from others.
cmake_minimum_required(VERSION 3.25)
set(forbidden
  # makes, changes or moves files and folders; what may open and unlink is told apart by the other tests
  mkdir mkdirat rmdir remove rename renameat link linkat symlink symlinkat mknod mkfifo creat truncate ftruncate
  openat unlinkat fchownat utimensat futimens setxattr
  chmod fchmod fchmodat chown fchown lchown umask utimes mkstemp mkdtemp tmpfile
  # starts programs, loads code, changes who the process is
  fork vfork clone execv execve execvp execvpe execl execlp execle fexecve posix_spawn posix_spawnp system syscall popen dlopen dlmopen
  unshare mount setresuid setresgid setuid seteuid setgid setegid setgroups chroot chdir
  # asks the environment
  getenv secure_getenv setenv putenv)

execute_process(COMMAND ${NM} -D --undefined-only ${LIBRARY} OUTPUT_VARIABLE table RESULT_VARIABLE status)
string(REGEX MATCHALL " U [A-Za-z0-9_]+" names "${table}")
list(LENGTH names count)
if(NOT status EQUAL 0 OR NOT names MATCHES " U socket;" OR count LESS 50)
  message(FATAL_ERROR "${NM} has not told what ${LIBRARY} calls")
endif()
foreach(function ${forbidden})
  # With a file size of 64 bits on a machine of 32, names end in 64.
  if(" U ${function}" IN_LIST names OR " U ${function}64" IN_LIST names)
    message(SEND_ERROR "the library calls ${function}; docs/security.md says that it does nothing of the kind")
  endif()
endforeach()
message(STATUS "${count} functions of others, none of those that are forbidden")
