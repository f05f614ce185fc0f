# -DSANITIZE=address,undefined or -DSANITIZE=thread builds everything with those
# sanitizers. Not optimised: that would take the compiler twice as long, and what is
# tested hardly any less.
set(SANITIZE "" CACHE STRING "Comma-separated sanitizers to build with")
if(SANITIZE)
  add_compile_options(-fsanitize=${SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
                      -O0 -g1)
  add_link_options(-fsanitize=${SANITIZE})
endif()
if(SANITIZE MATCHES "thread")
  # Boost.Asio has fences, which this sanitizer does not see; beside them it has locks.
  add_compile_options(-Wno-tsan)
endif()

# -DMQTTADAPTER_FUZZ=ON, with clang, has everything watched by libFuzzer and the address and
# undefined sanitizers, and the targets of tests/fuzz instead of the tests. Optimised: what counts
# is how many inputs are tried.
option(MQTTADAPTER_FUZZ "Build the fuzz targets of tests/fuzz; needs clang" OFF)
if(MQTTADAPTER_FUZZ)
  set(fuzz_options -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
  add_compile_options(${fuzz_options} -fno-omit-frame-pointer -O1 -g1)
  add_link_options(${fuzz_options})
endif()
