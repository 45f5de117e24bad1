# What fails around the search, failing (docs/faults.md).
lanscout_search_test(fault_xmlmemory_test LIBXML2_LEAKS LIBS fake_system
                     WRAP ${fake_system_wrap})
lanscout_search_test(fault_systemcall_test LIBS fake_system WRAP ${fake_system_wrap})
lanscout_unit_test(fault_process_test LIBS lanscout_objects_bounded lanscout_host_objects
                   fake_system WRAP ${fake_system_wrap})
# In one process too: the thread sanitizer knows the locks' order from all that a process has done.
add_test(NAME unit.ProcessFaultsInOneProcess COMMAND fault_process_test)
set_tests_properties(unit.ProcessFaultsInOneProcess PROPERTIES LABELS unit TIMEOUT 60)
