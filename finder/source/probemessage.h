// The Probes that the finder sends (WS-Discovery, April 2005, 5.2).
#pragma once

#include <random>
#include <string>
#include <string_view>

namespace Lanscout {

// What a Probe asks for. ONVIF devices match one or both.
enum class ProbeType {
    NetworkVideoTransmitter,  // cameras, encoders, recorders
    Device,                   // any ONVIF device that calls itself so
};

// Random ids, each once: "urn:uuid:..." (RFC 4122, version 4).
class MessageIds {
public:
    MessageIds();
    std::string Next();

private:
    std::mt19937_64 m_random;
};

// One line without line breaks: there are devices that read no further than the first one.
std::string ProbeMessage(ProbeType type, std::string_view messageId);

}  // namespace Lanscout
