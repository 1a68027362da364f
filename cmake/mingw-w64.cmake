# Cross build for 64-bit Windows with Debian's mingw-w64 (package g++-mingw-w64-x86-64-posix).
# Programs of the build are run under Wine, so that ctest works as on Windows.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
# Archives of link-time-optimised objects need the compiler's own ar and ranlib.
set(CMAKE_AR x86_64-w64-mingw32-gcc-ar-posix)
set(CMAKE_C_COMPILER_AR x86_64-w64-mingw32-gcc-ar-posix)
set(CMAKE_CXX_COMPILER_AR x86_64-w64-mingw32-gcc-ar-posix)
set(CMAKE_RANLIB x86_64-w64-mingw32-gcc-ranlib-posix)
set(CMAKE_C_COMPILER_RANLIB x86_64-w64-mingw32-gcc-ranlib-posix)
set(CMAKE_CXX_COMPILER_RANLIB x86_64-w64-mingw32-gcc-ranlib-posix)

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../scripts/wine")
