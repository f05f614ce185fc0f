# What differs between Debian packages and the archive. CPack reads it once for each kind.
if(CPACK_GENERATOR STREQUAL TGZ)
  set(CPACK_PACKAGE_FILE_NAME
      ${CPACK_PACKAGE_NAME}-${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_ARCHITECTURE})
  # What `cmake --install` installs.
  set(CPACK_MONOLITHIC_INSTALL ON)
  set(CPACK_STRIP_FILES ON)
else()
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
endif()
