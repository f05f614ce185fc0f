# GoogleTest: Debian's for this machine, built from Debian's sources for another.
if(CMAKE_CROSSCOMPILING)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
else()
  find_package(GTest REQUIRED)
endif()
