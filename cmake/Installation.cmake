# What `cmake --install` puts where: the library for a camera (component mqttadapter_runtime), and
# for those who build a host or a platform the headers, a host's duties and what finds them (component
# mqttadapter_development).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS mqttadapter LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
                                    COMPONENT mqttadapter_runtime)

install(TARGETS mqttadapter_host mqttadapter_host_bus
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT mqttadapter_development)
install(DIRECTORY src/lib/mqttadapter_host DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mqttadapter
        COMPONENT mqttadapter_development FILES_MATCHING PATTERN "*.h")

set(headers ${CMAKE_INSTALL_INCLUDEDIR}/mqttadapter)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/mqttadapter)
install(DIRECTORY include/ DESTINATION ${headers} COMPONENT mqttadapter_development)
configure_package_config_file(
  cmake/mqttadapterConfig.cmake.in mqttadapterConfig.cmake INSTALL_DESTINATION ${package}
  PATH_VARS headers CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(mqttadapterConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/mqttadapterConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/mqttadapterConfigVersion.cmake cmake/Jsoncpp.cmake
        DESTINATION ${package} COMPONENT mqttadapter_development)

# The file says where things are from where it is itself, so the whole may be moved.
file(RELATIVE_PATH prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" prefix ${prefix})
configure_file(cmake/mqttadapter.pc.in mqttadapter.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/mqttadapter.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT mqttadapter_development)
