# 32-bit Windows: the shipped programs.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(ICT_MINGW_TRIPLET i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
