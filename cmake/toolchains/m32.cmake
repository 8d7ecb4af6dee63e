# 32-bit programs on 64-bit x86. The kernel's headers are named here because Debian's gcc-multilib, which links them to where the
# compiler looks, can not be installed beside cross compilers.
set(CMAKE_C_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT}")
