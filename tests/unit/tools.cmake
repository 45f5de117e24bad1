
# tools/lanscout-sim
foreach(part IN ITEMS command descriptionserver frames loopbacknetwork matching options population
             probe report responder scenario
             ssdp upnpresponder)
  lanscout_unit_test(sim_${part}_test LIBS lanscout_sim_parts)
endforeach()
lanscout_unit_test(sim_reply_test LIBS lanscout_sim_parts PkgConfig::LIBXML2)

# tools/lanscout
foreach(part IN ITEMS columns compare description devicejson devicetable explain formats interfaces
                      message oui page proc progressline safetext table typeprobe watch)
  lanscout_unit_test(tool_${part}_test LIBS lanscout_tool)
endforeach()
