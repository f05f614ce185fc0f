# Headers of libraries that many sources include, compiled once for all targets with the same flags.
# Each file includes what it uses all the same: ./dev lint reads all of them without.

# usage: precompiled_headers(NAME [LINK LIBRARIES...] HEADERS HEADER...)
# Makes what target_precompile_headers(TARGET REUSE_FROM NAME) takes.
function(precompiled_headers name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LINK;HEADERS")
  set(source ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
  file(CONFIGURE OUTPUT ${source} CONTENT "// A library has at least one source.\n")
  add_library(${name} OBJECT ${source})
  target_link_libraries(${name} PRIVATE project_warnings ${arg_LINK})
  target_precompile_headers(${name} PRIVATE ${arg_HEADERS})
endfunction()

# Sources that the compiler takes long to optimise and whose speed is no matter: what reads a command
# line, and the console's HTTP. A precompiled header is for one level of optimisation only.
# usage: without_optimization(SOURCE...), in the directory of their target
function(without_optimization)
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -O0 SKIP_PRECOMPILE_HEADERS ON)
endfunction()
