#include "finder/source/unicastfailures.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "finder/text/addresstext.h"

namespace Lanscout {
namespace {

struct Words {
    std::string why;
    std::string remedy;
};

Words WordsFor(int error, const std::string& address) {
    switch (error) {
        case ENETUNREACH:
        case EHOSTUNREACH:
            return {"there is no route",
                    fmt::format("See which way it takes with: ip route get {}", address)};
        case ENETDOWN:
            return {"the interface on the way is down",
                    fmt::format("See which way it takes with: ip route get {}", address)};
        case EPERM:
        case EACCES:
            return {"sending is not permitted",
                    "A firewall rule of this machine may forbid UDP to port 3702"};
        default:
            return {fmt::format("{} (errno {})", std::strerror(error), error), ""};
    }
}

}  // namespace

void UnicastFailures::Note(std::uint32_t address, int error) {
    if (m_addresses.empty()) {
        m_first = address;
        m_error = error;
    }
    m_addresses.insert(address);
}

void UnicastFailures::Tell(std::size_t asked, bool nothingElse, Sender& sender) const {
    if (m_addresses.empty()) {
        return;
    }
    const std::string first = Ipv4Text(m_first);
    const auto [why, remedy] = WordsFor(m_error, first);
    const std::string what =
        asked == 1 ? fmt::format("{} cannot be asked: {}", first, why)
                   : fmt::format("{} of {} addresses cannot be asked, the first of them {}: {}",
                                 m_addresses.size(), asked, first, why);
    if (nothingElse && m_addresses.size() >= asked) {
        sender.Send(FailureMessage{{}, what, remedy});
    } else {
        sender.Send(NoticeMessage{{}, what, remedy});
    }
}

}  // namespace Lanscout
