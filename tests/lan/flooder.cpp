// Floods one host's discovery port for the LAN tests: UDP datagrams as raw frames, as fast as the
// device takes them or at a given pace, from one sender or from many forged ones. Prints how many
// it sent.
#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace {

constexpr std::uint16_t kPort = 3702;  // WS-Discovery
constexpr std::size_t kFragmentBytes = 1480;

struct Options {
    std::string device = "eth0";
    std::string toMac;
    std::string to;
    std::string from;
    std::uint32_t senders = 1;
    std::uint64_t count = 0;
    double seconds = 1;
    double perSecond = 0;
    std::string payloadFile;
    bool everySize = false;
    bool fragments = false;
};

std::uint32_t Address(const std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        throw std::runtime_error("not an IPv4 address: " + text);
    }
    return ntohl(address.s_addr);
}

// RFC 1071.
std::uint16_t Checksum(const void* data, std::size_t bytes) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i + 1 < bytes; i += 2) {
        std::uint16_t word = 0;
        std::memcpy(&word, static_cast<const char*>(data) + i, sizeof(word));
        sum += word;
    }
    while (sum >> 16 != 0) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(~sum);
}

class Flooder {
public:
    explicit Flooder(const Options& options)
        : m_options(options),
          m_socket(socket(AF_PACKET, SOCK_RAW, 0)),
          m_from(Address(options.from)),
          m_to(Address(options.to)) {
        if (m_socket < 0) {
            throw std::system_error(errno, std::generic_category(), "packet socket");
        }
        m_device.sll_family = AF_PACKET;
        m_device.sll_ifindex = static_cast<int>(if_nametoindex(options.device.c_str()));
        m_device.sll_halen = ETH_ALEN;
        ReadMac(options.toMac);
        ReadPayload(options.payloadFile);
    }
    ~Flooder() { close(m_socket); }
    Flooder(const Flooder&) = delete;
    Flooder& operator=(const Flooder&) = delete;

    std::uint64_t Run() {
        using Clock = std::chrono::steady_clock;
        const auto start = Clock::now();
        const auto end = start + std::chrono::duration<double>(m_options.seconds);
        std::uint64_t sent = 0;
        while (Clock::now() < end && (m_options.count == 0 || sent < m_options.count)) {
            if (m_options.perSecond > 0) {
                std::this_thread::sleep_until(
                    start +
                    std::chrono::duration<double>(static_cast<double>(sent) / m_options.perSecond));
            }
            SendOne(sent++);
        }
        return sent;
    }

private:
    void ReadMac(const std::string& text) {
        std::array<unsigned int, ETH_ALEN> bytes{};
        if (sscanf(text.c_str(), "%x:%x:%x:%x:%x:%x", &bytes[0], &bytes[1], &bytes[2], &bytes[3],
                   &bytes[4], &bytes[5]) != ETH_ALEN) {
            throw std::runtime_error("not a MAC address: " + text);
        }
        std::copy(bytes.begin(), bytes.end(), static_cast<unsigned char*>(m_device.sll_addr));
    }

    void ReadPayload(const std::string& name) {
        if (name.empty()) {
            return;
        }
        FILE* const file = fopen(name.c_str(), "rb");
        if (file == nullptr) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        std::array<char, 65536> buffer{};
        m_payload.assign(buffer.data(), fread(buffer.data(), 1, buffer.size(), file));
        fclose(file);
    }

    void SendOne(std::uint64_t number) {
        std::string payload = m_payload;
        if (m_options.everySize) {
            payload.assign(number % (kFragmentBytes - sizeof(udphdr)), 'x');
        }
        udphdr udp{};
        udp.source = htons(kPort);
        udp.dest = htons(kPort);
        udp.len = htons(static_cast<std::uint16_t>(sizeof(udp) + payload.size()));
        std::string packet(reinterpret_cast<const char*>(&udp), sizeof(udp));
        packet += payload;
        SendFragments(packet, number);
    }

    // Whole where it fits; else in fragments, of which --fragments leaves the last one out, so that
    // the receiver waits for it in vain.
    void SendFragments(const std::string& packet, std::uint64_t number) {
        for (std::size_t at = 0; at < packet.size(); at += kFragmentBytes) {
            const bool last = packet.size() - at <= kFragmentBytes;
            if (last && m_options.fragments && at > 0) {
                return;
            }
            const bool more = !last || m_options.fragments;
            SendFrame(packet.substr(at, kFragmentBytes), at, more, number);
        }
    }

    void SendFrame(const std::string& part, std::size_t at, bool more, std::uint64_t number) {
        iphdr ip{};
        ip.version = 4;
        ip.ihl = sizeof(ip) / 4;
        ip.tot_len = htons(static_cast<std::uint16_t>(sizeof(ip) + part.size()));
        ip.id = htons(static_cast<std::uint16_t>(number));
        ip.frag_off = htons(static_cast<std::uint16_t>(at / 8 | (more ? IP_MF : 0)));
        ip.ttl = 64;
        ip.protocol = IPPROTO_UDP;
        ip.saddr = htonl(m_from + static_cast<std::uint32_t>(number % m_options.senders));
        ip.daddr = htonl(m_to);
        ip.check = Checksum(&ip, sizeof(ip));
        ether_header ethernet{};
        std::copy_n(static_cast<unsigned char*>(m_device.sll_addr), ETH_ALEN,
                    static_cast<unsigned char*>(ethernet.ether_dhost));
        ethernet.ether_shost[0] = 2;
        ethernet.ether_type = htons(ETHERTYPE_IP);
        std::string frame(reinterpret_cast<const char*>(&ethernet), sizeof(ethernet));
        frame.append(reinterpret_cast<const char*>(&ip), sizeof(ip));
        frame += part;
        // A full queue loses the frame, as a full wire would.
        (void)sendto(m_socket, frame.data(), frame.size(), 0,
                     reinterpret_cast<const sockaddr*>(&m_device), sizeof(m_device));
    }

    const Options& m_options;
    int m_socket;
    sockaddr_ll m_device{};
    std::uint32_t m_from;
    std::uint32_t m_to;
    std::string m_payload;
};

}  // namespace

int main(int argc, char** argv) try {
    Options options;
    CLI::App app("Floods one host's discovery port");
    app.add_option("--device", options.device);
    app.add_option("--to-mac", options.toMac)->required();
    app.add_option("--to", options.to)->required();
    app.add_option("--from", options.from, "the first sender")->required();
    app.add_option("--senders", options.senders)->check(CLI::PositiveNumber);
    app.add_option("--count", options.count, "datagrams; 0: as many as the time allows");
    app.add_option("--seconds", options.seconds, "at most so long")->check(CLI::Range(0.0, 60.0));
    app.add_option("--per-second", options.perSecond, "0: as fast as it goes");
    app.add_option("--payload", options.payloadFile, "file; without it, empty datagrams");
    app.add_flag("--every-size", options.everySize, "payloads of 0, 1, 2 ... bytes");
    app.add_flag("--fragments", options.fragments, "the last fragment never comes");
    CLI11_PARSE(app, argc, argv);
    printf("%llu\n", static_cast<unsigned long long>(Flooder(options).Run()));
    return 0;
} catch (const std::exception& error) {
    fprintf(stderr, "flooder: %s\n", error.what());
    return 2;
}
