# Tests of log/, utils/wsdiscoverybase and utils/xmlguard.

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
add_library(fake_system STATIC fakesystem.cpp scriptednetwork.cpp)
lanscout_compile(fake_system)
set(fake_system_wrap socket close bind setsockopt sendto recvfrom ioctl inet_aton pthread_create
  pthread_join pthread_mutex_lock pthread_mutex_unlock pthread_mutex_destroy time gettimeofday
  getpid rand srand clock_gettime clock_nanosleep)
add_library(fake_xml STATIC fakexml.cpp)
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
  cmake_parse_arguments(arg "KEEPS_MUCH;LIBXML2_LEAKS" "" "LIBS;WRAP" ${ARGN})
  foreach(bounded IN ITEMS 0 1)
    set(target ${name})
    set(objects lanscout_objects_unbounded)
    set(prefix unit.)
    set(leaks suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0)
    string(APPEND leaks :fast_unwind_on_malloc=0)
    if(arg_KEEPS_MUCH)
      set(leaks detect_leaks=0)
    endif()
    if(bounded)
      set(target ${name}_bounded)
      set(objects lanscout_objects_bounded)
      set(prefix unit.bounded.)
      set(leaks suppressions=)
    endif()
    if(arg_LIBXML2_LEAKS)
      set(leaks detect_leaks=0)
    endif()
    add_executable(${target} ${name}.cpp)
    add_dependencies(unit_tests ${target})
    lanscout_test_compile(${target})
    target_precompile_headers(${target} REUSE_FROM test_headers)
    target_compile_definitions(${target} PRIVATE LANSCOUT_BOUNDED=${bounded})
    target_link_libraries(${target} PRIVATE ${objects} ${arg_LIBS} recording_host GTest::gmock_main)
    foreach(function IN LISTS arg_WRAP)
      target_link_options(${target} PRIVATE LINKER:--wrap=${function})
    endforeach()
    gtest_discover_tests(${target} TEST_PREFIX ${prefix}
      PROPERTIES LABELS unit TIMEOUT 60 ENVIRONMENT LSAN_OPTIONS=${leaks})
  endforeach()
endfunction()

lanscout_unit_test(loggate_test LIBS recording_host fake_system WRAP ${fake_system_wrap})
add_library(enum2string_other SHARED enum2stringother.cpp)
lanscout_compile(enum2string_other)
lanscout_unit_test(enum2string_test LIBS enum2string_other)
lanscout_unit_test(searchobject_test LIBS lanscout_objects_unbounded recording_host fake_system
                   WRAP ${fake_system_wrap})
lanscout_unit_test(probemessage_test LIBS lanscout_objects_unbounded recording_host fake_system
                   WRAP ${fake_system_wrap})
lanscout_search_test(multicastsocket_test LIBS fake_system WRAP ${fake_system_wrap})
lanscout_search_test(probematch_test LIBS fake_xml WRAP ${fake_xml_wrap})
lanscout_search_test(maclookup_test LIBS fake_system WRAP ${fake_system_wrap})
lanscout_search_test(discoverythread_test LIBS fake_system WRAP ${fake_system_wrap})
lanscout_search_test(allocation_test LIBS fake_system WRAP ${fake_system_wrap})

# Replies that are made to hurt.
add_library(worst_xml STATIC worstxml.cpp)
lanscout_compile(worst_xml)
lanscout_unit_test(xmlguard_test LIBS lanscout_objects_unbounded recording_host fake_xml worst_xml
                   WRAP ${fake_xml_wrap})
lanscout_search_test(xmlattack_test KEEPS_MUCH LIBS worst_xml fake_system WRAP ${fake_system_wrap})

# Not tests: they print what those replies cost.
foreach(build IN ITEMS unbounded bounded)
  add_executable(xmlworst_${build} xmlworst.cpp)
  lanscout_compile(xmlworst_${build})
  target_compile_definitions(xmlworst_${build} PRIVATE LANSCOUT_BOUNDED=$<STREQUAL:${build},bounded>)
  target_link_libraries(xmlworst_${build} PRIVATE lanscout_objects_${build} recording_host worst_xml)
endforeach()
