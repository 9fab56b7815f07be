# Cross-compiles for 64-bit Windows with Debian's MinGW-w64 compilers. The
# posix thread model is the one whose libstdc++ has std::thread and std::mutex.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(_rig_mingw x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${_rig_mingw}-gcc-posix)
set(CMAKE_CXX_COMPILER ${_rig_mingw}-g++-posix)
set(CMAKE_RC_COMPILER ${_rig_mingw}-windres)
set(CMAKE_OBJDUMP ${_rig_mingw}-objdump CACHE FILEPATH "")

set(CMAKE_FIND_ROOT_PATH /usr/${_rig_mingw})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Players get one self-contained executable: the MinGW runtime is linked in,
# so only the system's own DLLs are imported.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
