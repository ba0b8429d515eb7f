# Generated compiled libraries for the benchmarks and the randomized model tests: the tables
# are built in memory (GeneratedLibrary) and served by the programmable fixture libraries.
include_guard(GLOBAL)

add_library(mdh_generated_library STATIC
  ${CMAKE_CURRENT_LIST_DIR}/GeneratedLibrary.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ProgrammableLibrary.cpp)
target_include_directories(mdh_generated_library PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(mdh_generated_library PUBLIC mdh_headers ${CMAKE_DL_LIBS})

# The test fixtures already build the programmable copies; without the tests, build them here.
if(NOT TARGET fixture_programmable_0)
  foreach(copy 0 1 2)
    add_compiled_library(fixture_programmable_${copy}
                         ${PROJECT_SOURCE_DIR}/tests/fixtures/fixture_programmable.c)
    target_include_directories(fixture_programmable_${copy} PRIVATE
                               ${PROJECT_SOURCE_DIR}/tests/fixtures)
  endforeach()
endif()
add_dependencies(mdh_generated_library
                 fixture_programmable_0 fixture_programmable_1 fixture_programmable_2)
target_compile_definitions(mdh_generated_library PUBLIC
  MDH_GENERATED_COMPILED_DIR="${CMAKE_BINARY_DIR}/compiled")
