# The library cannot do what it has no function for: it must not import any of these functions.
cmake_minimum_required(VERSION 3.25)
set(forbidden
  # create, change or move files and folders; the other tests check what the calls of open and unlink do
  mkdir mkdirat rmdir remove rename renameat link linkat symlink symlinkat mknod mkfifo creat truncate ftruncate
  openat unlinkat fchownat utimensat futimens setxattr
  chmod fchmod fchmodat chown fchown lchown umask utimes mkstemp mkdtemp tmpfile
  # start programs, load code, change the identity of the process
  fork vfork clone execv execve execvp execvpe execl execlp execle fexecve posix_spawn posix_spawnp system syscall popen dlopen dlmopen
  unshare mount setresuid setresgid setuid seteuid setgid setegid setgroups chroot chdir
  # read or change the environment
  getenv secure_getenv setenv putenv)

execute_process(COMMAND ${NM} -D --undefined-only ${LIBRARY} OUTPUT_VARIABLE table RESULT_VARIABLE status)
string(REGEX MATCHALL " U [A-Za-z0-9_]+" names "${table}")
list(LENGTH names count)
if(NOT status EQUAL 0 OR NOT names MATCHES " U socket;" OR count LESS 50)
  message(FATAL_ERROR "${NM} did not list the functions that ${LIBRARY} calls")
endif()
foreach(function ${forbidden})
  # With 64-bit file sizes on a 32-bit machine, names end in 64.
  if(" U ${function}" IN_LIST names OR " U ${function}64" IN_LIST names)
    message(SEND_ERROR "the library calls ${function}; docs/security.md says that it does not")
  endif()
endforeach()
message(STATUS "${count} imported functions, none of them forbidden")
