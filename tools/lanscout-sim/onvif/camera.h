// One simulated ONVIF device, or another WS-Discovery device.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tools/lanscout-sim/base/misbehaviour.h"
#include "tools/lanscout-sim/network/address.h"
#include "tools/lanscout-sim/onvif/probe.h"

namespace lansim {

// What it says of itself, how it misbehaves, and what became of it.
struct Camera {
    std::string name;
    std::string maker;
    std::string hardware;
    std::string location;
    std::string uuid;
    Ipv4 ip;
    std::optional<Ipv6> ipv6;  // link-local
    bool hasIpv4 = true;       // else `ip` is a name for it that no packet has
    Mac mac{};
    std::uint16_t port = 80;
    bool isForeign = false;  // stands in another subnet than the searcher, on the same wire
    bool isVideoTransmitter = true;
    bool isDevice = true;
    // Which maker's way of writing a reply it uses (reply.cpp).
    unsigned shape = 0;
    // Given in full by a scenario; empty means made from the fields above.
    std::vector<std::string> xaddrs;
    std::vector<std::string> scopes;
    std::string endpoint;                   // empty: urn:uuid:UUID
    std::vector<QualifiedName> otherTypes;  // a printer's, a PC's
    unsigned channels = 0;                  // further ProbeMatch of a recorder in the same reply
    std::optional<std::chrono::milliseconds> delay;  // empty: drawn for each Probe
    // What a real device said, with @RELATES@, @UUID@ and @IP@ where this one says its own; null:
    // the reply is made from the fields here.
    std::shared_ptr<const std::string> recordedReply;
    // Of its device service.
    std::string user;  // empty: everybody may ask everything
    std::string password;
    std::string stream;         // what GetStreamUri says; empty: an address where nobody streams
    std::string serviceFolder;  // OPERATION.xml in it replaces the reply to OPERATION
    std::chrono::seconds clockOffset{0};
    std::set<Misbehaviour> misbehaviours;
    std::uint32_t metadataVersion = 1;
    bool isPresent = true;         // else it is not there yet, or any more
    bool isMuted = false;          // is there and answers nothing
    std::uint32_t instanceId = 1;  // counts its starts

    std::uint64_t probesSeen = 0;
    std::uint64_t repliesSent = 0;
    std::uint32_t messageNumber = 0;

    bool Does(Misbehaviour kind) const { return misbehaviours.contains(kind); }

    // Its address of the peer's kind; nothing when it has none.
    std::optional<IpAddress> AddressTowards(const IpAddress& peer) const {
        if (peer.IsV6()) {
            return ipv6;
        }
        return hasIpv4 ? std::optional<IpAddress>(ip) : std::nullopt;
    }

    // The types that it has.
    bool SaysTransmitter() const { return isVideoTransmitter && !Does(Misbehaviour::DeviceOnly); }
    bool SaysDevice() const { return isDevice || Does(Misbehaviour::DeviceOnly); }
};

// What a camera says in its Scopes, XAddrs and endpoint reference when it behaves.
std::vector<std::string> ScopesOf(const Camera& camera);
std::vector<std::string> XAddrsOf(const Camera& camera);
std::string EndpointOf(const Camera& camera);
std::vector<QualifiedName> TypesOf(const Camera& camera);

}  // namespace lansim
