#include "tools/lanscout-sim/report.h"

#include <gmock/gmock.h>
#include <pcap/pcap.h>
#include <unistd.h>

#include <filesystem>

#include "tools/lanscout-sim/hosts.h"
#include "tools/lanscout-sim/network/capture.h"

using lansim::Misbehaviour;
using lansim::Population;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::ThrowsMessage;
using ::testing::UnorderedElementsAre;

namespace {

Population CameraWithOtherSide() {
    Population population;
    population.cameras.resize(1);
    auto& camera = population.cameras[0];
    camera.ip = *lansim::ParseIpv4("10.99.0.10");
    camera.mac = *lansim::ParseMac("02:4C:0A:63:00:0A");
    camera.hardware = "VQ-2041";
    camera.port = 8080;
    camera.misbehaviours = {Misbehaviour::QuietArp};
    population.upnpDevices.resize(1);
    population.upnpDevices[0].ip = camera.ip;
    population.upnpDevices[0].mac = camera.mac;
    population.upnpDevices[0].port = 49152;
    return population;
}

class File {
public:
    ~File() { std::filesystem::remove(m_name); }
    std::string m_name = "sim_report_test." + std::to_string(getpid());
};

TEST(SimReport, DevicesTellWhatASearchShouldFind) {
    const auto devices = DevicesReport(CameraWithOtherSide());
    ASSERT_THAT(devices, SizeIs(2));
    EXPECT_EQ(devices[0]["kind"], "onvif");
    EXPECT_EQ(devices[0]["ip"], "10.99.0.10");
    EXPECT_EQ(devices[0]["mac"], "02:4C:0A:63:00:0A");
    EXPECT_EQ(devices[0]["port"], 8080);
    EXPECT_EQ(devices[0]["hardware"], "VQ-2041");
    EXPECT_THAT(devices[0]["misbehaviours"], ElementsAre("quiet-arp"));
    EXPECT_EQ(devices[1]["kind"], "upnp");
    EXPECT_EQ(devices[1]["descriptionUrl"], "http://10.99.0.10:49152/description.xml");
    EXPECT_THAT(devices[1]["misbehaviours"], SizeIs(0));
}

TEST(SimReport, TruthHasAllThatASearcherCouldKnow) {
    auto population = CameraWithOtherSide();
    auto& camera = population.cameras[0];
    camera.name = "Gate";
    camera.location = "Yard";
    camera.uuid = "u-1";
    camera.delay = std::chrono::milliseconds(5);
    camera.otherTypes = {{"urn:a", "Computer"}};
    const auto devices = Truth(population)["devices"];
    EXPECT_EQ(devices[0]["endpoint"], "urn:uuid:u-1");
    EXPECT_EQ(devices[0]["location"], "Yard");
    EXPECT_THAT(devices[0]["types"],
                ElementsAre("NetworkVideoTransmitter", "Device", "{urn:a}Computer"));
    EXPECT_THAT(devices[0]["xaddrs"], ElementsAre("http://10.99.0.10:8080/onvif/device_service"));
    EXPECT_THAT(devices[0]["scopes"], ::testing::Contains("onvif://www.onvif.org/name/Gate"));
    EXPECT_EQ(devices[0]["delayMs"], 5);
    EXPECT_EQ(devices[0]["shape"], 0);
    EXPECT_FALSE(devices[0].contains("probesSeen")) << "that is no truth but a result";
    EXPECT_EQ(devices[1]["type"], "urn:schemas-upnp-org:device:Basic:1");
}

TEST(SimReport, FileThatCannotBeWrittenIsNamed) {
    EXPECT_THAT([] { lansim::OutputFile("/nowhere/stats.json"); },
                ThrowsMessage<lansim::SetupError>(HasSubstr("/nowhere/stats.json: No such file")));
}

std::vector<std::uint16_t> Listed(const lansim::Ports& ports) {
    return {ports.All().begin(), ports.All().end()};
}

TEST(SimHosts, CameraAndItsOtherSideAreOneHostWithBothPorts) {
    const auto hosts = HostsOf(CameraWithOtherSide());
    ASSERT_THAT(hosts, SizeIs(1));
    EXPECT_THAT(Listed(hosts[0].udpPorts), UnorderedElementsAre(1900, 3702));
    EXPECT_THAT(Listed(hosts[0].tcpPorts), ElementsAre(8080, 49152)) << "the service, too";
    EXPECT_TRUE(hosts[0].answersArp);
    EXPECT_FALSE(hosts[0].asksArp);
}

TEST(SimCapture, FramesAreReadBackByLibpcap) {
    const File file;
    { lansim::Capture(file.m_name).Write("0123456789abcdef"); }
    std::array<char, PCAP_ERRBUF_SIZE> error{};
    const std::unique_ptr<pcap_t, decltype(&pcap_close)> handle(
        pcap_open_offline(file.m_name.c_str(), error.data()), pcap_close);
    ASSERT_TRUE(handle) << error.data();
    EXPECT_EQ(pcap_datalink(handle.get()), DLT_EN10MB);
    pcap_pkthdr* header = nullptr;
    const unsigned char* bytes = nullptr;
    ASSERT_EQ(pcap_next_ex(handle.get(), &header, &bytes), 1);
    EXPECT_EQ(std::string(bytes, bytes + header->caplen), "0123456789abcdef");
    EXPECT_EQ(pcap_next_ex(handle.get(), &header, &bytes), PCAP_ERROR_BREAK);
}

TEST(SimCapture, FileThatCannotBeWrittenIsNamed) {
    EXPECT_THAT([] { lansim::Capture("/nowhere/x.pcap"); },
                ThrowsMessage<lansim::SetupError>(HasSubstr("/nowhere/x.pcap")));
}

}  // namespace
