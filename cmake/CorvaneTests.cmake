# The unit tests, a run of each scenario under several seeds, and one with the agent crashed in each
# of its writes.

enable_testing()

set(test_environment
    "ASAN_OPTIONS=halt_on_error=1:detect_stack_use_after_return=1"
    "UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1")
# Ends what hangs; a busy machine must not come near it.
set(test_timeout 600)
if(CORVANE_SANITIZE)
  set(test_timeout 1200)
endif()

if(test_sources)
  find_package(GTest CONFIG REQUIRED)
  include(GoogleTest)
  add_executable(corvane_tests ${test_sources})
  target_link_libraries(corvane_tests PRIVATE
      corvane_lib corvane_oracles GTest::gmock_main GTest::gmock GTest::gtest)
  corvane_precompile(corvane_tests <gtest/gtest.h>)
  gtest_discover_tests(corvane_tests
      DISCOVERY_MODE PRE_TEST
      DISCOVERY_TIMEOUT 60
      WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}"
      PROPERTIES TIMEOUT ${test_timeout} LABELS unit ENVIRONMENT "${test_environment}")
endif()

function(corvane_scenario_test name)
  add_test(NAME ${name} COMMAND ${ARGN} WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}")
  set_tests_properties(${name} PROPERTIES
      TIMEOUT ${test_timeout} LABELS scenario ENVIRONMENT "${test_environment}")
endfunction()

if(TARGET corvane)
  foreach(file IN LISTS scenario_files)
    cmake_path(GET file STEM scenario)
    corvane_scenario_test(scenario.${scenario} corvane play "${file}")
    corvane_scenario_test(scenario.${scenario}.slice1 scripts/play-sliced $<TARGET_FILE:corvane> "${file}")
    # Each write is a play of its own, which the sanitizers make slow.
    if(scenario STREQUAL "fabric" OR NOT (CORVANE_SANITIZE OR scenario MATCHES "^abort-"))
      corvane_scenario_test(scenario.${scenario}.crashes corvane play "${file}" --crash-at 0)
    endif()
    foreach(seed 1 2)
      corvane_scenario_test(scenario.${scenario}.seed${seed} corvane play "${file}" --seed ${seed})
    endforeach()
  endforeach()
  # What the program tells of itself is what the scenarios show.
  corvane_scenario_test(wiring scripts/wiring $<TARGET_FILE:corvane>)
  # A reader in another language agrees with the program on all tables that the scenarios leave.
  if(NOT CORVANE_SANITIZE)
    corvane_scenario_test(foreign-reader
        tests/foreign/read_tables.py $<TARGET_FILE:corvane> ${scenario_files})
  endif()
  # Every item a slice: the agent dies in the middle of its walks as well.
  corvane_scenario_test(scenario.fabric.crashes.slice1
      scripts/play-sliced $<TARGET_FILE:corvane> scenarios/fabric.yaml --crash-at 0)
endif()
