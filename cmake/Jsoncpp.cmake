# jsoncpp, found by its files: cross toolchains rarely carry its package files.
include(CheckCXXSourceCompiles)
find_path(JSONCPP_INCLUDE_DIR json/value.h PATH_SUFFIXES jsoncpp REQUIRED)
find_library(JSONCPP_LIBRARY jsoncpp REQUIRED)

add_library(mqttadapter_jsoncpp_headers INTERFACE)
target_include_directories(mqttadapter_jsoncpp_headers SYSTEM INTERFACE ${JSONCPP_INCLUDE_DIR})

add_library(mqttadapter_jsoncpp INTERFACE)
target_link_libraries(mqttadapter_jsoncpp INTERFACE mqttadapter_jsoncpp_headers ${JSONCPP_LIBRARY})

# Some releases declare other functions under C++17 than under C++14, and a library has those of
# the standard that it was built with.
set(CMAKE_REQUIRED_INCLUDES ${JSONCPP_INCLUDE_DIR})
set(CMAKE_REQUIRED_LIBRARIES ${JSONCPP_LIBRARY})
set(CMAKE_REQUIRED_QUIET ON)
unset(JSONCPP_LINKS CACHE)
check_cxx_source_compiles(
  "#include <json/value.h>
  int main() {
    Json::Value value;
    value[\"key\"] = \"text\";
    const Json::Value& member = value;
    return value.isMember(\"key\") && member[\"key\"].asString().empty() ? 1 : 0;
  }" JSONCPP_LINKS)
unset(CMAKE_REQUIRED_INCLUDES)
unset(CMAKE_REQUIRED_LIBRARIES)
unset(CMAKE_REQUIRED_QUIET)
if(NOT JSONCPP_LINKS)
  message(FATAL_ERROR "${JSONCPP_LIBRARY} lacks what ${JSONCPP_INCLUDE_DIR} declares: the plug-in "
                      "needs the C++ standard and the compiler's string ABI that jsoncpp was built "
                      "with (CMAKE_CXX_STANDARD is ${CMAKE_CXX_STANDARD})")
endif()
