// Publishes lists of devices as a watch does, without a search: for many sites at once.
//
//     publishdriver URL SITE...
//
// Each line of standard input is a round: a JSON list of {"device": {...}, "gone": false,
// "lastSeen": "..."}, the same for every site. Problems and the end of each round are told on
// standard output. The end of the input is the end of the sites.
#include <fmt/core.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <list>
#include <string>

#include "finder/device/devicejson.h"
#include "finder/machine/clock.h"
#include "tools/lanscout/publish/publisher.h"

using namespace Lanscout;

namespace {

std::string Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

void Say(const std::string& text) {
    fmt::print("{}\n", text);
    std::fflush(stdout);
}

PublishSettings SettingsOf(const char* url, const char* site) {
    PublishSettings settings;
    settings.broker = ParseBrokerUrl(url);
    settings.broker.caFile = Variable("CAFILE");
    if (const std::string file = Variable("CREDENTIALS"); !file.empty()) {
        ReadCredentials(file, settings.broker);
    }
    settings.site.name = site;
    settings.site.homeAssistant = !Variable("HOMEASSISTANT").empty();
    return settings;
}

std::vector<ListedDevice> ListOf(const std::string& line) {
    std::vector<ListedDevice> list;
    for (const Json& json : Json::parse(line)) {
        list.push_back({DeviceFromJson(json.at("device")).value(),
                        json.at("lastSeen").get<std::string>(), json.at("gone").get<bool>()});
    }
    return list;
}

Report RoundOf() {
    Report report;
    report.started = NowText();
    report.finished = report.started;
    report.searches.push_back({});
    return report;
}

void Run(int argc, char** argv) {
    std::list<SitePublisher> sites;
    for (int i = 2; i < argc; ++i) {
        sites.emplace_back(SettingsOf(argv[1], argv[i]),
                           [](const Problem& problem) { Say(ProblemText(problem)); });
    }
    int round = 0;
    for (std::string line; std::getline(std::cin, line);) {
        const std::vector<ListedDevice> list = ListOf(line);
        for (SitePublisher& site : sites) {
            site.EndRound(RoundOf(), list);
        }
        Say(fmt::format("round {}", ++round));
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Run(argc, argv);
    } catch (const std::exception& failure) {
        Say(failure.what());
        return 1;
    }
    return 0;
}
