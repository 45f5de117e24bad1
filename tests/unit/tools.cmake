
# tools/lanscout-sim
foreach(part IN ITEMS frames loopbacknetwork matching population probe responder scenario)
  lanscout_unit_test(sim_${part}_test LIBS lanscout_sim_parts)
endforeach()
lanscout_unit_test(sim_reply_test LIBS lanscout_sim_parts PkgConfig::LIBXML2)
