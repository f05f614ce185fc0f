# jsoncpp, found by its files: cross toolchains rarely carry its package files.
find_path(JSONCPP_INCLUDE_DIR json/value.h PATH_SUFFIXES jsoncpp REQUIRED)
find_library(JSONCPP_LIBRARY jsoncpp REQUIRED)

add_library(jsoncpp_headers INTERFACE)
target_include_directories(jsoncpp_headers SYSTEM INTERFACE ${JSONCPP_INCLUDE_DIR})

add_library(jsoncpp INTERFACE)
target_link_libraries(jsoncpp INTERFACE jsoncpp_headers ${JSONCPP_LIBRARY})
