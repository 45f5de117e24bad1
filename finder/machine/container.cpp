#include "finder/machine/container.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <system_error>

#include "finder/machine/descriptor.h"

namespace Lanscout {
namespace {

namespace fs = std::filesystem;

// Of Docker, Podman and systemd-nspawn, in this order.
constexpr std::array kMarks{".dockerenv", "run/.containerenv", "run/systemd/container"};

// Where nobody may look it is not said to be.
bool IsNetworkOfFirstProcess(const fs::path& root) {
    std::error_code error;
    const fs::path first = fs::read_symlink(root / "proc/1/ns/net", error);
    return !error && first == fs::read_symlink(root / "proc/self/ns/net", error);
}

}  // namespace

bool IsInContainer(const fs::path& root) {
    const bool marked = std::any_of(kMarks.begin(), kMarks.end(), [&](const char* mark) {
        std::error_code error;
        return fs::exists(root / mark, error);
    });
    return marked && IsNetworkOfFirstProcess(root);
}

bool IsVirtualCable(const std::string& interface) {
    const Descriptor any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ethtool_drvinfo driver{};
    driver.cmd = ETHTOOL_GDRVINFO;
    ifreq request{};
    interface.copy(static_cast<char*>(request.ifr_name), IFNAMSIZ - 1);
    request.ifr_data = reinterpret_cast<char*>(&driver);
    return any && ioctl(any.Fd(), SIOCETHTOOL, &request) == 0 &&
           std::string_view(static_cast<const char*>(driver.driver)) == "veth";
}

}  // namespace Lanscout
