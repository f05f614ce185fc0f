# The C++ standard: 17, unless CMAKE_CXX_STANDARD or a flag asks for another.
if(NOT CMAKE_CXX_STANDARD AND NOT CMAKE_CXX_FLAGS MATCHES "-std=")
  set(CMAKE_CXX_STANDARD 17)
endif()
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
if(CMAKE_CXX_STANDARD MATCHES "^(98|11)$")
  message(FATAL_ERROR "The plug-in needs C++14; CMAKE_CXX_STANDARD is ${CMAKE_CXX_STANDARD}")
endif()
if(CMAKE_CXX_STANDARD STREQUAL 14 AND NOT MQTTADAPTER_PLUGIN_ONLY)
  message(FATAL_ERROR "The desk needs C++17; as C++14 there is the plug-in alone: "
                      "-DMQTTADAPTER_PLUGIN_ONLY=ON")
endif()
