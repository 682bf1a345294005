# Windows from the cross compilers' win32 thread flavour; plain names elsewhere (MSYS2). Included by a
# toolchain file for each edition, which has set VELT_TRIPLE and the processor.
set(CMAKE_SYSTEM_NAME Windows)

find_program(VELT_CC NAMES ${VELT_TRIPLE}-gcc-win32 ${VELT_TRIPLE}-gcc REQUIRED)
find_program(VELT_CXX NAMES ${VELT_TRIPLE}-g++-win32 ${VELT_TRIPLE}-g++ REQUIRED)
find_program(VELT_RC NAMES ${VELT_TRIPLE}-windres windres REQUIRED)
set(CMAKE_C_COMPILER "${VELT_CC}")
set(CMAKE_CXX_COMPILER "${VELT_CXX}")
set(CMAKE_RC_COMPILER "${VELT_RC}")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
