#include "tools/lanscout-sim/onvif/deviceservice.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

using lansim::AnswerService;
using lansim::Camera;
using lansim::WallTime;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

// 2024-05-06 07:08:09 UTC
const WallTime kNow = std::chrono::system_clock::from_time_t(1714979289);

Camera Gate() {
    Camera camera;
    camera.ip = *lansim::ParseIpv4("10.99.0.10");
    camera.port = 8080;
    camera.maker = "Own <1>";
    camera.hardware = "H1";
    camera.uuid = "11111111-2222";
    return camera;
}

std::string Request(const std::string& operation, const std::string& header = "") {
    return "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\"><s:Header>" + header +
           "</s:Header><s:Body><x:" + operation +
           " xmlns:x=\"http://www.onvif.org/ver10/device/wsdl\"/></s:Body></s:Envelope>";
}

lansim::ServiceAnswer Ask(const Camera& camera, const std::string& body) {
    return AnswerService(camera, "POST", "/onvif/device_service", body, kNow);
}

// The digest of the UsernameToken Profile: nonce "nonce-nonce", password "secret".
std::string Token(const std::string& user, const std::string& password,
                  const std::string& created = "2024-05-06T07:08:00Z") {
    return fmt::format(
        R"(<w:Security xmlns:w="http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity)"
        R"(-secext-1.0.xsd"><w:UsernameToken><w:Username>{}</w:Username><w:Password>{})"
        R"(</w:Password><w:Nonce>bm9uY2Utbm9uY2U=</w:Nonce><u:Created xmlns:u="http://docs.oasis)"
        R"(-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd">{}</u:Created>)"
        R"(</w:UsernameToken></w:Security>)",
        user, password, created);
}
// base64(sha1("nonce-nonce" "2024-05-06T07:08:00Z" "secret")), by Python's hashlib.
constexpr const char* kDigest = "3AzW7tZkQFKNkX4f1fjDoz/kHig=";

TEST(SimDeviceService, EachOperationIsAnswered) {
    const std::pair<const char*, const char*> cases[] = {
        {"GetSystemDateAndTime", "<tt:Hour>7</tt:Hour><tt:Minute>8</tt:Minute>"},
        {"GetServices", "http://10.99.0.10:8080/onvif/media_service"},
        {"GetCapabilities", "<tt:XAddr>http://10.99.0.10:8080/onvif/device_service</tt:XAddr>"},
        {"GetDeviceInformation", "<tds:Manufacturer>Own &lt;1&gt;</tds:Manufacturer>"},
        {"GetProfiles", "token=\"profile1\""},
        {"GetVideoSources", "token=\"video1\""},
        {"GetStreamUri", "<tt:Uri>rtsp://10.99.0.10:554/stream1</tt:Uri>"},
        {"GetSnapshotUri", "<tt:Uri>http://10.99.0.10:8080/onvif/snapshot.jpg</tt:Uri>"},
    };
    for (const auto& [operation, part] : cases) {
        const auto answer = Ask(Gate(), Request(operation));
        EXPECT_EQ(answer.status, 200U) << operation;
        EXPECT_THAT(answer.body, HasSubstr(std::string(operation) + "Response>"));
        EXPECT_THAT(answer.body, HasSubstr(part));
    }
}

TEST(SimDeviceService, StreamPointsWhereTheScenarioSays) {
    Camera camera = Gate();
    camera.stream = "rtsp://10.0.0.1/a?b&c";
    EXPECT_THAT(Ask(camera, Request("GetStreamUri")).body,
                HasSubstr("<tt:Uri>rtsp://10.0.0.1/a?b&amp;c</tt:Uri>"));
}

TEST(SimDeviceService, SnapshotIsAJpeg) {
    const auto answer = AnswerService(Gate(), "GET", "/onvif/snapshot.jpg", "", kNow);
    EXPECT_EQ(answer.contentType, "image/jpeg");
    EXPECT_THAT(answer.body, StartsWith("\xFF\xD8\xFF"));
    EXPECT_THAT(answer.body, ::testing::EndsWith("\xFF\xD9"));
}

TEST(SimDeviceService, ClockIsTheCamerasOwn) {
    Camera camera = Gate();
    camera.clockOffset = std::chrono::hours(-24);
    EXPECT_THAT(Ask(camera, Request("GetSystemDateAndTime")).body,
                HasSubstr("<tt:Month>5</tt:Month><tt:Day>5</tt:Day>"));
}

TEST(SimDeviceService, WhatIsNoRequestIsAFault) {
    for (const auto* body : {"", "x", "<a/>", "<!DOCTYPE a><a/>"}) {
        EXPECT_EQ(Ask(Gate(), body).status, 400U) << body;
    }
    const auto unknown = Ask(Gate(), Request("Reboot"));
    EXPECT_EQ(unknown.status, 500U);
    EXPECT_THAT(unknown.body, HasSubstr("ter:ActionNotSupported"));
    EXPECT_EQ(AnswerService(Gate(), "GET", "/onvif/device_service", "", kNow).status, 405U);
    EXPECT_EQ(AnswerService(Gate(), "GET", "/", "", kNow).status, 404U);
}

TEST(SimDeviceService, UserIsAskedForWhatNotEverybodyMayKnow) {
    Camera camera = Gate();
    camera.user = "admin";
    camera.password = "secret";
    const auto statusOf = [&](const std::string& operation, const std::string& header) {
        return Ask(camera, Request(operation, header)).status;
    };
    EXPECT_EQ(statusOf("GetSystemDateAndTime", ""), 200U);
    EXPECT_EQ(statusOf("GetServices", ""), 200U);
    EXPECT_EQ(statusOf("GetDeviceInformation", ""), 400U);
    EXPECT_THAT(Ask(camera, Request("GetProfiles")).body, HasSubstr("ter:NotAuthorized"));
    EXPECT_EQ(statusOf("GetProfiles", Token("admin", kDigest)), 200U);
    EXPECT_EQ(statusOf("GetProfiles", Token("root", kDigest)), 400U);
    EXPECT_EQ(statusOf("GetProfiles", Token("admin", "secret")), 400U);
    EXPECT_EQ(statusOf("GetProfiles", Token("admin", kDigest, "2024-05-06T07:08:01Z")), 400U);
}

TEST(SimDeviceService, TokenOfAnotherTimeIsRefusedByTheCamerasClock) {
    Camera camera = Gate();
    camera.user = "admin";
    camera.password = "secret";
    camera.clockOffset = std::chrono::minutes(6);
    EXPECT_EQ(Ask(camera, Request("GetProfiles", Token("admin", kDigest))).status, 400U);
    camera.clockOffset = std::chrono::minutes(4);
    EXPECT_EQ(Ask(camera, Request("GetProfiles", Token("admin", kDigest))).status, 200U);
}

TEST(SimDeviceService, FolderReplacesSingleOperations) {
    Camera camera = Gate();
    camera.serviceFolder = "sim_service_test." + std::to_string(getpid());
    std::filesystem::create_directory(camera.serviceFolder);
    std::ofstream(camera.serviceFolder + "/GetProfiles.xml") << "<mine/>";
    EXPECT_EQ(Ask(camera, Request("GetProfiles")).body, "<mine/>");
    EXPECT_THAT(Ask(camera, Request("GetVideoSources")).body, HasSubstr("video1"));
    std::filesystem::remove_all(camera.serviceFolder);
}

}  // namespace
