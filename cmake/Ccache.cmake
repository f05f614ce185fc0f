# Compiles through ccache where that is installed, unless a launcher was chosen already.
find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()
# It keeps what was compiled with a precompiled header only when it is told that nothing there
# depends on the time of compiling.
if(CMAKE_CXX_COMPILER_LAUNCHER MATCHES "ccache$")
  list(PREPEND CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros)
endif()
