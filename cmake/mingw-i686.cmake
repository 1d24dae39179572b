# Cross build of the 32-bit add-in and its Windows test executables.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(QB_MINGW_TRIPLE i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
