// Whether this process runs in a container that sees the network through a bridge alone.
#pragma once

#include <filesystem>
#include <string>

namespace Lanscout {

// Whether the files that container engines leave are there, and the network is the container's own
// (and not one that somebody made inside it).
bool IsInContainer(const std::filesystem::path& root = "/");

// Whether the interface is one end of a virtual cable, whose other end a container engine plugs
// into a bridge.
bool IsVirtualCable(const std::string& interface);

}  // namespace Lanscout
