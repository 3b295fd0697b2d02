# Toolchain file of the 32-bit builds: the machine's own compiler with -m32, and the libraries that
# scripts/build unpacked into build/i386-sysroot.
set(VTAPI_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/i386-sysroot")
cmake_path(NORMAL_PATH VTAPI_SYSROOT)
set(VTAPI_SYSROOT_ARCH i386-linux-gnu)

# Plain i686, as Debian's i386: no SSE, hence no demand on the alignment of a caller's stack.
set(CMAKE_C_FLAGS_INIT "-m32 -march=i686")
set(CMAKE_CXX_FLAGS_INIT "-m32 -march=i686")

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../scripts/run-i386")
