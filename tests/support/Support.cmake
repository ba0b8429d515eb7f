# Test support shared by the tests, the fuzz targets and the benchmarks: test doubles without
# GoogleTest (mdh_test_doubles) and, for the gtest suites, the same plus GoogleTest
# (mdh_test_support). Included by each user; defined once.
include_guard(GLOBAL)

# The compiled libraries the doubles load, built here when the test fixtures are not.
if(NOT TARGET fixture_programmable_0)
  foreach(copy 0 1 2)
    add_compiled_library(fixture_programmable_${copy}
                         ${PROJECT_SOURCE_DIR}/tests/fixtures/fixture_programmable.c)
    target_include_directories(fixture_programmable_${copy} PRIVATE
                               ${PROJECT_SOURCE_DIR}/tests/fixtures)
  endforeach()
endif()

add_library(mdh_test_doubles STATIC
  ${CMAKE_CURRENT_LIST_DIR}/ProgrammableLibrary.cpp
  ${CMAKE_CURRENT_LIST_DIR}/JumpStubs.cpp
  ${CMAKE_CURRENT_LIST_DIR}/TempWorkingDirectory.cpp)
# "support/X.h" from tests/, and the generated-library headers by their bare names.
target_include_directories(mdh_test_doubles PUBLIC ${CMAKE_CURRENT_LIST_DIR}/..
                           ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(mdh_test_doubles PUBLIC mdh_core ${CMAKE_DL_LIBS})
add_dependencies(mdh_test_doubles
                 fixture_programmable_0 fixture_programmable_1 fixture_programmable_2)
# The tests dlopen the plug-in; the fuzz preset must not build it (clang links no sanitizer
# runtime into a shared object, which --no-undefined rejects).
if(MDH_BUILD_TESTS)
  add_dependencies(mdh_test_doubles MonoDebuggerHandling)
endif()
target_compile_definitions(mdh_test_doubles PUBLIC
  MDH_PLUGIN_PATH="$<TARGET_FILE:MonoDebuggerHandling>"
  MDH_COMPILED_DIR="${CMAKE_BINARY_DIR}/compiled")

if(MDH_BUILD_TESTS)
  find_package(GTest REQUIRED)
  add_library(mdh_test_support INTERFACE)
  target_link_libraries(mdh_test_support INTERFACE mdh_test_doubles mdh_debugger_side GTest::gtest
                        GTest::gtest_main)
endif()
