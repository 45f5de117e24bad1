#include "tools/lanscout-sim/network/place.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/network/netdevice.h"

namespace lansim {
namespace {

constexpr Subnet kMulticast{Ipv4{0xE0000000}, 4};

Place OnBridge(const PlaceRequest& request) {
    Place place;
    place.tap = MakeTunDevice(request.tap, TunKind::EthernetFrames);
    NetDevice(request.tap).Join(request.bridge);
    return place;
}

Place BehindTap(const PlaceRequest& request, Privilege privilege) {
    Place place;
    place.isUserNamespace = privilege != Privilege::OfMachine;
    place.inside = std::make_unique<NetworkNamespace>(request.netns, privilege);
    place.tap = MakeTunDevice(request.tap, TunKind::EthernetFrames);
    return place;
}

// Datagrams to a group leave by lo here, also those of a socket that chose no device.
Place OnOwnLoopback(Privilege privilege) {
    Place place;
    place.isUserNamespace = privilege != Privilege::OfMachine;
    place.inside = std::make_unique<NetworkNamespace>("", privilege);
    NetDevice loopback("lo");
    loopback.SetUp();
    loopback.AddRoute(kMulticast);
    return place;
}

// Who has entered a user namespace cannot leave it, so a child tries first. The result is why it
// cannot be had, or empty.
template <typename Make>
std::string WhyNot(Make make) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        FailWithErrno("cannot make a pipe");
    }
    const Descriptor from(ends[0]);
    Descriptor to(ends[1]);
    const pid_t child = fork();
    if (child < 0) {
        FailWithErrno("cannot start a process");
    }
    if (child == 0) {
        std::string reason;
        try {
            make();
        } catch (const SetupError& error) {
            reason = error.what();
        }
        [[maybe_unused]] const auto size = write(to.Get(), reason.data(), reason.size());
        _exit(reason.empty() ? 0 : 1);
    }
    to = Descriptor();
    std::string reason;
    std::array<char, 512> buffer{};
    for (ssize_t size = 0; (size = read(from.Get(), buffer.data(), buffer.size())) > 0;) {
        reason.append(buffer.data(), static_cast<std::size_t>(size));
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0 || !reason.empty() ? reason : "the attempt ended with a signal";
}

bool IsRootOfMachine() {
    return WhyNot([] { const NetworkNamespace trial("", Privilege::OfMachine); }).empty();
}

Place OnLoopback(const PlaceRequest& request, Privilege privilege) {
    Place place;
    if (request.hasCommand && WhyNot([&] { OnOwnLoopback(privilege); }).empty()) {
        place = OnOwnLoopback(privilege);
    }
    return place;
}

}  // namespace

Place FindPlace(const PlaceRequest& request) {
    if (!request.bridge.empty()) {
        return OnBridge(request);
    }
    const auto ofUser = request.asRoot ? Privilege::OfUserAsRoot : Privilege::OfUser;
    const auto privilege = IsRootOfMachine() ? Privilege::OfMachine : ofUser;
    std::string reason;
    if (request.mayBeTap) {
        // In a named namespace there would be a name to clean up after the trial.
        reason =
            privilege == Privilege::OfMachine ? "" : WhyNot([&] { BehindTap(request, privilege); });
        if (reason.empty()) {
            try {
                return BehindTap(request, privilege);
            } catch (const SetupError& error) {
                reason = error.what();
            }
        }
        if (!request.mayBeLoopback) {
            throw SetupError(reason);
        }
    }
    Place place = OnLoopback(request, privilege);
    place.whyNoTap = reason;
    return place;
}

}  // namespace lansim
