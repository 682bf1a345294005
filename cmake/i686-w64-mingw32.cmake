# 32-bit Windows from the cross compiler's win32 thread flavour; plain names elsewhere (MSYS2).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86)

find_program(VELT_CC NAMES i686-w64-mingw32-gcc-win32 i686-w64-mingw32-gcc REQUIRED)
find_program(VELT_CXX NAMES i686-w64-mingw32-g++-win32 i686-w64-mingw32-g++ REQUIRED)
find_program(VELT_RC NAMES i686-w64-mingw32-windres windres REQUIRED)
set(CMAKE_C_COMPILER "${VELT_CC}")
set(CMAKE_CXX_COMPILER "${VELT_CXX}")
set(CMAKE_RC_COMPILER "${VELT_RC}")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
