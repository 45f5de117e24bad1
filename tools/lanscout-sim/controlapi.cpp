#include "tools/lanscout-sim/controlapi.h"

#include <fmt/format.h>

namespace lansim {
namespace {

using nlohmann::ordered_json;

constexpr std::string_view kDevices = "/devices";

ControlAnswer Json(unsigned status, const ordered_json& value) {
    return {status, value.dump(2, ' ', true, ordered_json::error_handler_t::replace) + "\n"};
}

ControlAnswer Error(unsigned status, const std::string& what) {
    return Json(status, {{"error", what}});
}

// POST /announce: {"device": ..., "do": "hello" or "bye"}
ControlAnswer Announce(const ControlRequest& request, Stage& stage, TimePoint now) {
    const auto body = ParseJson(request.body, "announcement");
    JsonReader reader(body, "announcement");
    std::string device;
    std::string what = "hello";
    reader.Read("device", device);
    reader.Read("do", what);
    reader.RefuseUnknownKeys();
    if (what != "hello" && what != "bye") {
        reader.Fail("do", fmt::format("\"{}\" is neither hello nor bye", what));
    }
    stage.Announce(device, what == "hello", now);
    return Json(200, stage.TruthAbout(device));
}

ControlAnswer OneDevice(const ControlRequest& request, const std::string& device, Stage& stage,
                        TimePoint now) {
    if (request.method == "GET") {
        return Json(200, stage.TruthAbout(device));
    }
    if (request.method == "PATCH") {
        return Json(200, stage.Change(device, ParseJson(request.body, "device"), now));
    }
    if (request.method == "DELETE") {
        stage.Leave(device, now);
        return {204, ""};
    }
    return Error(405, "a device takes GET, PATCH and DELETE");
}

ControlAnswer Dispatch(const ControlRequest& request, Stage& stage, const Journal& journal,
                       TimePoint now) {
    const std::string& path = request.path;
    if (path == kDevices && request.method == "GET") {
        return Json(200, stage.Truth());
    }
    if (path == kDevices && request.method == "POST") {
        return Json(201, stage.Add(ParseJson(request.body, "device"), now));
    }
    if (path.starts_with(std::string(kDevices) + "/")) {
        return OneDevice(request, path.substr(kDevices.size() + 1), stage, now);
    }
    if (path == "/probes" && request.method == "GET") {
        return Json(200, {{"probes", journal.Entries()}});
    }
    if (path == "/announce" && request.method == "POST") {
        return Announce(request, stage, now);
    }
    if (path == kDevices || path == "/probes" || path == "/announce") {
        return Error(405, fmt::format("{} does not take {}", path, request.method));
    }
    return Error(404, "there are /devices, /devices/UUID, /probes and /announce");
}

}  // namespace

ControlAnswer AnswerControl(const ControlRequest& request, Stage& stage, const Journal& journal,
                            TimePoint now) {
    try {
        return Dispatch(request, stage, journal, now);
    } catch (const UnknownDevice& error) {
        return Error(404, error.what());
    } catch (const SetupError& error) {
        return Error(400, error.what());
    }
}

}  // namespace lansim
