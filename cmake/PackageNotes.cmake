# Run by CPack between installing the components and packing them: adds what stands beside the files.

# usage: notes(KIND NAME DIRECTORY)
function(notes kind name directory)
  execute_process(
    COMMAND /usr/bin/python3 -B ${CPACK_MQTTADAPTER_SOURCE}/packaging/notes.py ${kind} ${name}
            ${CPACK_PACKAGE_VERSION} ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE} ${directory}
    COMMAND_ERROR_IS_FATAL ANY)
endfunction()

if(CPACK_GENERATOR STREQUAL TGZ)
  notes(archive libmqttadapter ${CPACK_TEMPORARY_DIRECTORY})
else()
  foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    notes(debian ${CPACK_DEBIAN_${upper}_PACKAGE_NAME} ${CPACK_TEMPORARY_DIRECTORY}/${component})
  endforeach()
endif()
