# The 64-bit edition.
set(VELT_TRIPLE x86_64-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR amd64)
include("${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake")
