// A network for the discovery thread, with a clock of its own: datagrams and silences come as the
// test wrote them down, at once, and time passes only in silences and waits.
#pragma once

#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tests/unit/support/fakesystem.h"

class ScriptedNetwork {
public:
    static constexpr int kSocket = 1'000'001;     // the search's own
    static constexpr int kArpSocket = 1'000'002;  // the MAC address lookup's
    static constexpr std::time_t kStart = 1'700'000'000;

    ScriptedNetwork();

    // The next things that recvfrom yields, in order. When nothing is left there is silence.
    void Reply(const std::string& ip, const std::string& payload, int secondsLater = 0);
    void Empty();                             // an empty datagram
    void Silence();                           // 3 seconds without a datagram
    void Then(std::function<void()> action);  // runs when recvfrom gets there, then the next thing
    void Error(int number);                   // recvfrom fails with this errno

    // The neighbours that the kernel knows; others give ENXIO.
    void Neighbour(const std::string& ip, const std::string& mac6);

    // The next socket is a search's again, not the MAC address lookup's.
    void Reopen() { m_bOpened = false; }

    void FailSocket(int number) { m_socketError = number; }
    void FailBind(int number) { m_bindError = number; }
    void FailSend(int which, int number);  // the send number `which`, counted from 0

    // What happened, in order: "socket", "bind", "setsockopt", "send NVT", "send DEVICE",
    // "recv", "arp IP", "close".
    std::vector<std::string> Events();
    std::vector<std::string> Events(const std::string& only);
    std::vector<std::int64_t> SendTimes();  // microseconds
    std::time_t Now();
    void Advance(std::int64_t microseconds);

private:
    struct Step {
        std::string ip;
        std::string payload;
        int nSecondsLater = 0;
        int nError = 0;
        std::function<void()> action;
    };

    void Note(const std::string& event);
    int Open();
    ssize_t Send(const void* data, size_t size);
    ssize_t Receive(void* data, size_t size, sockaddr* address);
    int QueryArp(void* argument);

    FakeSystem::Scope m_scope;
    std::mutex m_mutex;  // the test looks while the discovery thread runs
    std::deque<Step> m_steps;
    std::vector<std::string> m_events;
    std::vector<std::int64_t> m_sendTimes;
    std::map<std::string, std::string> m_neighbours;
    std::map<int, int> m_sendErrors;
    std::int64_t m_nowMicroseconds = 0;
    int m_socketError = 0;
    int m_bindError = 0;
    int m_sends = 0;
    bool m_bOpened = false;
};
