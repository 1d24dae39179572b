# Cross build of the 64-bit add-in and its Windows test executables.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(QB_MINGW_TRIPLE x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
