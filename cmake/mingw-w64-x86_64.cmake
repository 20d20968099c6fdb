# Cross-building zenbor.dll for 64-bit Windows with mingw-w64 (POSIX threads
# flavour), running the resulting programs under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(ZB_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER   ${ZB_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${ZB_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER  ${ZB_MINGW_PREFIX}-windres)
set(CMAKE_OBJDUMP      ${ZB_MINGW_PREFIX}-objdump CACHE FILEPATH "objdump for PE files")

set(CMAKE_FIND_ROOT_PATH /usr/${ZB_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR wine)
