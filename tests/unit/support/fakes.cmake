# What stands in for the world in tests of log/, utils/ and host/.

# The search classes with a host that records what it was asked (recordinghost.h).
add_library(recording_host STATIC support/recordinghost.cpp)
lanscout_compile(recording_host)

# The search as the bounded build has it, so that one run of the tests sees both builds.
add_library(lanscout_objects_bounded OBJECT
  ${PROJECT_SOURCE_DIR}/utils/probematch.cpp
  ${PROJECT_SOURCE_DIR}/utils/wsdiscoverybase.cpp
  ${PROJECT_SOURCE_DIR}/utils/xmlguard.cpp)
lanscout_compile(lanscout_objects_bounded)
target_compile_definitions(lanscout_objects_bounded PRIVATE LANSCOUT_BOUNDED=1)
target_link_libraries(lanscout_objects_bounded PUBLIC PkgConfig::LIBXML2 Threads::Threads)

add_library(lanscout_objects_unbounded OBJECT
  ${PROJECT_SOURCE_DIR}/utils/probematch.cpp
  ${PROJECT_SOURCE_DIR}/utils/wsdiscoverybase.cpp
  ${PROJECT_SOURCE_DIR}/utils/xmlguard.cpp)
lanscout_compile(lanscout_objects_unbounded)
target_compile_definitions(lanscout_objects_unbounded PRIVATE LANSCOUT_BOUNDED=0)
target_link_libraries(lanscout_objects_unbounded PUBLIC PkgConfig::LIBXML2 Threads::Threads)

# The system calls (fakesystem) and libxml2's functions (fakexml) that tests answer or refuse.
add_library(fake_system STATIC support/fakesystem.cpp support/scriptednetwork.cpp)
lanscout_compile(fake_system)
set(fake_system_wrap socket close bind setsockopt sendto recvfrom ioctl inet_aton pthread_create
  pthread_join pthread_mutex_lock pthread_mutex_unlock pthread_mutex_destroy time gettimeofday
  getpid rand srand clock_gettime clock_nanosleep)
add_library(fake_xml STATIC support/fakexml.cpp)
lanscout_compile(fake_xml)
target_link_libraries(fake_xml PUBLIC PkgConfig::LIBXML2)
set(fake_xml_wrap xmlParseMemory xmlFreeDoc xmlDocGetRootElement xmlCreateMemoryParserCtxt
  xmlXPathNewContext xmlXPathFreeContext xmlXPathRegisterNs xmlXPathEvalExpression
  xmlXPathFreeObject xmlNodeGetContent)

# lanscout_search_test(NAME [LIBS ...] [WRAP function...]): NAME against the default build and, as
# NAME_bounded, against the bounded one. LANSCOUT_BOUNDED tells the test which one it has.
# The default build keeps the replies' trees; the leak checker is told so for its tests alone. It
# has to unwind through libxml2, which has no frame pointers, to see whose the trees are; where they
# are many (KEEPS_MUCH) that takes too long, and only the bounded build is checked for leaks. Where
# memory is refused to libxml2 it loses some itself (LIBXML2_LEAKS), and neither build is checked.
function(lanscout_search_test name)
  lanscout_test_area(area)
  cmake_parse_arguments(arg "KEEPS_MUCH;LIBXML2_LEAKS" "" "LIBS;WRAP" ${ARGN})
  foreach(bounded IN ITEMS 0 1)
    lanscout_test_target(${name} target)
    set(objects lanscout_objects_unbounded)
    set(prefix unit.)
    set(leaks suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0)
    string(APPEND leaks :fast_unwind_on_malloc=0)
    if(arg_KEEPS_MUCH)
      set(leaks detect_leaks=0)
    endif()
    if(bounded)
      string(APPEND target _bounded)
      set(objects lanscout_objects_bounded)
      set(prefix unit.bounded.)
      set(leaks suppressions=)
    endif()
    if(arg_LIBXML2_LEAKS)
      set(leaks detect_leaks=0)
    endif()
    add_executable(${target} ${name}.cpp)
    add_dependencies(unit_tests ${target})
    add_dependencies(unit_tests_${area} ${target})
    lanscout_test_compile(${target})
    target_precompile_headers(${target} REUSE_FROM test_headers)
    target_compile_definitions(${target} PRIVATE LANSCOUT_BOUNDED=${bounded})
    target_link_libraries(${target} PRIVATE ${objects} ${arg_LIBS} recording_host GTest::gmock_main)
    foreach(function IN LISTS arg_WRAP)
      target_link_options(${target} PRIVATE LINKER:--wrap=${function})
    endforeach()
    gtest_discover_tests(${target} TEST_PREFIX ${prefix}
      PROPERTIES LABELS unit-${area} TIMEOUT 60 ENVIRONMENT LSAN_OPTIONS=${leaks})
  endforeach()
endfunction()

# Replies that are made to hurt.
add_library(worst_xml STATIC support/worstxml.cpp)
lanscout_compile(worst_xml)

# An HTTP server on 127.0.0.1 that tests script byte for byte.
add_library(scripted_server STATIC support/scriptedserver.cpp)
lanscout_compile(scripted_server)

# Tests that replace libupnp wrap all of the calls that the library makes.
set(UPNP_CALLS UpnpInit UpnpInit2 UpnpRegisterClient UpnpSearchAsync UpnpUnRegisterClient UpnpFinish)
add_library(upnp_fake STATIC support/upnpfake.cpp)
lanscout_compile(upnp_fake)
target_link_libraries(upnp_fake PUBLIC PkgConfig::LIBUPNP)

# A kernel that answers netlink requests as the test says (fakenetlink.h).
if(LANSCOUT_TOOLS)
  add_library(fake_netlink STATIC support/fakenetlink.cpp)
  lanscout_compile(fake_netlink)
  target_link_libraries(fake_netlink PUBLIC PkgConfig::LIBMNL)
  set(fake_netlink_wrap mnl_socket_open2 mnl_socket_bind mnl_socket_close mnl_socket_get_fd
    mnl_socket_sendto mnl_socket_recvfrom)
endif()
