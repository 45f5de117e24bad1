// Making and setting up network devices of the kernel.
#pragma once

#include <string>

#include "tools/lanscout-sim/network/address.h"
#include "tools/lanscout-sim/network/descriptor.h"

struct ifreq;

namespace lansim {

enum class TunKind { EthernetFrames, IpPackets };

// Makes a tun or tap device in the current network namespace. One read or write of the result
// is one frame or packet, without waiting; closing it removes the device. Throws SetupError.
Descriptor MakeTunDevice(const std::string& name, TunKind kind);

// Sets up a network device of the current namespace. Everything throws SetupError.
class NetDevice {
public:
    // An alias as eth0:1 gives a device a further address.
    explicit NetDevice(std::string name);

    void SetAddress(const Subnet& subnet);
    void SetQueueLength(int frames);
    void SetUp();
    void AddRoute(const Subnet& destination);
    // Without this the kernel's own IPv6 messages stand between what is watched.
    void SilenceIpv6() const;
    Mac HardwareAddress();

private:
    void Do(unsigned long operation, ifreq& request, const char* what);

    std::string m_name;
    Descriptor m_socket;
};

}  // namespace lansim
