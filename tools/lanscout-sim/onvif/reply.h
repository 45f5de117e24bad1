// Writing a camera's answer to a Probe.
#pragma once

#include <string>
#include <vector>

#include "tools/lanscout-sim/onvif/camera.h"
#include "tools/lanscout-sim/onvif/probe.h"

namespace lansim {

struct ReplyIds {
    std::string messageId;         // urn:uuid:... of this reply
    std::uint32_t instanceId = 1;  // AppSequence: the device's start
    std::uint32_t messageNumber = 1;
};

// How many ways of writing a reply there are; Camera::shape counts from 0.
unsigned ShapeCount();

// The datagram with which the camera answers, its misbehaviours included.
std::string BuildReply(const Camera& camera, const Probe& probe, const ReplyIds& ids);

}  // namespace lansim
