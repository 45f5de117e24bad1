#include "tests/unit/support/scriptednetwork.h"

#include <arpa/inet.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace {

constexpr std::int64_t kSecond = 1'000'000;

int Fail(int number) {
    errno = number;
    return -1;
}

}  // namespace

ScriptedNetwork::ScriptedNetwork() {
    FakeSystem::Calls& calls = FakeSystem::Current();
    calls.socket = [this](int, int, int) { return Open(); };
    calls.close = [this](int fd) {
        Note(fd == kSocket ? "close" : fd == kArpSocket ? "close arp" : "close another");
        return 0;
    };
    calls.bind = [this](int, const sockaddr*, socklen_t) {
        Note("bind");
        return m_bindError == 0 ? 0 : Fail(m_bindError);
    };
    calls.setsockopt = [this](int, int, int, const void*, socklen_t) {
        Note("setsockopt");
        return 0;
    };
    calls.sendto = [this](int, const void* data, size_t size, int, const sockaddr*, socklen_t) {
        return Send(data, size);
    };
    calls.recvfrom = [this](int, void* data, size_t size, int, sockaddr* address, socklen_t*) {
        return Receive(data, size, address);
    };
    calls.ioctl = [this](int, unsigned long, void* argument) { return QueryArp(argument); };
    calls.time = [this] { return Now(); };
    calls.clockGettime = [this](clockid_t) {
        const std::lock_guard lock(m_mutex);
        return timespec{m_nowMicroseconds / kSecond, m_nowMicroseconds % kSecond * 1000};
    };
    calls.clockNanosleep = [this](clockid_t, int, const timespec* until) {
        const std::lock_guard lock(m_mutex);
        m_nowMicroseconds =
            std::max(m_nowMicroseconds, until->tv_sec * kSecond + until->tv_nsec / 1000);
        return 0;
    };
    m_nowMicroseconds = 1000 * kSecond;
}

void ScriptedNetwork::Reply(const std::string& ip, const std::string& payload, int secondsLater) {
    m_steps.push_back({ip, payload, secondsLater, 0, nullptr});
}

void ScriptedNetwork::Empty() {
    m_steps.push_back({"192.0.2.1", "", 0, 0, nullptr});
}

void ScriptedNetwork::Silence() {
    Error(EAGAIN);
}

void ScriptedNetwork::Then(std::function<void()> action) {
    m_steps.push_back({"", "", 0, 0, std::move(action)});
}

void ScriptedNetwork::Error(int number) {
    m_steps.push_back({"", "", 0, number, nullptr});
}

void ScriptedNetwork::Neighbour(const std::string& ip, const std::string& mac6) {
    m_neighbours[ip] = mac6;
}

void ScriptedNetwork::FailSend(int which, int number) {
    m_sendErrors[which] = number;
}

std::vector<std::string> ScriptedNetwork::Events() {
    const std::lock_guard lock(m_mutex);
    return m_events;
}

std::vector<std::string> ScriptedNetwork::Events(const std::string& only) {
    std::vector<std::string> events = Events();
    std::erase_if(events, [&](const std::string& event) { return !event.starts_with(only); });
    return events;
}

std::vector<std::int64_t> ScriptedNetwork::SendTimes() {
    const std::lock_guard lock(m_mutex);
    return m_sendTimes;
}

std::time_t ScriptedNetwork::Now() {
    const std::lock_guard lock(m_mutex);
    return kStart + static_cast<std::time_t>(m_nowMicroseconds / kSecond - 1000);
}

void ScriptedNetwork::Advance(std::int64_t microseconds) {
    const std::lock_guard lock(m_mutex);
    m_nowMicroseconds += microseconds;
}

void ScriptedNetwork::Note(const std::string& event) {
    const std::lock_guard lock(m_mutex);
    m_events.push_back(event);
}

int ScriptedNetwork::Open() {
    if (m_bOpened) {
        return kArpSocket;
    }
    Note("socket");
    if (m_socketError != 0) {
        return Fail(m_socketError);
    }
    m_bOpened = true;
    return kSocket;
}

ssize_t ScriptedNetwork::Send(const void* data, size_t size) {
    const std::string message(static_cast<const char*>(data), size);
    const bool nvt = message.find("<Types>dn:NetworkVideoTransmitter</Types>") != std::string::npos;
    const bool device = message.find("<Types>tds:Device</Types>") != std::string::npos;
    Note(nvt ? "send NVT" : device ? "send DEVICE" : "send something else");
    const std::lock_guard lock(m_mutex);
    m_sendTimes.push_back(m_nowMicroseconds);
    const auto error = m_sendErrors.find(m_sends++);
    return error == m_sendErrors.end() ? static_cast<ssize_t>(size) : Fail(error->second);
}

ssize_t ScriptedNetwork::Receive(void* data, size_t size, sockaddr* address) {
    Note("recv");
    while (!m_steps.empty() && m_steps.front().action) {
        const std::function<void()> action = std::move(m_steps.front().action);
        m_steps.pop_front();
        action();
    }
    if (m_steps.empty()) {
        Advance(3 * kSecond);
        return Fail(EAGAIN);
    }
    const Step step = std::move(m_steps.front());
    m_steps.pop_front();
    if (step.nError != 0) {
        Advance(step.nError == EAGAIN ? 3 * kSecond : 0);
        return Fail(step.nError);
    }
    Advance(step.nSecondsLater * kSecond);
    sockaddr_in sender{};
    sender.sin_family = AF_INET;
    sender.sin_port = htons(3702);
    inet_pton(AF_INET, step.ip.c_str(), &sender.sin_addr);
    memcpy(address, &sender, sizeof(sender));
    return static_cast<ssize_t>(step.payload.copy(static_cast<char*>(data), size));
}

int ScriptedNetwork::QueryArp(void* argument) {
    auto& request = *static_cast<arpreq*>(argument);
    sockaddr_in asked;
    memcpy(&asked, &request.arp_pa, sizeof(asked));
    char ip[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &asked.sin_addr, ip, sizeof(ip));
    Note(std::string("arp ") + ip);
    const auto found = m_neighbours.find(ip);
    if (found == m_neighbours.end()) {
        return Fail(ENXIO);
    }
    found->second.copy(request.arp_ha.sa_data, 6);
    request.arp_flags = ATF_COM;
    return 0;
}
