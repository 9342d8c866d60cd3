# Toolchain: x64 Windows, compiled by clang and linked with mingw-w64's C library, C++ library and linker.
# A second opinion on the code; what is shipped comes from mingw-w64.cmake.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-libgcc-file-name OUTPUT_VARIABLE gcc_folder
  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
get_filename_component(gcc_folder ${gcc_folder} DIRECTORY)

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)
# clang does not find Debian's folders by itself, and would take the build machine's headers for the missing ones.
# Thread-local variables as the C++ library has them, which is compiled by gcc. A link has no use for the header
# options, and says nothing of it.
string(JOIN " " CMAKE_C_FLAGS_INIT -Qunused-arguments -nostdlibinc
  -idirafter /usr/x86_64-w64-mingw32/include -femulated-tls)
string(JOIN " " CMAKE_CXX_FLAGS_INIT ${CMAKE_C_FLAGS_INIT} -nostdinc++ -isystem ${gcc_folder}/include/c++
  -isystem ${gcc_folder}/include/c++/x86_64-w64-mingw32)
foreach(kind EXE SHARED MODULE)
  string(JOIN " " CMAKE_${kind}_LINKER_FLAGS_INIT -B${gcc_folder} -L${gcc_folder} -pthread)
endforeach()
