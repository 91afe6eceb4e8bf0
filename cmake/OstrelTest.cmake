include(GoogleTest)

# ostrel_test(<name> SOURCES ... [LINK ...]): one test program for one area. It links the tested target and the
# support library, whose main() makes the QCoreApplication and a home folder of its own.
function(ostrel_test name)
  cmake_parse_arguments(PARSE_ARGV 1 T "" "" "SOURCES;LINK")
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_LINK} ostrel::test_support)
  target_compile_definitions(${name} PRIVATE
    OSTREL_FIXTURES="${PROJECT_SOURCE_DIR}/tests/fixtures" OSTREL_BUILD_DIR="${CMAKE_BINARY_DIR}")
  ostrel_precompile(${name} FIRST test_base <gmock/gmock.h> <gtest/gtest.h>)
  # What is tested is optimised; the assertions themselves run once, and optimising them takes most of a build.
  target_compile_options(${name} PRIVATE $<$<CONFIG:Debug>:-O0>)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 300 LABELS ${name})
endfunction()
