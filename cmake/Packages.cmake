# What `./dev package` makes of a build with CPack: Debian packages of the components, and an archive
# of library and headers for systems without dpkg. docs/packages.md describes them.
set(CPACK_PACKAGE_NAME libmqttadapter)
set(CPACK_PACKAGE_CONTACT "The maintainers of mqttadapter <mqttadapter@localhost>")
set(CPACK_STRIP_FILES OFF)  # the debug symbols have a package of their own
set(CPACK_COMPONENTS_ALL mqttadapter_runtime mqttadapter_development mqttadapter_conformance)
if(NOT MQTTADAPTER_PLUGIN_ONLY)
  list(APPEND CPACK_COMPONENTS_ALL mqttadapter_rig)
endif()
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/PackageKind.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/PackageNotes.cmake)
set(CPACK_OUTPUT_FILE_PREFIX packages)
set(CPACK_GENERATOR DEB TGZ)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${MQTTADAPTER_ARCHITECTURE})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# usage: debian_package(COMPONENT NAME SECTION DESCRIPTION [DEPENDENCIES])
function(debian_package component name section description)
  string(TOUPPER ${component} component)
  set(CPACK_DEBIAN_${component}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${component}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${component}_DESCRIPTION ${description} PARENT_SCOPE)
  set(CPACK_DEBIAN_${component}_PACKAGE_DEPENDS ${ARGV4} PARENT_SCOPE)
endfunction()

debian_package(
  mqttadapter_runtime libmqttadapter libs
  "MQTT adapter plug-in of a licence-plate camera
The library that a camera's cloud agent loads. The process that loads it has the camera's platform.")
debian_package(
  mqttadapter_development mqttadapter-dev libdevel
  "headers for hosts and platforms of the MQTT adapter plug-in
What find_package(mqttadapter) and pkg-config find: the interface between host, plug-in and platform."
  "libmqttadapter (= ${PROJECT_VERSION}), libjsoncpp-dev, libboost-dev (>= 1.67)")

debian_package(
  mqttadapter_conformance mqttadapter-conformance devel
  "contract tests for the MQTT adapter plug-in
adapter_conformance holds a built library against the contract, on the camera or on a desk;
adapter_replay runs captured traffic through two of them and shows how they differ; libhostcheck.so
is a plug-in that checks the host that loads it.")
debian_package(
  mqttadapter_rig mqttadapter-rig misc
  "a licence-plate camera on the desk
The virtual camera, the agent that loads the MQTT adapter plug-in, and a console in the browser;
mqttadapter-rig starts them on loopback, with a bus and a broker."
  "libmqttadapter (= ${PROJECT_VERSION}), mqttadapter-conformance (= ${PROJECT_VERSION}), fonts-dejavu-core, iproute2, jq, mosquitto, nats-server, openssl")
set(CPACK_DEBIAN_MQTTADAPTER_RIG_PACKAGE_RECOMMENDS mosquitto-clients)

# The tools of a cross compiler read that architecture's files.
set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_OBJCOPY})
set(CPACK_READELF_EXECUTABLE ${CMAKE_READELF})
set(CPACK_MQTTADAPTER_SOURCE ${PROJECT_SOURCE_DIR})
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
