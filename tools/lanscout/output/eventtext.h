// What became of a device (appeared, gone, changed ...), as a line.
#pragma once

#include <string>
#include <vector>

#include "finder/device/comparison.h"
#include "finder/event.h"

namespace Lanscout {

// For people: "2026-11-21T08:15:30Z  gone      192.168.1.20  00:1B:FF:01:02:03  IPC-100  (last seen
// ...)", without its line end. The fields are those that every table shows.
std::string EventLine(const DeviceEvent& event);

// What of the event does not stand in the device: its changes, or when it was last seen.
std::string EventDetails(const DeviceEvent& event);

// Missing, new and changed devices, in this order.
std::vector<DeviceEvent> EventsOf(const Comparison& comparison);

// The fields that every table shows, as people see them; "N/A" where one is not known.
std::vector<std::string> MainTexts(const Device& device);

}  // namespace Lanscout
