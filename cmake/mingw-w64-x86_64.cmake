# Cross-compiles for 64-bit Windows with Debian's MinGW-w64, in its POSIX
# threads variant (the one whose libstdc++ has std::thread and std::mutex).
# Everything is linked statically, so the executables need no MinGW runtime
# DLL (libstdc++, libgcc_s, libwinpthread) beside them.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(VEXOR_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${VEXOR_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VEXOR_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${VEXOR_MINGW_TRIPLE}-windres)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

# Headers, libraries and packages come from the MinGW sysroot only, never
# from this machine's own; build tools still run from the host. A package
# built for Windows elsewhere is named by its <Package>_DIR.
set(CMAKE_FIND_ROOT_PATH /usr/${VEXOR_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
