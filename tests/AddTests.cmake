# Registers the tests of a GoogleTest program with CTest.
# SPDX-License-Identifier: Apache-2.0

# citp_add_tests(TARGET [NAMESPACE] [EACH_CASE REGEX] [SLOW REGEX]): one CTest test for each test suite, called like the
# suite, so that its cases share a process; one for each case, called Suite.Case, in suites that match EACH_CASE.
# NAMESPACE: each runs in a network namespace of its own. Their label is the name of the folder. Those whose names match
# SLOW take more than 5 s: they also have the label slow, and start first.
function(citp_add_tests target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "NAMESPACE" "EACH_CASE;SLOW" "")
  get_filename_component(folder ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  set(launcher)
  if(arg_NAMESPACE)
    set(launcher ${PROJECT_SOURCE_DIR}/tests/in-namespace)
  endif()
  set(tests ${CMAKE_CURRENT_BINARY_DIR}/${target}_tests.cmake)
  set(script ${PROJECT_SOURCE_DIR}/tests/WriteTests.cmake)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -D PROGRAM=$<TARGET_FILE:${target}> -D LAUNCHER=${launcher} -D "EACH_CASE=${arg_EACH_CASE}"
      -D FOLDER=${folder} -D "SLOW=${arg_SLOW}" -D OUTPUT=${tests} -P ${script}
    BYPRODUCTS ${tests}
    VERBATIM)
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${script})
  set(include ${CMAKE_CURRENT_BINARY_DIR}/${target}_include.cmake)
  file(WRITE ${include} "if(EXISTS \"${tests}\")\n  include(\"${tests}\")\nelse()\n  add_test(${target}_NOT_BUILT \
${target}_NOT_BUILT)\nendif()\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${include})
endfunction()
