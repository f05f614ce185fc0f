# Child processes, servers among them, and waiting for what they do.
add_library(process_support STATIC ${CMAKE_CURRENT_LIST_DIR}/child_process.cpp
                                   ${CMAKE_CURRENT_LIST_DIR}/loopback_port.cpp
                                   ${CMAKE_CURRENT_LIST_DIR}/nats_server.cpp)
# Headers of this directory are included as "support/...".
target_include_directories(process_support PUBLIC ${CMAKE_CURRENT_LIST_DIR}/..)
target_link_libraries(
  process_support
  PUBLIC Threads::Threads
  PRIVATE project_warnings)
