#include "tools/lanscout-sim/onvif/reply.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cctype>

#include "tools/lanscout-sim/base/xmltext.h"
#include "tools/lanscout-sim/onvif/replyshapes.h"

namespace lansim {
namespace {

// More than the 4096 bytes that searchers commonly read, and more than two Ethernet frames.
constexpr std::size_t kOversizeBytes = 6000;

// RFC 3986: everything but the unreserved characters, so that a name never ends its scope.
std::string PercentEncode(std::string_view text) {
    constexpr std::string_view kUnreservedMarks = "-._~";
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isPlain = (byte < 128 && std::isalnum(byte) != 0) ||
                             kUnreservedMarks.find(c) != std::string_view::npos;
        out += isPlain ? std::string(1, c) : fmt::format("%{:02X}", byte);
    }
    return out;
}

std::string Host(const Camera& camera) {
    return camera.port == 80 ? ToText(camera.ip)
                             : fmt::format("{}:{}", ToText(camera.ip), camera.port);
}

std::vector<std::string> SaidXAddrs(const Camera& camera) {
    const std::string path = "/onvif/device_service";
    const std::string ipv6 = fmt::format("http://[fe80::{:x}:{:x}]:{}{}", camera.ip.value >> 16,
                                         camera.ip.value & 0xFFFF, camera.port, path);
    auto list = XAddrsOf(camera);
    if (camera.Does(Misbehaviour::Ipv6XAddrs)) {
        return {ipv6};
    }
    if (camera.Does(Misbehaviour::HttpsXAddrs)) {
        return {fmt::format("https://{}:443{}", ToText(camera.ip), path)};
    }
    if (camera.Does(Misbehaviour::SeveralXAddrs) || camera.Does(Misbehaviour::LineBreakXAddrs)) {
        list.push_back(fmt::format("http://169.254.{}.{}:9000{}", (camera.ip.value >> 8) & 255,
                                   camera.ip.value & 255, path));
        list.push_back(ipv6);
    }
    return list;
}

std::vector<std::string> SaidScopes(const Camera& camera) {
    auto scopes = ScopesOf(camera);
    if (camera.Does(Misbehaviour::ControlCharacters)) {
        const auto isHardware = [](const std::string& scope) {
            return scope.starts_with("onvif://www.onvif.org/hardware/");
        };
        std::erase_if(scopes, isHardware);
        scopes.push_back("onvif://www.onvif.org/hardware/" +
                         PercentEncode("\x1b[31m<script>alert(1)</script>\x07"));
    }
    return scopes;
}

std::string TypesText(const Camera& camera, const ReplyShape& shape) {
    std::vector<std::string> types;
    if (camera.SaysTransmitter()) {
        types.push_back(fmt::format("{}:NetworkVideoTransmitter", shape.networkPrefix));
    }
    if (camera.SaysDevice()) {
        types.push_back(fmt::format("{}:Device", shape.devicePrefix));
    }
    return fmt::format("{}", fmt::join(types, " "));
}

std::string MatchText(const Camera& camera, const ReplyShape& shape,
                      const std::vector<std::string>& xaddrs) {
    const char* separator = camera.Does(Misbehaviour::LineBreakXAddrs) ? "\n" : " ";
    const auto scopes = SaidScopes(camera);
    const bool hasXAddrs = !camera.Does(Misbehaviour::NoXAddrs);
    const bool hasScopes = !camera.Does(Misbehaviour::NoScopes);
    return fmt::format(
        fmt::runtime(shape.match), fmt::arg("endpoint", "urn:uuid:" + camera.uuid),
        fmt::arg("types", TypesText(camera, shape)),
        fmt::arg("xaddrs",
                 hasXAddrs ? fmt::format(fmt::runtime(shape.xaddrs),
                                         EscapeXml(fmt::format("{}", fmt::join(xaddrs, separator))))
                           : ""),
        fmt::arg("scopes", hasScopes
                               ? fmt::format(fmt::runtime(shape.scopes),
                                             EscapeXml(fmt::format("{}", fmt::join(scopes, " "))))
                               : ""));
}

std::string Render(const Camera& camera, const Probe& probe, const ReplyIds& ids) {
    const ReplyShape& shape = kReplyShapes.at(camera.shape % kReplyShapes.size());
    const std::string relates = EscapeXml(probe.messageId);
    if (camera.Does(Misbehaviour::SoapFault)) {
        return fmt::format(fmt::runtime(kFaultShape), fmt::arg("relates", relates));
    }

    std::string matches = MatchText(camera, shape, SaidXAddrs(camera));
    if (camera.Does(Misbehaviour::TwoProbeMatches)) {
        Camera second = camera;
        second.hardware += "-SECOND";
        second.scopes.clear();
        matches += MatchText(second, shape, {"http://192.0.2.1:9999/onvif/device_service"});
    }
    return fmt::format(fmt::runtime(shape.envelope), fmt::arg("message", ids.messageId),
                       fmt::arg("relates", relates), fmt::arg("instance", ids.instanceId),
                       fmt::arg("number", ids.messageNumber), fmt::arg("matches", matches));
}

// Nested general entities used in a text: expanded they would be far more than the datagram.
void PutEntityBomb(std::string& reply) {
    std::string doctype = "<!DOCTYPE bomb [<!ENTITY e0 \"boom\">";
    for (int i = 1; i <= 9; ++i) {
        doctype += fmt::format("<!ENTITY e{0} \"&e{1};&e{1};&e{1};&e{1};&e{1};&e{1};\">", i, i - 1);
    }
    doctype += "]>";
    const auto declarationEnd = reply.starts_with("<?xml") ? reply.find("?>") + 2 : 0;
    const auto scopesEnd = reply.find("onvif://www.onvif.org/");
    if (scopesEnd != std::string::npos) {
        reply.insert(scopesEnd, "&e9; ");
    }
    reply.insert(declarationEnd, doctype);
}

// Padding after the last element keeps the document whole for those who read all of it, and
// without an end for those who read 4096 bytes.
void PutOversize(std::string& reply) {
    const auto end = reply.rfind("</");
    if (reply.size() < kOversizeBytes) {
        reply.insert(end, std::string(kOversizeBytes - reply.size(), ' '));
    }
}

}  // namespace

std::vector<std::string> ScopesOf(const Camera& camera) {
    if (!camera.scopes.empty()) {
        return camera.scopes;
    }
    std::vector<std::string> scopes = {"onvif://www.onvif.org/Profile/Streaming"};
    if (camera.isVideoTransmitter) {
        scopes.emplace_back("onvif://www.onvif.org/type/video_encoder");
    }
    scopes.push_back("onvif://www.onvif.org/hardware/" + PercentEncode(camera.hardware));
    scopes.push_back("onvif://www.onvif.org/name/" + PercentEncode(camera.name));
    if (!camera.location.empty()) {
        scopes.push_back("onvif://www.onvif.org/location/" + PercentEncode(camera.location));
    }
    return scopes;
}

std::vector<std::string> XAddrsOf(const Camera& camera) {
    if (!camera.xaddrs.empty()) {
        return camera.xaddrs;
    }
    return {fmt::format("http://{}/onvif/device_service", Host(camera))};
}

unsigned ShapeCount() {
    return static_cast<unsigned>(kReplyShapes.size());
}

std::string BuildReply(const Camera& camera, const Probe& probe, const ReplyIds& ids) {
    if (camera.Does(Misbehaviour::NotXml)) {
        return "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n";
    }
    std::string reply = Render(camera, probe, ids);
    if (camera.Does(Misbehaviour::EntityBomb)) {
        PutEntityBomb(reply);
    }
    if (camera.Does(Misbehaviour::Oversize)) {
        PutOversize(reply);
    }
    if (camera.Does(Misbehaviour::CutOff)) {
        reply.resize(reply.size() / 2);
    }
    if (camera.Does(Misbehaviour::ZeroByte)) {
        reply.insert(reply.size() / 2, 1, '\0');
    }
    return reply;
}

}  // namespace lansim
