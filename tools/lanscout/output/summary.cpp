#include "tools/lanscout/output/summary.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

// More places than that are counted.
constexpr std::size_t kMostPlaces = 8;

std::string PlaceText(const Target& target) {
    if (target.interface.empty()) {
        return target.address;
    }
    return target.address.empty() ? target.interface
                                  : fmt::format("{} ({})", target.interface, target.address);
}

std::vector<std::string> PlacesOf(const Report& report) {
    std::vector<std::string> places;
    for (const SearchReport& search : report.searches) {
        std::string place = PlaceText(search.target);
        if (!place.empty() && std::find(places.begin(), places.end(), place) == places.end()) {
            places.push_back(std::move(place));
        }
    }
    return places;
}

std::string SearchedText(const Report& report) {
    const std::vector<std::string> places = PlacesOf(report);
    if (places.empty()) {
        return "";
    }
    if (places.size() > kMostPlaces) {
        return fmt::format(" on {} addresses of this machine", places.size());
    }
    return fmt::format(" on {}", ForDisplay(fmt::format("{}", fmt::join(places, ", "))));
}

}  // namespace

std::string Counted(std::size_t count, const char* what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::string SummaryText(const Report& report) {
    const auto cameras = std::count_if(report.devices.begin(), report.devices.end(),
                                       [](const Device& one) { return one.kind == Kind::Camera; });
    std::string text =
        report.devices.empty() ? "No device answered" : Counted(report.devices.size(), "device");
    if (cameras > 0) {
        text += fmt::format(" ({})", Counted(static_cast<std::size_t>(cameras), "camera"));
    }
    text += fmt::format("{} in {:.1f} s", SearchedText(report), report.seconds);
    return report.WasInterrupted() ? text + ", interrupted" : text;
}

std::string DifferencesText(const Comparison& comparison) {
    return comparison.IsSame()
               ? "The same as before"
               : fmt::format("{} missing, {} new, {} changed", comparison.missing.size(),
                             comparison.added.size(), comparison.changed.size());
}

}  // namespace Lanscout
