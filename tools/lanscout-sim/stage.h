// Who comes, goes and changes while a run lasts.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <variant>

#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/base/timepoint.h"
#include "tools/lanscout-sim/devicejson.h"
#include "tools/lanscout-sim/onvif/responder.h"
#include "tools/lanscout-sim/population.h"
#include "tools/lanscout-sim/upnp/upnpresponder.h"

namespace lansim {

// No device has that name.
class UnknownDevice : public SetupError {
    using SetupError::SetupError;
};

// The devices as somebody outside changes them. Each operation throws SetupError, that names the
// member or the device, and then has changed nothing.
class Stage {
public:
    // All are the caller's and outlive the stage. `onHosts` is called when addresses came or went.
    Stage(Population& population, const Subnet& network, Responder& cameras, UpnpResponder& upnp,
          std::function<void()> onHosts);

    // A device is told by its uuid, endpoint reference, name or address. Of a name that several
    // have, the first one present is meant; a camera before a UPnP device.
    nlohmann::ordered_json Truth() const;
    nlohmann::ordered_json TruthAbout(const std::string& device) const;
    // One device, as a scenario has it; its truth.
    nlohmann::ordered_json Add(const nlohmann::json& device, TimePoint now);
    nlohmann::ordered_json Change(const std::string& device, const nlohmann::json& changes,
                                  TimePoint now);
    void Leave(const std::string& device, TimePoint now);
    void Join(const std::string& device, TimePoint now);
    // Says Hello, or alive, again; Bye, or byebye, without leaving.
    void Announce(const std::string& device, bool isHello, TimePoint now);

private:
    using Found = std::variant<Camera*, UpnpDevice*>;

    Found Find(const std::string& device) const;
    void Announce(Camera& camera, bool isHello, TimePoint now);
    void Announce(UpnpDevice& device, bool isHello, TimePoint now);
    template <typename Device>
    void SetPresent(Device& device, bool isPresent, TimePoint now);
    template <typename Device>
    void Check(const Device& device, const void* former) const;
    template <typename Device>
    nlohmann::ordered_json Apply(Device& device, Device changed, TimePoint now);
    template <typename Device>
    nlohmann::ordered_json Join(std::deque<Device>& devices, Device device, TimePoint now);
    void NoticeHosts();

    Population& m_population;
    Subnet m_network;
    Responder& m_cameras;
    UpnpResponder& m_upnp;
    std::function<void()> m_onHosts;
};

}  // namespace lansim
