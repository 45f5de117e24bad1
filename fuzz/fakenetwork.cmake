# Gives `target` the network of fakenetwork.h in place of the kernel's.
set(LANSCOUT_FAKE_NETWORK ${CMAKE_CURRENT_LIST_DIR}/fakenetwork.cpp)
function(lanscout_fake_network target)
  target_sources(${target} PRIVATE ${LANSCOUT_FAKE_NETWORK})
  foreach(call socket close fcntl bind setsockopt sendto recvfrom ioctl time clock_gettime
               clock_nanosleep)
    target_link_options(${target} PRIVATE LINKER:--wrap=${call})
  endforeach()
endfunction()
