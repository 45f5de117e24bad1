// What a camera sends, misbehaviours included.
#pragma once

#include <string>
#include <vector>

#include "tools/lanscout-sim/onvif/camera.h"
#include "tools/lanscout-sim/onvif/probe.h"

namespace lansim {

struct ReplyIds {
    std::string messageId;         // urn:uuid:... of this message
    std::uint32_t instanceId = 1;  // AppSequence: the device's start
    std::uint32_t messageNumber = 1;
};

// How many ways of writing a reply there are; Camera::shape counts from 0.
unsigned ShapeCount();

// The datagram with which the camera answers a Probe (ProbeMatches) or a Resolve (ResolveMatches).
std::string BuildReply(const Camera& camera, const Probe& probe, const ReplyIds& ids);

// What it multicasts when it joins and when it leaves. The misbehaviours are those of replies, so
// that these are always good.
std::string BuildHello(const Camera& camera, const ReplyIds& ids);
std::string BuildBye(const Camera& camera, const ReplyIds& ids);

}  // namespace lansim
