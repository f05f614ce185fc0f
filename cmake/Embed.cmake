# Has a program carry a file in itself: as the bytes from the symbol `symbol` to `symbol`_end.
# usage: embed(TARGET SYMBOL FILE)
function(embed target symbol file)
  set(source ${CMAKE_CURRENT_BINARY_DIR}/${symbol}.S)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/embedded.S.in ${source} @ONLY)
  set_source_files_properties(${source} PROPERTIES OBJECT_DEPENDS ${file})
  target_sources(${target} PRIVATE ${source})
endfunction()
