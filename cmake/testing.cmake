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
  # Two warnings of clang's -Wall that the tests meet on purpose: the recorders and probes
  # override one overload of a name that both links use (the messenger brings the other in with a
  # using declaration, so both stay callable), and some table lambdas capture a constant that
  # g++ wants captured.
  target_compile_options(${T_NAME} PRIVATE
                         $<$<CXX_COMPILER_ID:Clang>:-Wno-overloaded-virtual -Wno-unused-lambda-capture>)
  gtest_discover_tests(${T_NAME} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT ${T_TIMEOUT})
endfunction()
