# One interface target that every target of ours links: language level, warnings as errors, hardening.
add_library(vlm_options INTERFACE)

if(MSVC)
  target_compile_options(vlm_options INTERFACE /W4 /WX /permissive- /utf-8 /Zc:__cplusplus)
else()
  target_compile_options(vlm_options INTERFACE
    -Wall -Wextra -Wpedantic -Werror
    -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Woverloaded-virtual
    -Wcast-align -Wformat=2 -Wnull-dereference -Wundef -Wimplicit-fallthrough)
  if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    # Which lock guards what, as util/locks.h lets the code say it.
    target_compile_options(vlm_options INTERFACE -Wthread-safety)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    # Intel's processors of the years 2015 to 2019 are slow where a jump touches a 32-byte boundary (what was done about
    # their erratum of conditional jumps). Without this, each build decides by chance which of our loops that hits.
    target_compile_options(vlm_options INTERFACE -Wa,-mbranches-within-32B-boundaries)
  endif()
endif()

if(WIN32)
  # 0x0A00 shows the whole MONITOR2 up to pfnNotifyUnusedPorts; NTDDI opens the router's Bidi functions.
  target_compile_definitions(vlm_options INTERFACE
    UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00 NTDDI_VERSION=0x0A000000)
  if(MINGW)
    # ISO format specifiers in wide printf (%ls, %s as the project's texts use them) come from the system's own CRT.
    target_compile_definitions(vlm_options INTERFACE __USE_MINGW_ANSI_STDIO=0)
    # No libstdc++, libgcc or winpthread DLL beside ours; address randomisation and no-execute in every image; the
    # same objects give the same image at any time.
    target_link_options(vlm_options INTERFACE -static
      -Wl,--dynamicbase,--nxcompat,--high-entropy-va,--no-insert-timestamp)
    if(NOT VLM_COVERAGE)
      # Nor does it depend on the folder: a packaged program bears the checksum of its debug information, which would
      # name the folder. Of two options that fit the later one holds. Coverage has to find the sources again.
      set(prefix_maps -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)
      add_compile_options("$<$<COMPILE_LANGUAGE:C,CXX>:${prefix_maps}>")
    endif()
  endif()
endif()

if(VLM_SANITIZE AND WIN32)
  # There is no runtime for reports on this target: undefined behaviour ends the program on the spot.
  target_compile_options(vlm_options INTERFACE -fsanitize=undefined -fsanitize-undefined-trap-on-error)
elseif(VLM_SANITIZE)
  target_compile_options(vlm_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vlm_options INTERFACE -fsanitize=address,undefined)
endif()

if(VLM_COVERAGE)
  target_compile_options(vlm_options INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(vlm_options INTERFACE --coverage)
endif()
