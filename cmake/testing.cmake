# conflink_test(NAME name SOURCES file... [LIBS lib...])
#
# One GoogleTest executable, its cases registered with CTest one by one. Every case runs under a
# time limit, so a hung cross-process case fails instead of stalling the run.
function(conflink_test)
  cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS" ${ARGN})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 60)
  endif()
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE ${T_LIBS} GTest::gtest_main)
  gtest_discover_tests(${T_NAME} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT ${T_TIMEOUT})
endfunction()
