#include "tools/lanscout-sim/onvif/reply.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <iconv.h>

#include <algorithm>
#include <cctype>

#include "tools/lanscout-sim/base/random.h"
#include "tools/lanscout-sim/base/xmltext.h"
#include "tools/lanscout-sim/onvif/replyshapes.h"

namespace lansim {
namespace {

// More than the 4096 bytes that searchers commonly read, and more than two Ethernet frames.
constexpr std::size_t kOversizeBytes = 6000;
constexpr unsigned kHugeXAddrs = 600;
// The shapes up to here are plain enough for text to be put into their XML afterwards.
constexpr unsigned kPlainShapes = 5;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kCloneEndpoint = "urn:uuid:00000000-0000-4000-8000-00000000c10e";
constexpr std::string_view kNobodysMessage = "urn:uuid:00000000-0000-4000-8000-000000000000";
constexpr std::string_view kAnonymous =
    "http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous";
constexpr std::string_view kServicePath = "/onvif/device_service";

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

std::string ServiceAt(const std::string& host, const Camera& camera) {
    const std::string port = camera.port == 80 ? "" : fmt::format(":{}", camera.port);
    return fmt::format("http://{}{}{}", host, port, kServicePath);
}

std::vector<std::string> SaidXAddrs(const Camera& camera) {
    const std::string ipv6 = fmt::format("http://[fe80::{:x}:{:x}]:{}{}", camera.ip.value >> 16,
                                         camera.ip.value & 0xFFFF, camera.port, kServicePath);
    auto list = XAddrsOf(camera);
    if (camera.Does(Misbehaviour::EmptyXAddrs)) {
        return {};
    }
    if (camera.Does(Misbehaviour::Ipv6XAddrs)) {
        return {ipv6};
    }
    if (camera.Does(Misbehaviour::HttpsXAddrs)) {
        return {fmt::format("https://{}:443{}", ToText(camera.ip), kServicePath)};
    }
    if (camera.Does(Misbehaviour::SeveralXAddrs) || camera.Does(Misbehaviour::LineBreakXAddrs)) {
        list.push_back(fmt::format("http://169.254.{}.{}:9000{}", (camera.ip.value >> 8) & 255,
                                   camera.ip.value & 255, kServicePath));
        list.push_back(ipv6);
    }
    if (camera.Does(Misbehaviour::HugeXAddrs)) {
        for (unsigned i = 1; i < kHugeXAddrs; ++i) {
            list.push_back(
                fmt::format("http://192.0.2.{}:{}{}", i % 250 + 1, 8000 + i, kServicePath));
        }
    }
    return list;
}

std::vector<std::string> SaidScopes(const Camera& camera) {
    constexpr std::string_view kPrefix = "onvif://www.onvif.org/";
    auto scopes = ScopesOf(camera);
    if (camera.Does(Misbehaviour::ControlCharacters)) {
        const auto isHardware = [&](const std::string& scope) {
            return scope.starts_with(fmt::format("{}hardware/", kPrefix));
        };
        std::erase_if(scopes, isHardware);
        scopes.push_back(fmt::format("{}hardware/{}", kPrefix,
                                     PercentEncode("\x1b[31m<script>alert(1)</script>\x07")));
    }
    if (camera.Does(Misbehaviour::BadUtf8)) {
        scopes.push_back(fmt::format("{}name/\xC3\x28\xFF", kPrefix));
    }
    if (camera.Does(Misbehaviour::Latin1) || camera.Does(Misbehaviour::Utf16)) {
        scopes.push_back(fmt::format("{}name/Caf\xC3\xA9", kPrefix));
    }
    return scopes;
}

// A text as the shape writes it into an element.
std::string Written(const ReplyShape& shape, const std::string& text) {
    if (shape.hasCdata) {
        std::string safe = text;
        for (auto at = safe.find("]]>"); at != std::string::npos; at = safe.find("]]>", at + 12)) {
            safe.replace(at, 3, "]]]]><![CDATA[>");
        }
        return safe;
    }
    if (!shape.hasCharacterReferences) {
        return EscapeXml(text);
    }
    std::string referenced;
    for (const char c : text) {
        referenced += c == '/'   ? "&#x2F;"
                      : c == ':' ? "&#58;"
                      : c == 'h' ? "&#104;"
                                 : EscapeXml(std::string_view(&c, 1));
    }
    return referenced;
}

// One ProbeMatch, or what stands in its place.
struct Match {
    std::string_view name = "ProbeMatch";
    std::string endpoint;
    std::vector<std::string> scopes;
    std::vector<std::string> xaddrs;
    bool isOutermost = false;  // declares the body's namespaces
    bool isReference = false;  // a Bye has nothing but the endpoint reference
};

std::string TypesText(const Camera& camera, const ReplyShape& shape) {
    std::vector<std::string> names;
    std::string declared;
    if (camera.SaysTransmitter()) {
        names.push_back(fmt::format("{}:NetworkVideoTransmitter", shape.networkPrefix));
    }
    if (camera.SaysDevice()) {
        names.push_back(fmt::format("{}:Device", shape.devicePrefix));
    }
    for (const auto& type : camera.otherTypes) {
        const auto prefix = fmt::format("t{}", names.size());
        declared += fmt::format(" xmlns:{}=\"{}\"", prefix, EscapeXmlAttribute(type.uri));
        names.push_back(fmt::format("{}:{}", prefix, EscapeXml(type.local)));
    }
    return fmt::format(fmt::runtime(shape.types), fmt::arg("declared", declared),
                       fmt::arg("names", fmt::join(names, " ")));
}

std::string ListText(const ReplyShape& shape, std::string_view element,
                     const std::vector<std::string>& words, const char* separator) {
    const std::string text = fmt::format("{}", fmt::join(words, separator));
    return fmt::format(fmt::runtime(element), Written(shape, text));
}

std::string MatchText(const Camera& camera, const ReplyShape& shape, const Match& match) {
    const char* separator = camera.Does(Misbehaviour::LineBreakXAddrs) ? "\n" : " ";
    const bool hasScopes = !match.isReference && !camera.Does(Misbehaviour::NoScopes);
    const bool hasXAddrs = !match.isReference && !camera.Does(Misbehaviour::NoXAddrs);
    const auto version = fmt::format(fmt::runtime(shape.version), camera.metadataVersion);
    return fmt::format(
        fmt::runtime(shape.match), fmt::arg("name", match.name),
        fmt::arg("namespaces", match.isOutermost ? shape.namespaces : ""),
        fmt::arg("endpoint", EscapeXml(match.endpoint)),
        fmt::arg("types", match.isReference ? "" : TypesText(camera, shape)),
        fmt::arg("scopes", hasScopes ? ListText(shape, shape.scopes, match.scopes, " ") : ""),
        fmt::arg("xaddrs", hasXAddrs ? ListText(shape, shape.xaddrs, match.xaddrs, separator) : ""),
        fmt::arg("version", match.isReference ? "" : version));
}

std::string SaidEndpoint(const Camera& camera) {
    return camera.Does(Misbehaviour::SameUuid) ? std::string(kCloneEndpoint) : EndpointOf(camera);
}

// An id of its own for each further match, and always the same one.
std::string EndpointOfPart(const Camera& camera, unsigned part) {
    return "urn:uuid:" + Random(KeyOf(camera.uuid), {part}).Uuid();
}

Match PartMatch(const Camera& camera, std::string_view name, unsigned part) {
    Camera channel = camera;
    channel.name = fmt::format("{} channel {}", camera.name, part);
    channel.scopes.clear();
    return {name, EndpointOfPart(camera, part), ScopesOf(channel), SaidXAddrs(camera)};
}

// A device of another address that the same reply speaks of.
Match ForeignMatch(const Camera& camera, std::string_view name) {
    Camera second = camera;
    second.hardware += "-SECOND";
    second.scopes.clear();
    return {name,
            EndpointOfPart(camera, 0),
            SaidScopes(second),
            {fmt::format("http://192.0.2.1:9999{}", kServicePath)}};
}

std::string MatchesText(const Camera& camera, const ReplyShape& shape, RequestKind kind) {
    const bool isProbe = kind == RequestKind::Probe;
    const std::string_view name = isProbe ? "ProbeMatch" : "ResolveMatch";
    std::string matches;
    const auto add = [&](const Match& match) { matches += MatchText(camera, shape, match); };
    if (!camera.Does(Misbehaviour::NoMatch)) {
        add({name, SaidEndpoint(camera), SaidScopes(camera), SaidXAddrs(camera)});
        for (unsigned part = 1; isProbe && part <= camera.channels; ++part) {
            add(PartMatch(camera, name, part));
        }
        if (isProbe && camera.Does(Misbehaviour::TwoProbeMatches)) {
            add(ForeignMatch(camera, name));
        }
    }
    // What the list is called: its match's name and "es".
    return fmt::format(fmt::runtime(shape.list), fmt::arg("name", std::string(name) + "e"),
                       fmt::arg("namespaces", shape.namespaces), fmt::arg("matches", matches));
}

struct Envelope {
    std::string_view action;
    std::string_view to;
    std::string relates;  // empty: to nothing
};

std::string InEnvelope(const ReplyShape& shape, const Envelope& envelope, const ReplyIds& ids,
                       const std::string& body) {
    const auto action = fmt::format("{}/{}", kDiscoveryNs, envelope.action);
    return fmt::format(
        fmt::runtime(shape.envelope), fmt::arg("message", ids.messageId),
        fmt::arg("relates", envelope.relates.empty()
                                ? ""
                                : fmt::format(fmt::runtime(shape.relates), envelope.relates)),
        fmt::arg("to", envelope.to), fmt::arg("action", action),
        fmt::arg("instance", ids.instanceId), fmt::arg("number", ids.messageNumber),
        fmt::arg("body", body));
}

const ReplyShape& ShapeOf(const Camera& camera) {
    const bool isEdited = camera.Does(Misbehaviour::EntityBomb);
    return kReplyShapes.at(camera.shape % (isEdited ? kPlainShapes : kReplyShapes.size()));
}

void ReplaceAll(std::string& text, std::string_view what, const std::string& by) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at)) {
        text.replace(at, what.size(), by);
        at += by.size();
    }
}

// What comes from the Probe goes in last, so that nothing in it is replaced.
std::string FilledIn(const Camera& camera, const Probe& probe) {
    std::string reply = *camera.recordedReply;
    ReplaceAll(reply, "@UUID@", camera.uuid);
    ReplaceAll(reply, "@IP@", ToText(camera.ip));
    ReplaceAll(reply, "@RELATES@", EscapeXml(probe.messageId));
    return reply;
}

std::string Render(const Camera& camera, const Probe& probe, const ReplyIds& ids) {
    if (camera.recordedReply && probe.kind == RequestKind::Probe) {
        return FilledIn(camera, probe);
    }
    const ReplyShape& shape = ShapeOf(camera);
    const std::string relates = camera.Does(Misbehaviour::WrongRelatesTo)
                                    ? std::string(kNobodysMessage)
                                    : EscapeXml(probe.messageId);
    if (camera.Does(Misbehaviour::SoapFault)) {
        return fmt::format(fmt::runtime(kFaultShape), fmt::arg("relates", relates));
    }
    const bool isProbe = probe.kind == RequestKind::Probe;
    return InEnvelope(shape, {isProbe ? "ProbeMatches" : "ResolveMatches", kAnonymous, relates},
                      ids, MatchesText(camera, shape, probe.kind));
}

std::size_t DeclarationEnd(const std::string& reply) {
    const auto begin = reply.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
    return reply.compare(begin, 5, "<?xml") == 0 ? reply.find("?>") + 2 : begin;
}

// Nested general entities used in a text: expanded they would be far more than the datagram.
void PutEntityBomb(std::string& reply) {
    std::string doctype = "<!DOCTYPE bomb [<!ENTITY e0 \"boom\">";
    for (int i = 1; i <= 9; ++i) {
        doctype += fmt::format("<!ENTITY e{0} \"&e{1};&e{1};&e{1};&e{1};&e{1};&e{1};\">", i, i - 1);
    }
    doctype += "]>";
    const auto scopesEnd = reply.find("onvif://www.onvif.org/");
    if (scopesEnd != std::string::npos) {
        reply.insert(scopesEnd, "&e9; ");
    }
    reply.insert(DeclarationEnd(reply), doctype);
}

// Padding after the last element keeps the document whole for those who read all of it, and
// without an end for those who read 4096 bytes.
void PutOversize(std::string& reply) {
    const auto end = reply.rfind("</");
    if (reply.size() < kOversizeBytes) {
        reply.insert(end, std::string(kOversizeBytes - reply.size(), ' '));
    }
}

// The UTF-8 text in another encoding; what that lacks becomes a question mark.
std::string Recoded(std::string text, const char* encoding) {
    const iconv_t converter = iconv_open(encoding, "UTF-8");
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        return text;
    }
    std::string out(2 * text.size() + 4, '\0');
    char* from = text.data();
    char* to = out.data();
    std::size_t fromLeft = text.size();
    std::size_t toLeft = out.size();
    while (fromLeft > 0 && toLeft >= 4 &&
           iconv(converter, &from, &fromLeft, &to, &toLeft) == static_cast<std::size_t>(-1)) {
        *from = '?';  // what a scenario wrote may be no UTF-8 at all
    }
    iconv_close(converter);
    out.resize(out.size() - toLeft);
    return out;
}

void Recode(std::string& reply, const char* encoding, const char* declared) {
    reply.erase(0, DeclarationEnd(reply));
    reply.insert(0, fmt::format("<?xml version=\"1.0\" encoding=\"{}\"?>", declared));
    reply = Recoded(reply, encoding);
}

std::string BuildNotice(const Camera& camera, const ReplyIds& ids, const char* name) {
    Camera good = camera;
    good.misbehaviours.clear();
    const ReplyShape& shape = kReplyShapes.at(camera.shape % kReplyShapes.size());
    const Match match{name, SaidEndpoint(camera),           ScopesOf(camera), XAddrsOf(camera),
                      true, std::string_view(name) == "Bye"};
    return InEnvelope(shape, {name, kDiscoveryTo, ""}, ids, MatchText(good, shape, match));
}

}  // namespace

std::vector<std::string> ScopesOf(const Camera& camera) {
    if (!camera.scopes.empty()) {
        return camera.scopes;
    }
    std::vector<std::string> scopes;
    if (camera.isVideoTransmitter || camera.isDevice) {
        scopes.emplace_back("onvif://www.onvif.org/Profile/Streaming");
        if (camera.isVideoTransmitter) {
            scopes.emplace_back("onvif://www.onvif.org/type/video_encoder");
        }
        scopes.push_back("onvif://www.onvif.org/hardware/" + PercentEncode(camera.hardware));
        scopes.push_back("onvif://www.onvif.org/name/" + PercentEncode(camera.name));
        if (!camera.location.empty()) {
            scopes.push_back("onvif://www.onvif.org/location/" + PercentEncode(camera.location));
        }
    }
    return scopes;
}

std::vector<std::string> XAddrsOf(const Camera& camera) {
    if (!camera.xaddrs.empty()) {
        return camera.xaddrs;
    }
    std::vector<std::string> list;
    if (camera.hasIpv4) {
        list.push_back(ServiceAt(ToText(camera.ip), camera));
    }
    if (camera.ipv6) {
        list.push_back(ServiceAt(fmt::format("[{}]", ToText(*camera.ipv6)), camera));
    }
    return list;
}

std::string EndpointOf(const Camera& camera) {
    return camera.endpoint.empty() ? "urn:uuid:" + camera.uuid : camera.endpoint;
}

std::vector<QualifiedName> TypesOf(const Camera& camera) {
    std::vector<QualifiedName> types;
    if (camera.SaysTransmitter()) {
        types.push_back({std::string(kOnvifNetworkNs), "NetworkVideoTransmitter"});
    }
    if (camera.SaysDevice()) {
        types.push_back({std::string(kOnvifDeviceNs), "Device"});
    }
    types.insert(types.end(), camera.otherTypes.begin(), camera.otherTypes.end());
    return types;
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
    if (camera.Does(Misbehaviour::Latin1)) {
        Recode(reply, "ISO-8859-1", "ISO-8859-1");
    } else if (camera.Does(Misbehaviour::Utf16)) {
        Recode(reply, "UTF-16LE", "UTF-16");
        reply.insert(0, "\xFF\xFE");
    }
    if (camera.Does(Misbehaviour::CutOff)) {
        reply.resize(reply.size() / 2);
    }
    if (camera.Does(Misbehaviour::ZeroByte)) {
        reply.insert(reply.size() / 2, 1, '\0');
    }
    if (camera.Does(Misbehaviour::NulTail)) {
        reply.append(4, '\0');
    }
    return reply;
}

std::string BuildHello(const Camera& camera, const ReplyIds& ids) {
    return BuildNotice(camera, ids, "Hello");
}

std::string BuildBye(const Camera& camera, const ReplyIds& ids) {
    return BuildNotice(camera, ids, "Bye");
}

}  // namespace lansim
