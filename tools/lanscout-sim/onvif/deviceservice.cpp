#include "tools/lanscout-sim/onvif/deviceservice.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nettle/sha1.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include "tools/lanscout-sim/base/base64.h"
#include "tools/lanscout-sim/base/xmltext.h"
#include "tools/lanscout-sim/onvif/xmldocument.h"

namespace lansim {
namespace {

constexpr std::string_view kSoapNs = "http://www.w3.org/2003/05/soap-envelope";
constexpr std::string_view kMediaNs = "http://www.onvif.org/ver10/media/wsdl";
constexpr std::string_view kSecurityNs =
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd";
constexpr std::string_view kUtilityNs =
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd";
constexpr std::string_view kSnapshotPath = "/onvif/snapshot.jpg";
// How far the client's clock and the camera's may differ.
constexpr std::chrono::minutes kFreshness{5};
constexpr std::size_t kLargestOverride = 1 << 20;

// One grey pixel, 8 by 8.
constexpr std::string_view kSnapshot =
    "/9j/4AAQSkZJRgABAQEASABIAAD/2wBDAP////////////////////////////////////////////////////////////"
    "//"
    "////////////////////////wAALCAAIAAgBAREA/8QAFAABAAAAAAAAAAAAAAAAAAAAA//"
    "EABQQAQAAAAAAAAAAAAAAAAAA"
    "AAD/2gAIAQEAAD8AN//Z";

std::string InEnvelope(const std::string& body) {
    return fmt::format(
        R"(<?xml version="1.0" encoding="UTF-8"?><s:Envelope xmlns:s="{}" xmlns:tds="{}")"
        R"( xmlns:trt="{}" xmlns:tt="http://www.onvif.org/ver10/schema")"
        R"( xmlns:ter="http://www.onvif.org/ver10/error"><s:Body>{}</s:Body></s:Envelope>)",
        kSoapNs, kOnvifDeviceNs, kMediaNs, body);
}

ServiceAnswer Fault(unsigned status, std::string_view side, std::string_view code,
                    std::string_view why) {
    return {status, "application/soap+xml; charset=utf-8",
            InEnvelope(fmt::format(
                R"(<s:Fault><s:Code><s:Value>s:{}</s:Value><s:Subcode><s:Value>ter:{}</s:Value>)"
                R"(</s:Subcode></s:Code><s:Reason><s:Text xml:lang="en">{}</s:Text></s:Reason>)"
                R"(</s:Fault>)",
                side, code, why))};
}

std::string UrlOf(const Camera& camera, std::string_view path) {
    return fmt::format("http://{}:{}{}", ToText(camera.ip), camera.port, path);
}

std::tm Utc(const Camera& camera, WallTime now) {
    return fmt::gmtime(std::chrono::system_clock::to_time_t(now + camera.clockOffset));
}

std::string DateAndTime(const Camera& camera, WallTime now) {
    const std::tm time = Utc(camera, now);
    return fmt::format(
        "<tds:GetSystemDateAndTimeResponse><tds:SystemDateAndTime>"
        "<tt:DateTimeType>Manual</tt:DateTimeType><tt:DaylightSavings>false</tt:DaylightSavings>"
        "<tt:TimeZone><tt:TZ>UTC0</tt:TZ></tt:TimeZone><tt:UTCDateTime><tt:Time><tt:Hour>{}"
        "</tt:Hour><tt:Minute>{}</tt:Minute><tt:Second>{}</tt:Second></tt:Time><tt:Date><tt:Year>{}"
        "</tt:Year><tt:Month>{}</tt:Month><tt:Day>{}</tt:Day></tt:Date></tt:UTCDateTime>"
        "</tds:SystemDateAndTime></tds:GetSystemDateAndTimeResponse>",
        time.tm_hour, time.tm_min, time.tm_sec, time.tm_year + 1900, time.tm_mon + 1, time.tm_mday);
}

std::string Services(const Camera& camera) {
    std::string services;
    for (const auto& [ns, path] : {std::pair(kOnvifDeviceNs, "/onvif/device_service"),
                                   std::pair(kMediaNs, "/onvif/media_service")}) {
        services += fmt::format(
            "<tds:Service><tds:Namespace>{}</tds:Namespace><tds:XAddr>{}</tds:XAddr><tds:Version>"
            "<tt:Major>2</tt:Major><tt:Minor>60</tt:Minor></tds:Version></tds:Service>",
            ns, UrlOf(camera, path));
    }
    return "<tds:GetServicesResponse>" + services + "</tds:GetServicesResponse>";
}

std::string Capabilities(const Camera& camera) {
    return fmt::format(
        "<tds:GetCapabilitiesResponse><tds:Capabilities><tt:Device><tt:XAddr>{}</tt:XAddr>"
        "</tt:Device><tt:Media><tt:XAddr>{}</tt:XAddr><tt:StreamingCapabilities>"
        "<tt:RTPMulticast>false</tt:RTPMulticast><tt:RTP_TCP>true</tt:RTP_TCP>"
        "<tt:RTP_RTSP_TCP>true</tt:RTP_RTSP_TCP></tt:StreamingCapabilities></tt:Media>"
        "</tds:Capabilities></tds:GetCapabilitiesResponse>",
        UrlOf(camera, "/onvif/device_service"), UrlOf(camera, "/onvif/media_service"));
}

std::string DeviceInformation(const Camera& camera) {
    return fmt::format(
        "<tds:GetDeviceInformationResponse><tds:Manufacturer>{}</tds:Manufacturer><tds:Model>{}"
        "</tds:Model><tds:FirmwareVersion>1.0</tds:FirmwareVersion><tds:SerialNumber>{}"
        "</tds:SerialNumber><tds:HardwareId>{}</tds:HardwareId></tds:GetDeviceInformationResponse>",
        EscapeXml(camera.maker), EscapeXml(camera.hardware), EscapeXml(camera.uuid.substr(0, 8)),
        EscapeXml(camera.hardware));
}

std::string Profiles() {
    return "<trt:GetProfilesResponse><trt:Profiles token=\"profile1\" fixed=\"true\">"
           "<tt:Name>Main</tt:Name><tt:VideoSourceConfiguration token=\"source1\">"
           "<tt:Name>Source</tt:Name><tt:UseCount>1</tt:UseCount>"
           "<tt:SourceToken>video1</tt:SourceToken>"
           "<tt:Bounds x=\"0\" y=\"0\" width=\"1920\" height=\"1080\"/>"
           "</tt:VideoSourceConfiguration><tt:VideoEncoderConfiguration token=\"encoder1\">"
           "<tt:Name>Encoder</tt:Name><tt:UseCount>1</tt:UseCount><tt:Encoding>H264</tt:Encoding>"
           "<tt:Resolution><tt:Width>1920</tt:Width><tt:Height>1080</tt:Height></tt:Resolution>"
           "<tt:Quality>4</tt:Quality></tt:VideoEncoderConfiguration></trt:Profiles>"
           "</trt:GetProfilesResponse>";
}

std::string VideoSources() {
    return "<trt:GetVideoSourcesResponse><trt:VideoSources token=\"video1\">"
           "<tt:Framerate>25</tt:Framerate><tt:Resolution><tt:Width>1920</tt:Width>"
           "<tt:Height>1080</tt:Height></tt:Resolution></trt:VideoSources>"
           "</trt:GetVideoSourcesResponse>";
}

std::string MediaUri(std::string_view operation, const std::string& uri) {
    return fmt::format(
        "<trt:{0}Response><trt:MediaUri><tt:Uri>{1}</tt:Uri>"
        "<tt:InvalidAfterConnect>false</tt:InvalidAfterConnect>"
        "<tt:InvalidAfterReboot>false</tt:InvalidAfterReboot><tt:Timeout>PT0S</tt:Timeout>"
        "</trt:MediaUri></trt:{0}Response>",
        operation, EscapeXml(uri));
}

// Nothing when the camera has no such operation.
std::optional<std::string> Result(const Camera& camera, std::string_view operation, WallTime now) {
    if (operation == "GetSystemDateAndTime") {
        return DateAndTime(camera, now);
    }
    if (operation == "GetServices") {
        return Services(camera);
    }
    if (operation == "GetCapabilities") {
        return Capabilities(camera);
    }
    if (operation == "GetDeviceInformation") {
        return DeviceInformation(camera);
    }
    if (operation == "GetProfiles") {
        return Profiles();
    }
    if (operation == "GetVideoSources") {
        return VideoSources();
    }
    if (operation == "GetStreamUri") {
        const std::string own = fmt::format("rtsp://{}:554/stream1", ToText(camera.ip));
        return MediaUri(operation, camera.stream.empty() ? own : camera.stream);
    }
    if (operation == "GetSnapshotUri") {
        return MediaUri(operation, UrlOf(camera, kSnapshotPath));
    }
    return std::nullopt;
}

// What anybody may ask (ONVIF Core, 5.9.4.3, PRE_AUTH): a client learns the clock from it first.
bool IsForAnybody(std::string_view operation) {
    return operation == "GetSystemDateAndTime" || operation == "GetServices" ||
           operation == "GetCapabilities";
}

std::string ChildText(const xmlNode* parent, std::string_view ns, std::string_view name) {
    xmlNode* child = Child(parent, ns, name);
    return child == nullptr ? "" : TextOf(child);
}

std::string Sha1(const std::string& text) {
    sha1_ctx context{};
    sha1_init(&context);
    sha1_update(&context, text.size(), reinterpret_cast<const std::uint8_t*>(text.data()));
    std::array<std::uint8_t, SHA1_DIGEST_SIZE> digest{};
    sha1_digest(&context, digest.size(), digest.data());
    return {digest.begin(), digest.end()};
}

bool IsFresh(const Camera& camera, const std::string& created, WallTime now) {
    std::tm time{};
    const char* rest = strptime(created.c_str(), "%Y-%m-%dT%H:%M:%S", &time);
    if (rest == nullptr) {
        return false;
    }
    const auto difference =
        std::chrono::system_clock::from_time_t(timegm(&time)) - (now + camera.clockOffset);
    return difference < kFreshness && -difference < kFreshness;
}

// WS-UsernameToken (OASIS UsernameToken Profile 1.0): a digest with nonce and time, or the text.
bool IsAuthorized(const Camera& camera, const xmlNode* header, WallTime now) {
    const xmlNode* token =
        Child(Child(header, kSecurityNs, "Security"), kSecurityNs, "UsernameToken");
    const std::string password = ChildText(token, kSecurityNs, "Password");
    if (ChildText(token, kSecurityNs, "Username") != camera.user) {
        return false;
    }
    const std::string created = ChildText(token, kUtilityNs, "Created");
    const auto nonce = DecodeBase64(ChildText(token, kSecurityNs, "Nonce"));
    if (created.empty() || !nonce || nonce->empty()) {
        return password == camera.password;
    }
    return IsFresh(camera, created, now) &&
           password == EncodeBase64(Sha1(*nonce + created + camera.password));
}

// A folder's own reply to an operation; nothing when it has none.
std::optional<std::string> Override(const Camera& camera, const std::string& operation) {
    const bool isPlain = std::ranges::all_of(
        operation, [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; });
    if (camera.serviceFolder.empty() || operation.empty() || !isPlain) {
        return std::nullopt;
    }
    const std::string path = camera.serviceFolder + "/" + operation + ".xml";
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error) ||
        std::filesystem::file_size(path, error) > kLargestOverride) {
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    return std::string{std::istreambuf_iterator<char>(file), {}};
}

ServiceAnswer AnswerOperation(const Camera& camera, const std::string& body, WallTime now) {
    const XmlDocument document = ParseXml(body);
    const xmlNode* root = document.Root();
    const xmlNode* soapBody =
        root != nullptr && Is(root, kSoapNs, "Envelope") ? Child(root, kSoapNs, "Body") : nullptr;
    const xmlNode* element = soapBody == nullptr ? nullptr : soapBody->children;
    while (element != nullptr && element->type != XML_ELEMENT_NODE) {
        element = element->next;
    }
    if (element == nullptr) {
        return Fault(400, "Sender", "WellFormed", "no SOAP 1.2 request");
    }
    const std::string operation(View(element->name));
    if (!camera.user.empty() && !IsForAnybody(operation) &&
        !IsAuthorized(camera, Child(root, kSoapNs, "Header"), now)) {
        return Fault(400, "Sender", "NotAuthorized", "Sender not authorized");
    }
    if (auto text = Override(camera, operation)) {
        return {200, "application/soap+xml; charset=utf-8", std::move(*text)};
    }
    const auto result = Result(camera, operation, now);
    if (!result) {
        return Fault(500, "Receiver", "ActionNotSupported", "Optional action not implemented");
    }
    return {200, "application/soap+xml; charset=utf-8", InEnvelope(*result)};
}

}  // namespace

ServiceAnswer AnswerService(const Camera& camera, const std::string& method,
                            const std::string& path, const std::string& body, WallTime now) {
    if (path == kSnapshotPath && method == "GET") {
        return {200, "image/jpeg", DecodeBase64(kSnapshot).value_or("")};
    }
    if (path != "/onvif/device_service" && path != "/onvif/media_service") {
        return {404, "text/plain", "not found\n"};
    }
    if (method != "POST") {
        return {405, "text/plain", "a service takes POST\n"};
    }
    return AnswerOperation(camera, body, now);
}

}  // namespace lansim
