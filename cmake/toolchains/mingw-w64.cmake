# Windows x86-64 from a Debian machine: MinGW-w64 GCC with POSIX threads; executables run under Wine.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)

set(kx_triple x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${kx_triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${kx_triple}-g++-posix)
set(CMAKE_RC_COMPILER ${kx_triple}-windres)
set(CMAKE_AR ${kx_triple}-gcc-ar-posix)
set(CMAKE_RANLIB ${kx_triple}-gcc-ranlib-posix)

set(CMAKE_FIND_ROOT_PATH /usr/${kx_triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Windows has no run paths: the libraries of the build stand in one folder, which the script puts on the search path.
set(CMAKE_CROSSCOMPILING_EMULATOR
  ${CMAKE_CURRENT_LIST_DIR}/../../tools/windows/run-in-wine.sh ${CMAKE_BINARY_DIR}/bin/win64)
