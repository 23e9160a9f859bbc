# parley_module(NAME SOURCES file... [DEPENDS module-or-target...])
#
# One module of the engine: the sources of src/NAME/src as an object library zx_NAME whose include folder reaches only
# the modules that depend on it, so that the layers of the design are errors to cross.
function(parley_module name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;DEPENDS")
  list(TRANSFORM ARG_SOURCES PREPEND "${PROJECT_SOURCE_DIR}/src/${name}/src/")
  add_library(zx_${name} OBJECT ${ARG_SOURCES})
  target_include_directories(zx_${name} PUBLIC "${PROJECT_SOURCE_DIR}/src/${name}/src")
  target_link_libraries(zx_${name} PUBLIC ${ARG_DEPENDS} PRIVATE parley_library_options)
  set_property(GLOBAL APPEND PROPERTY PARLEY_MODULES zx_${name})
endfunction()

# parley_test(NAME SOURCES file... [LIBRARIES target...])
#
# A GoogleTest program whose tests CTest lists as NAME.Suite.Test.
function(parley_test name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;LIBRARIES")
  string(REPLACE "." "_" target "test_${name}")
  add_executable(${target} ${ARG_SOURCES})
  target_link_libraries(${target} PRIVATE ${ARG_LIBRARIES} parley_test_support GTest::gmock GTest::gtest_main
                                          parley_warnings)
  gtest_discover_tests(${target} TEST_PREFIX "${name}." DISCOVERY_TIMEOUT 60
                       PROPERTIES TIMEOUT 300 SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]")
endfunction()
