include(GoogleTest)

# vlm_add_test(NAME SOURCES … [LIBRARIES …] [SERIAL] [ENVIRONMENT NAME=VALUE]): one GoogleTest program, each of its
# cases a CTest case.
# SERIAL is for programs that load the monitor: its hidden window is found across all processes of one desktop, and
# its RPC endpoints are fixed names, so two such programs at once would see each other.
function(vlm_add_test name)
  cmake_parse_arguments(ARG "SERIAL" "ENVIRONMENT" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE vlm_options ${ARG_LIBRARIES} gmock gtest gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  set(properties TIMEOUT 120)
  if(WIN32 AND VLM_SANITIZE)
    # With the heap looked at on each call some take minutes.
    set(properties TIMEOUT 900)
  endif()
  if(ARG_SERIAL)
    list(APPEND properties RESOURCE_LOCK monitor_process)
  endif()
  if(ARG_ENVIRONMENT)
    list(APPEND properties ENVIRONMENT ${ARG_ENVIRONMENT})
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 PROPERTIES ${properties})
endfunction()
