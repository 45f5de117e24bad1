// A search result and the HTTP response that its Location brings: from libupnp's event and the
// socket's bytes to the derived class.
//
// Input: the Location up to the first line feed, the response's bytes behind it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/check.h"
#include "fuzz/fakeserver.h"
#include "fuzz/fakeupnp.h"
#include "utils/upnpsearchbase.h"

namespace {

class Finder : public UpnpSearchBase {
public:
    Finder() : UpnpSearchBase("127.0.0.1", 0, 5) {}
    ~Finder() override { StopSearch(); }
    Finder(const Finder&) = delete;
    Finder& operator=(const Finder&) = delete;

    int Devices() const { return m_nDevices; }

protected:
    void OnDeviceDiscovered(const std::string& descriptionXml, const char* location) override {
        ++m_nDevices;
        Check(!descriptionXml.empty(), "a description has text");
        Check(std::string_view(location).find("//127.") != std::string_view::npos,
              "only the own subnet is asked");
        std::string host;
        int port = 0;
        ParseUrl(location, host, port);
        for (const char* tag : {"friendlyName", "manufacturer", "modelName", "serialNumber"}) {
            Check(GetUpnpResultInfo(descriptionXml, tag).size() < descriptionXml.size(),
                  "an element is smaller than its document");
        }
    }

private:
    int m_nDevices = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t split = std::min(input.find('\n'), input.size());
    const std::string location(input.substr(0, split));
    FakeServer::SetAnswer(input.substr(std::min(split + 1, input.size())));
    {
        Finder finder;
        Check(finder.StartSearch() == 0, "the search starts");
        Check(FakeUpnp::DeliverSearchResult(location.c_str()) == 0, "the event is taken");
        FakeUpnp::DeliverSearchResult(location.c_str());
        Check(finder.Devices() <= 1, "a location is fetched once");
        Check(finder.Devices() == 0 || FakeServer::Connections() > 0, "a description was fetched");
    }
    FakeServer::CloseAll();
    return 0;
}
