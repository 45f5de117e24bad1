// Which MQTT broker, and how it is reached.
#pragma once

#include <string>

namespace Lanscout {

struct BrokerSettings {
    std::string host;
    int port = 0;
    bool tls = false;
    std::string caFile;    // empty: what this machine trusts
    std::string certFile;  // of this client; empty: none
    std::string keyFile;
    std::string user;  // empty: none
    std::string password;

    bool operator==(const BrokerSettings&) const = default;
};

// "mqtt://broker.example", "mqtts://[fe80::1]:8884". Throws std::runtime_error with what is wrong
// with it; a user name in it is refused, because command lines can be read by everybody.
BrokerSettings ParseBrokerUrl(const std::string& url);

// "mqtts://broker.example:8883", for messages.
std::string BrokerText(const BrokerSettings& settings);

// The user name is the file's first line and the password its second. Throws std::runtime_error
// when it cannot be read or others may read it.
void ReadCredentials(const std::string& path, BrokerSettings& settings);

}  // namespace Lanscout
