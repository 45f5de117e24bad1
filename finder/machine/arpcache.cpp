#include "finder/machine/arpcache.h"

#include <net/if_arp.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>

namespace Lanscout {

std::string MacFromArpCache(const std::string& ip, const std::string& interface,
                            const std::filesystem::path& table) {
    std::ifstream file(table);
    std::string line;
    std::getline(file, line);
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        std::string address, type, mac, mask, device;
        unsigned int flags = 0;
        fields >> address >> type >> std::hex >> flags >> mac >> mask >> device;
        if (fields && address == ip && device == interface && (flags & ATF_COM) != 0) {
            std::transform(mac.begin(), mac.end(), mac.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
            return mac;
        }
    }
    return {};
}

}  // namespace Lanscout
