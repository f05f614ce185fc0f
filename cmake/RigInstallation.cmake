# What the package of the desk installs: the programs, the library that they share, and what ./dev run
# starts them with, laid out as in the sources. Only packages have it (component mqttadapter_rig).
set(rig lib/mqttadapter-rig)
set(rig_data share/mqttadapter-rig)
set(of_rig COMPONENT mqttadapter_rig EXCLUDE_FROM_ALL)

set_target_properties(
  cloud_agent virtual_camera camera_ctl console hostcheck tarvex
  PROPERTIES INSTALL_RPATH "$ORIGIN/../lib")
install(TARGETS cloud_agent virtual_camera camera_ctl console hostcheck
        RUNTIME DESTINATION ${rig}/bin ${of_rig})
install(TARGETS tarvex LIBRARY DESTINATION ${rig}/lib ${of_rig})

install(PROGRAMS packaging/rig/mqttadapter-rig DESTINATION bin ${of_rig})
install(PROGRAMS scripts/hostcheck.sh scripts/run.sh scripts/try.sh DESTINATION ${rig_data}/scripts ${of_rig})
install(
  FILES scripts/children.sh scripts/common.sh scripts/kept_state.jq scripts/mosquitto.conf.in
        scripts/packages.sh scripts/ports.sh scripts/run_options.sh scripts/tls.sh
  DESTINATION ${rig_data}/scripts ${of_rig})
install(DIRECTORY src/console/page DESTINATION ${rig_data}/src/console ${of_rig})
install(FILES contract/asyncapi.json DESTINATION ${rig_data}/contract ${of_rig})

install(FILES packaging/rig/mqttadapter-agent.service packaging/rig/mqttadapter-camera.service
        DESTINATION lib/systemd/system ${of_rig})
install(FILES packaging/rig/rig.env DESTINATION share/doc/mqttadapter-rig/examples ${of_rig})
install(FILES docs/packages.md DESTINATION share/doc/mqttadapter-rig ${of_rig})

# usage: installed_link(TARGET LINK): a symbolic link, relative to the directory that it lies in
function(installed_link target link)
  get_filename_component(directory ${link} DIRECTORY)
  get_filename_component(name ${link} NAME)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/links)
  file(CREATE_LINK ${target} ${PROJECT_BINARY_DIR}/links/${name} SYMBOLIC)
  install(FILES ${PROJECT_BINARY_DIR}/links/${name} DESTINATION ${directory} ${of_rig})
endfunction()
foreach(plugin libmqttadapter.so libhostcheck.so)
  installed_link(../../../${CMAKE_INSTALL_LIBDIR}/${plugin} ${rig}/lib/${plugin})
endforeach()
foreach(program cloud_agent virtual_camera camera_ctl)
  installed_link(../${rig}/bin/${program} bin/${program})
endforeach()
