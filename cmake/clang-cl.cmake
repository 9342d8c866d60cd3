# Toolchain for a look at the half of the build that is Visual C++'s, without that compiler: clang under the name that
# makes it take the same command line. There are no headers and libraries to build with, so this configures, and
# compiles what needs none.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
find_program(VLM_CLANG clang REQUIRED)
file(CREATE_LINK ${VLM_CLANG} ${CMAKE_BINARY_DIR}/clang-cl SYMBOLIC)
foreach(language C CXX)
  set(CMAKE_${language}_COMPILER ${CMAKE_BINARY_DIR}/clang-cl)
  set(CMAKE_${language}_COMPILER_TARGET x86_64-pc-windows-msvc)
  set(CMAKE_${language}_COMPILER_LAUNCHER "")
endforeach()
set(CMAKE_RC_COMPILER llvm-rc)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
find_program(CMAKE_AR llvm-lib REQUIRED)
# Nothing is linked.
set(CMAKE_LINKER /bin/true)
set(CMAKE_MT /bin/true)
