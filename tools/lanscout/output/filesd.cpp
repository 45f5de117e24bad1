#include "tools/lanscout/output/filesd.h"

#include <fmt/core.h>

#include <cctype>
#include <stdexcept>

#include "finder/device/devicejson.h"
#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

// "otherIps" is "__meta_lanscout_other_ips", as Prometheus writes its own.
std::string LabelOf(const Field& field) {
    std::string label = "__meta_lanscout_";
    for (const char* at = field.name; *at != '\0'; ++at) {
        const auto c = static_cast<unsigned char>(*at);
        if (std::isupper(c) != 0) {
            label += '_';
        }
        label += static_cast<char>(std::tolower(c));
    }
    return label;
}

std::string TargetOf(const Device& device) {
    const std::string address = ShownAddress(device);
    const bool ipv6 = address.find(':') != std::string::npos;
    constexpr int kLastPort = 65535;
    return fmt::format("{}{}{}{}", ipv6 ? "[" : "", address, ipv6 ? "]" : "",
                       device.port > 0 && device.port <= kLastPort ? fmt::format(":{}", device.port)
                                                                   : std::string());
}

Json GroupOf(const Device& device) {
    Json labels = Json::object();
    for (const Field& field : Fields()) {
        if (field.csv && IsKnown(field, device)) {
            labels[LabelOf(field)] = FieldText(field, device);
        }
    }
    return {{"targets", Json::array({TargetOf(device)})}, {"labels", std::move(labels)}};
}

}  // namespace

std::string FileSdDocument(const Report& report) {
    Json groups = Json::array();
    for (const Device& device : report.devices) {
        groups.push_back(GroupOf(device));
    }
    return DumpDocument(groups);
}

std::unique_ptr<Output> FileSdOutput::Make(const Means& means) {
    return std::make_unique<FileSdOutput>(means);
}

void FileSdOutput::EndSearch(const Report& report) {
    m_means.writeFile(m_means.settings.fileSd, FileSdDocument(report));
}

void FileSdOutput::EndComparison(const Report& report, const Comparison& /*comparison*/) {
    EndSearch(report);
}

void FileSdOutput::EndRound(const Report& report) {
    std::string failure;
    try {
        EndSearch(report);
    } catch (const std::runtime_error& wrong) {
        failure = wrong.what();
    }
    if (!failure.empty() && failure != m_failure) {
        m_means.console.Say("lanscout: " + ForDisplay(failure) + "; the watch goes on without it");
    }
    m_failure = failure;
}

}  // namespace Lanscout
