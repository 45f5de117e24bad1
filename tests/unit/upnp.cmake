# Tests that replace libupnp wrap all of the calls that the library makes.
set(UPNP_CALLS UpnpInit UpnpInit2 UpnpRegisterClient UpnpSearchAsync UpnpUnRegisterClient UpnpFinish)

add_library(upnp_fake STATIC upnpfake.cpp)
lanscout_compile(upnp_fake)
target_link_libraries(upnp_fake PUBLIC PkgConfig::LIBUPNP)

lanscout_unit_test(upnptext_test LIBS lanscout_objects recording_host)
lanscout_unit_test(devicedescription_test LIBS lanscout_objects recording_host upnp_fake
  WRAP ${UPNP_CALLS} _Znam)
lanscout_unit_test(upnpcallback_test LIBS lanscout_objects recording_host upnp_fake
  WRAP ${UPNP_CALLS})
lanscout_unit_test(upnpsearchbase_test LIBS lanscout_objects recording_host upnp_fake
  WRAP ${UPNP_CALLS} pthread_mutex_lock pthread_mutex_unlock pthread_mutex_destroy)
lanscout_unit_test(upnp16_test LIBS lanscout_objects recording_host upnp_fake
  WRAP ${UPNP_CALLS} UpnpDiscovery_get_Location_cstr)
if(TARGET lanscout_host_objects)
  lanscout_unit_test(devicefetch_test LIBS lanscout_objects lanscout_host_objects scripted_server)
endif()
