// The seam as a server fills it: every function that the headers under host/ declare.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include "host/karnexec.h"
#include "host/sdkfuncdata.h"
#include "host/zellog.h"
#include "host/zelnet.h"
#include "host/zelstring.h"

ZelDbgLogCfg* g_pDbgLogCfg = nullptr;
int g_DbgLogPid = 0;

void ZelPrintf(LOG_TYPE, const char* category, const char* level, const char*, int,
               const char* function, const char* format, ...) {
    std::printf("server log: %s %s %s: ", category, level, function);
    va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
}

template <>
ZelEnum2StrMap<LOG_LEVEL>::ZelEnum2StrMap() {
    insert({{LOG_LEVEL_ERROR, "error"}, {LOG_LEVEL_NOTICE, "notice"}, {LOG_LEVEL_INFO, "info"}});
}

template <>
ZelEnum2StrMap<LOG_CATEG>::ZelEnum2StrMap() {
    insert({{LOG_CATEG_DISCOVERY, "discovery"}});
}

int SDKFuncData::NetGetCard1(const std::string& strIp, _tag_NETINFO_& info) {
    info = {};
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return 0;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, freeifaddrs);
    in_addr wanted{};
    inet_aton(strIp.c_str(), &wanted);
    for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_INET) {
            continue;
        }
        const auto* address = reinterpret_cast<const sockaddr_in*>(each->ifa_addr);
        if (address->sin_addr.s_addr == wanted.s_addr) {
            info.bUsable = (each->ifa_flags & IFF_UP) != 0 ? 1 : 0;
            std::snprintf(info.szName, sizeof info.szName, "%s", each->ifa_name);
            return 1;
        }
    }
    return 0;
}

int KarnExecl(const char*, int, ...) {
    return -1;  // a server runs the program; here every MAC address stays "N/A"
}

std::string DecodingSpaces(const std::string& text) {
    return text;
}

std::string Trim(const std::string& text, const char* characters) {
    const auto first = text.find_first_not_of(characters);
    return first == std::string::npos
               ? std::string()
               : text.substr(first, text.find_last_not_of(characters) - first + 1);
}

bool IsSameSubnet(const std::string&, const std::string&) {
    return false;  // no device's description is fetched
}

struct ZelNet::ZelHttpClient::Impl {};

ZelNet::ZelHttpClient::ZelHttpClient() = default;
ZelNet::ZelHttpClient::~ZelHttpClient() = default;
void ZelNet::ZelHttpClient::Init(std::string, std::string, int, std::string, std::string, int, bool,
                                 bool, bool, HTTP_VERSION, std::string, bool, bool) {}
int ZelNet::ZelHttpClient::SendRequest(ZEL_HTTP_METHOD, std::string, const std::string&) {
    return -1;
}
void ZelNet::ZelHttpClient::GetHttpContent(HTTP_MAP_KEY, std::string&) const {}
int ZelNet::ZelHttpClient::ReadData(char*, int) {
    return -1;
}
