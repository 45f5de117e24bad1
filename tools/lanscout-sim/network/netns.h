// A network namespace for the time of a run.
#pragma once

#include <string>

#include "tools/lanscout-sim/network/descriptor.h"

namespace lansim {

// By whose right a namespace is made: the machine's root's, or any user's, who is root in a user
// namespace; there is no way back from one.
enum class Privilege { OfMachine, OfUser, OfUserAsRoot };

// Puts the calling process into a network namespace of its own, and back again at the end.
// A name makes it one that `ip netns exec NAME` enters. Throws SetupError.
class NetworkNamespace {
public:
    explicit NetworkNamespace(const std::string& name, Privilege privilege = Privilege::OfMachine);
    NetworkNamespace(const NetworkNamespace&) = delete;
    NetworkNamespace& operator=(const NetworkNamespace&) = delete;
    ~NetworkNamespace();

private:
    void MakeName();

    std::string m_path;  // empty: without a name
    Descriptor m_original;
};

}  // namespace lansim
