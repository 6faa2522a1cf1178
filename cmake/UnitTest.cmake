# tamrix_unit_test(NAME SOURCES...): one GoogleTest executable; every test case is a ctest test of its own
# and so runs in a process of its own.

find_package(GTest REQUIRED)
include(GoogleTest)

# GoogleTest's headers, two thirds of the time that a test takes to compile, are read once for all programs.
function(tamrix_precompile_gtest name)
  get_property(first GLOBAL PROPERTY tamrix_first_unit_test)
  if(first)
    target_precompile_headers(${name} REUSE_FROM ${first})
  else()
    target_precompile_headers(${name} PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
    set_property(GLOBAL PROPERTY tamrix_first_unit_test ${name})
  endif()
endfunction()

function(tamrix_unit_test name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE tamrix_core tamrix_test_support tamrix_warnings GTest::gmock_main)
  target_compile_definitions(${name} PRIVATE TAMRIX_TEST_CHILDREN="$<TARGET_FILE_DIR:${name}>")
  tamrix_precompile_gtest(${name})
  # Stack traces name the frames of the executable itself only when it exports them.
  set_target_properties(${name} PROPERTIES
    ENABLE_EXPORTS ON DEFINE_SYMBOL "" RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 120)
endfunction()
