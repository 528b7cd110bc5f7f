# Tests that use the network: each test case is a run of its own, in a network namespace of its own.
# SPDX-License-Identifier: Apache-2.0

# Registers the test cases of a GoogleTest executable with CTest, started through in-namespace.
function(citp_namespace_test target)
  # Taken as the launcher by the discovery and by each run.
  set_target_properties(${target} PROPERTIES CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/in-namespace")
  get_filename_component(folder ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 PROPERTIES LABELS ${folder} TIMEOUT 300)
endfunction()
