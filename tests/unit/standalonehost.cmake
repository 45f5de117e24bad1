lanscout_unit_test(zelprintf_test LIBS lanscout_host_objects
  WRAP write poll _ZnamRKSt9nothrow_t)  # the last is new (std::nothrow) char[n]
lanscout_unit_test(logsink_test LIBS lanscout_host_objects)
lanscout_unit_test(logconfig_test LIBS lanscout_host_objects)
lanscout_unit_test(zelstring_test LIBS lanscout_host_objects)
lanscout_unit_test(libxml2setup_test LIBS lanscout_host_objects WRAP xmlInitParser)
lanscout_unit_test(netgetcard_test LIBS lanscout_host_objects
  WRAP getifaddrs freeifaddrs if_nametoindex)
lanscout_unit_test(samesubnet_test LIBS lanscout_host_objects
  WRAP getifaddrs freeifaddrs if_nametoindex)
lanscout_unit_test(karnexec_test LIBS lanscout_host_objects
  WRAP posix_spawn pidfd_open pidfd_send_signal kill)

# An HTTP server on 127.0.0.1 that tests script byte for byte.
add_library(scripted_server STATIC scriptedserver.cpp)
lanscout_compile(scripted_server)
lanscout_unit_test(httprequest_test LIBS lanscout_host_objects scripted_server)
lanscout_unit_test(httpanswer_test LIBS lanscout_host_objects scripted_server)
