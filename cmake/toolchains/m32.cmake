# 32-bit programs on 64-bit x86. The path of the kernel's headers is set here because Debian's gcc-multilib, which links them
# into the compiler's search path, cannot be installed together with cross compilers.
set(CMAKE_C_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT}")
