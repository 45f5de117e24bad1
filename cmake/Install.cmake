# What is installed, by component: runtime (the shared libraries), development (headers and what
# finds them) and tools.
include(CMakePackageConfigHelpers)

set(lanscout_libraries lanscout)
if(TARGET lanscout_host)
  set_target_properties(lanscout_host PROPERTIES EXPORT_NAME host)
  list(APPEND lanscout_libraries lanscout_host)
endif()
install(TARGETS ${lanscout_libraries} EXPORT lanscoutTargets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lanscout)

# The public headers, each where an #include from the tree's root finds it.
set(lanscout_headers
  host/karnexec.h host/sdkfuncdata.h host/zellog.h host/zelnet.h host/zelstring.h
  utils/upnp16.h utils/upnpsearchbase.h utils/wsdiscoverybase.h)
if(TARGET lanscout_host)
  list(APPEND lanscout_headers control/standalonehost.h)
endif()
foreach(header IN LISTS lanscout_headers)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${header} COMPONENT development
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/lanscout/${folder})
endforeach()

# find_package(lanscout)
set(lanscout_cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/lanscout)
install(EXPORT lanscoutTargets NAMESPACE lanscout:: COMPONENT development
  DESTINATION ${lanscout_cmake_folder})
configure_package_config_file(cmake/lanscoutConfig.cmake.in lanscoutConfig.cmake
  INSTALL_DESTINATION ${lanscout_cmake_folder})
write_basic_package_version_file(lanscoutConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/lanscoutConfig.cmake
              ${PROJECT_BINARY_DIR}/lanscoutConfigVersion.cmake
  COMPONENT development DESTINATION ${lanscout_cmake_folder})

# pkg-config. An absolute folder replaces the prefix; others stand below it, so that an installation
# may be moved.
foreach(folder IN ITEMS libdir includedir)
  string(TOUPPER CMAKE_INSTALL_${folder} variable)
  cmake_path(APPEND lanscout_pc_${folder} "\${prefix}" ${${variable}})
endforeach()
configure_file(cmake/lanscout.pc.in lanscout.pc @ONLY)
set(lanscout_pc_files ${PROJECT_BINARY_DIR}/lanscout.pc)
if(TARGET lanscout_host)
  configure_file(cmake/lanscout-host.pc.in lanscout-host.pc @ONLY)
  list(APPEND lanscout_pc_files ${PROJECT_BINARY_DIR}/lanscout-host.pc)
endif()
install(FILES ${lanscout_pc_files} COMPONENT development
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
