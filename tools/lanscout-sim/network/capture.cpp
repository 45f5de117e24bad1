#include "tools/lanscout-sim/network/capture.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/time.h>

#include "tools/lanscout-sim/base/setuperror.h"

namespace lansim {

constexpr int kSnapLength = 65535;

Capture::Capture(const std::string& fileName)
    : m_fileName(fileName),
      m_handle(pcap_open_dead(DLT_EN10MB, kSnapLength)),
      m_dumper(pcap_dump_open(m_handle.get(), fileName.c_str())) {
    if (!m_dumper) {
        throw SetupError(fmt::format("cannot write the capture: {}", pcap_geterr(m_handle.get())));
    }
    // The command that runs inside shall not inherit it.
    fcntl(fileno(pcap_dump_file(m_dumper.get())), F_SETFD, FD_CLOEXEC);
}

void Capture::Write(std::string_view frame) {
    if (HasFailed()) {
        return;
    }
    pcap_pkthdr header{};
    gettimeofday(&header.ts, nullptr);
    header.len = static_cast<bpf_u_int32>(frame.size());
    header.caplen = header.len;
    pcap_dump(reinterpret_cast<u_char*>(m_dumper.get()), &header,
              reinterpret_cast<const u_char*>(frame.data()));
}

bool Capture::HasFailed() const {
    return ferror(pcap_dump_file(m_dumper.get())) != 0;
}

void Capture::Finish() {
    if (pcap_dump_flush(m_dumper.get()) != 0 || HasFailed()) {
        FailWithErrno("cannot write all of the capture to " + m_fileName);
    }
}

}  // namespace lansim
