# What fails around the search, failing (docs/faults.md).
lanscout_search_test(fault_xmlmemory_test LIBXML2_LEAKS LIBS fake_system
                     WRAP ${fake_system_wrap})
lanscout_search_test(fault_systemcall_test LIBS fake_system WRAP ${fake_system_wrap})
lanscout_unit_test(fault_process_test LIBS lanscout_objects_bounded lanscout_host_objects
                   fake_system WRAP ${fake_system_wrap})
# In one process too: the thread sanitizer knows the locks' order from all that a process has done.
add_test(NAME unit.ProcessFaultsInOneProcess COMMAND fault_process_test)
set_tests_properties(unit.ProcessFaultsInOneProcess PROPERTIES LABELS unit TIMEOUT 60)
# valgrind sees what the sanitizers do not: reads of memory that was never written. Without the tests
# that fork or lower limits, where it would judge a child that lost its threads, or itself.
if(NOT LANSCOUT_SANITIZE)
  add_test(NAME unit.ProcessFaultsUnderValgrind COMMAND valgrind --quiet --error-exitcode=9
    --leak-check=full --errors-for-leak-kinds=definite $<TARGET_FILE:fault_process_test>
    --gtest_filter=*Hundred*:*Sixteen*:*Destroyed*)
  set_tests_properties(unit.ProcessFaultsUnderValgrind PROPERTIES LABELS unit TIMEOUT 120)
endif()
