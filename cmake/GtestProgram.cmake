include(GoogleTest)

# Has all tests of a program run in a few processes, side by side, since to start a process takes
# longer than most of these tests. Each is there by its name as well, labelled "single-LABEL", for
# those who ask for it.
# usage: add_gtest_program(TARGET LABEL PROCESSES [PREFIX])
function(add_gtest_program target label processes)
  gtest_discover_tests(${target} NO_PRETTY_VALUES TEST_PREFIX "${ARGV3}" PROPERTIES LABELS single-${label})
  foreach(number RANGE 1 ${processes})
    math(EXPR index "${number} - 1")
    add_test(NAME all.${target}.${number} COMMAND ${target})
    set_tests_properties(
      all.${target}.${number}
      PROPERTIES LABELS ${label} COST 10
                 ENVIRONMENT "GTEST_TOTAL_SHARDS=${processes};GTEST_SHARD_INDEX=${index}")
  endforeach()
endfunction()
