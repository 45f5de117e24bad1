// A network without a kernel: what the camera search asks of sockets, the ARP cache and the clocks
// is answered from memory, with the calls wrapped at the link (fakenetwork.cmake). Everything above
// the system call is the library's own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string_view>
#include <vector>

namespace FakeNetwork {

struct Datagram {
    std::uint32_t sender;  // IPv4 address, host byte order
    std::string_view bytes;
};

// What the cycles after the first bring.
enum class Later { Same, Silent };

// While it lives, the calling thread's wrapped calls go here; other threads' reach the kernel. One
// at a time a thread.
class Network {
public:
    // The datagrams come once in the first cycle, and `laterCycles` follow it.
    explicit Network(std::vector<Datagram> datagrams, int laterCycles = 1,
                     Later later = Later::Same);
    ~Network();
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;

    // The next datagram, cut to `size`; -1 (EAGAIN) when the receive timeout has passed. Behind the
    // last cycle the clock goes ahead by a day, so that a search of less than that ends.
    std::ptrdiff_t Receive(void* buffer, std::size_t size, std::uint32_t& sender);

    void CountProbe() { ++m_nProbes; }
    std::size_t Probes() const { return m_nProbes; }

    std::time_t Seconds() const { return kStart + m_nMicroseconds / 1'000'000; }
    std::int64_t Microseconds() const { return m_nMicroseconds; }
    void SleepUntil(std::int64_t microseconds);

private:
    void EndCycle();

    static constexpr std::time_t kStart = 1'700'000'000;

    std::vector<Datagram> m_vecDatagrams;
    std::size_t m_nNext = 0;
    int m_nLaterCycles;
    Later m_later;
    std::size_t m_nProbes = 0;
    std::int64_t m_nMicroseconds = 10'000'000;
};

}  // namespace FakeNetwork
