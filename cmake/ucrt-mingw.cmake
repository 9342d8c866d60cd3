# Toolchain: as mingw-w64.cmake, with the C runtime that today's Windows has for programs (UCRT) instead of the system's
# own msvcrt.dll. Debian 13 has it; its compiler knows the POSIX thread model only.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
set(CMAKE_C_COMPILER x86_64-w64-mingw32ucrt-gcc)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32ucrt-g++)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32ucrt-windres)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32ucrt)
