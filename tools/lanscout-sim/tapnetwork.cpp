#include "tools/lanscout-sim/tapnetwork.h"

#include <array>
#include <cerrno>

namespace lansim {
namespace {

constexpr std::size_t kLargestFrame = 65536;
// How many frames are read before due replies have their turn.
constexpr int kFramesAtOnce = 256;

template <typename... Ts>
struct Overloaded : Ts... {
    using Ts::operator()...;
};

}  // namespace

TapNetwork::TapNetwork(const std::string& device, const Subnet& searcher,
                       const std::vector<Camera>& cameras, Capture* capture)
    : m_tap(MakeTap(device, searcher)), m_capture(capture) {
    for (const auto& camera : cameras) {
        const bool answers = !camera.Does(Misbehaviour::NoArp);
        m_devices[camera.ip] = {
            camera.mac, answers, answers && !camera.Does(Misbehaviour::QuietArp), {}};
    }
    m_peers[searcher.address] = m_tap.mac;
}

void TapNetwork::Receive(const DatagramHandler& handler) {
    static thread_local std::array<char, kLargestFrame> buffer;
    for (int i = 0; i < kFramesAtOnce; ++i) {
        const ssize_t size = read(m_tap.frames.Get(), buffer.data(), buffer.size());
        if (size <= 0)
            return;
        Handle({buffer.data(), static_cast<std::size_t>(size)}, handler);
    }
}

void TapNetwork::Handle(std::string_view frame, const DatagramHandler& handler) {
    ++m_counts.framesHeard;
    if (m_capture != nullptr)
        m_capture->Write(frame);
    std::visit(Overloaded{[](std::monostate) {}, [&](const ArpRequest& heard) { Handle(heard); },
                          [&](const EchoRequest& heard) { Handle(heard); },
                          [&](const UdpFrame& heard) { Handle(heard, handler); }},
               ReadFrame(frame));
}

void TapNetwork::Handle(const ArpRequest& request) {
    ++m_counts.arpRequestsHeard;
    const auto found = m_devices.find(request.target);
    if (found == m_devices.end() || !found->second.answersArp)
        return;
    const Host device{request.target, found->second.mac};
    if (Write(ArpReplyFrame(device, {request.senderIp, request.senderMac})) == SendResult::Sent)
        ++m_counts.arpRepliesSent;
}

void TapNetwork::Handle(const EchoRequest& request) {
    const auto found = m_devices.find(request.to);
    if (found == m_devices.end())
        return;
    if (Write(EchoReplyFrame({request.to, found->second.mac}, request)) == SendResult::Sent)
        ++m_counts.echoRepliesSent;
}

void TapNetwork::Handle(const UdpFrame& frame, const DatagramHandler& handler) {
    if (frame.datagram.to.port != kDiscoveryPort)
        return;
    m_peers[frame.datagram.from.ip] = frame.fromMac;
    handler(frame.datagram);
}

SendResult TapNetwork::Send(const Datagram& datagram) {
    const auto device = m_devices.find(datagram.from.ip);
    const auto peer = m_peers.find(datagram.to.ip);
    if (device == m_devices.end() || peer == m_peers.end())
        return SendResult::Failed;
    if (const auto asked = AskForMac(device->second, datagram.from.ip, datagram.to.ip);
        asked != SendResult::Sent)
        return asked;
    for (const auto& frame : UdpFrames(device->second.mac, peer->second, datagram, m_nextIpId++)) {
        if (const auto sent = Write(frame); sent != SendResult::Sent)
            return sent;
    }
    return SendResult::Sent;
}

// A host asks who has the address before it sends to it the first time. The question also makes
// the searcher's kernel learn the device's own MAC, which is why real cameras are found with
// theirs. The reply follows at once: the frame that carried the Probe told the answer.
SendResult TapNetwork::AskForMac(Device& device, Ipv4 own, Ipv4 peer) {
    if (!device.asksArp || device.asked.contains(peer))
        return SendResult::Sent;
    const auto sent = Write(ArpRequestFrame({own, device.mac}, peer));
    if (sent == SendResult::Sent) {
        ++m_counts.arpRequestsSent;
        device.asked.insert(peer);
    }
    return sent;
}

SendResult TapNetwork::Write(std::string_view frame) {
    const ssize_t size = write(m_tap.frames.Get(), frame.data(), frame.size());
    if (size < 0)
        return errno == EAGAIN || errno == ENOBUFS || errno == EINTR ? SendResult::TryAgain
                                                                     : SendResult::Failed;
    ++m_counts.framesSent;
    if (m_capture != nullptr)
        m_capture->Write(frame);
    return SendResult::Sent;
}

}  // namespace lansim
