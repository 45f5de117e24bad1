// libupnp 1.8.4 names the interface of its search requests in four bytes, but says that they are
// eight. The kernel takes that for a request of another shape with no interface in it, and the
// search leaves by whatever route there is for multicast: only one interface is ever searched, or
// none. A program's own setsockopt comes before the C library's, so this one, which is the tool's
// alone, gives such a call the length that was meant and passes every other one on as it is.
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

extern "C" [[gnu::visibility("default")]] int setsockopt(int fd, int level, int name,
                                                         const void* value,
                                                         socklen_t length) noexcept {
    if (level == IPPROTO_IP && name == IP_MULTICAST_IF && length == sizeof(ip_mreq)) {
        ip_mreq request{};
        std::memcpy(&request, value, sizeof request);
        if (request.imr_interface.s_addr == INADDR_ANY) {
            length = sizeof(in_addr);
        }
    }
    return static_cast<int>(syscall(SYS_setsockopt, fd, level, name, value, length));
}
