# Libraries from Debian's packages. The DLL links none of them; the tools, the virtual printer and the tests do.

# For the companion and the virtual printer. /usr/include itself must never be on a cross compiler's path (its native
# headers would win), so the wanted folders are linked into a directory of the build tree.
set(VLM_HEADER_LINKS ${PROJECT_BINARY_DIR}/third_party)
file(MAKE_DIRECTORY ${VLM_HEADER_LINKS})
foreach(entry CLI/CLI.hpp nlohmann/json.hpp fmt/format.h)
  get_filename_component(folder ${entry} DIRECTORY)
  find_path(VLM_${folder}_ROOT ${entry} PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  file(CREATE_LINK ${VLM_${folder}_ROOT}/${folder} ${VLM_HEADER_LINKS}/${folder} SYMBOLIC)
endforeach()
# All are used as headers only. Debian has fmt's compiled library for the build machine alone.
add_library(vlm_libraries INTERFACE)
target_include_directories(vlm_libraries SYSTEM INTERFACE ${VLM_HEADER_LINKS})
target_compile_definitions(vlm_libraries INTERFACE FMT_HEADER_ONLY)
# CLI11's templates, inlined into their callers, make gcc 12 see a null std::string that cannot be.
if(NOT MSVC)
  target_compile_options(vlm_libraries INTERFACE -Wno-null-dereference)
endif()

# GoogleTest is built from its packaged source, once for each target.
set(VLM_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest's source folder")
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(${VLM_GOOGLETEST_SOURCE} googletest EXCLUDE_FROM_ALL)
