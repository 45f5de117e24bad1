// A pcap file of what passed.
#pragma once

#include <pcap/pcap.h>

#include <memory>
#include <string>
#include <string_view>

namespace lansim {

// Writes Ethernet frames into a file that Wireshark opens.
class Capture {
public:
    // Throws SetupError when the file cannot be written.
    explicit Capture(const std::string& fileName);

    // Nothing more once a write has failed.
    void Write(std::string_view frame);
    // Throws SetupError when not all of it is in the file.
    void Finish();

private:
    struct Close {
        void operator()(pcap_t* handle) const { pcap_close(handle); }
        void operator()(pcap_dumper_t* dumper) const { pcap_dump_close(dumper); }
    };
    bool HasFailed() const;

    std::string m_fileName;
    std::unique_ptr<pcap_t, Close> m_handle;
    std::unique_ptr<pcap_dumper_t, Close> m_dumper;
};

}  // namespace lansim
