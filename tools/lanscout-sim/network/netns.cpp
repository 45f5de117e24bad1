#include "tools/lanscout-sim/network/netns.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>

#include "tools/lanscout-sim/base/setuperror.h"

namespace lansim {
namespace {

constexpr const char* kNetnsFolder = "/run/netns";
constexpr const char* kOwnNamespace = "/proc/self/ns/net";

// As ip-netns(8) does it: a mount point whose propagation is shared, so that a namespace removed
// here disappears everywhere.
void PrepareNetnsFolder() {
    if (mkdir(kNetnsFolder, 0755) != 0 && errno != EEXIST) {
        FailWithErrno(fmt::format("cannot make {}", kNetnsFolder));
    }
    if (mount("", kNetnsFolder, "none", MS_SHARED | MS_REC, nullptr) == 0) {
        return;
    }
    if (errno != EINVAL || mount(kNetnsFolder, kNetnsFolder, "none", MS_BIND | MS_REC, nullptr) ||
        mount("", kNetnsFolder, "none", MS_SHARED | MS_REC, nullptr)) {
        FailWithErrno(
            fmt::format("cannot make {} a mount point for named namespaces", kNetnsFolder),
            "leave --netns out");
    }
}

}  // namespace

NetworkNamespace::NetworkNamespace(const std::string& name)
    : m_original(open(kOwnNamespace, O_RDONLY | O_CLOEXEC)) {
    if (!m_original.IsOpen()) {
        FailWithErrno(fmt::format("cannot open {}", kOwnNamespace));
    }
    if (!name.empty()) {
        m_path = fmt::format("{}/{}", kNetnsFolder, name);
    }
    if (!name.empty() && access(m_path.c_str(), F_OK) == 0) {
        throw SetupError(
            fmt::format("the network namespace {0} is there already; end who uses it "
                        "and run \"ip netns del {0}\", or take another name",
                        name));
    }
    if (unshare(CLONE_NEWNET) != 0) {
        FailWithErrno(
            "cannot make a network namespace",
            "it takes root (or CAP_SYS_ADMIN and CAP_NET_ADMIN); --mode loopback takes none");
    }
    if (!name.empty()) {
        MakeName();
    }
}

void NetworkNamespace::MakeName() try {
    PrepareNetnsFolder();
    const Descriptor point(open(m_path.c_str(), O_RDONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0));
    if (!point.IsOpen()) {
        FailWithErrno("cannot make " + m_path);
    }
    if (mount(kOwnNamespace, m_path.c_str(), "none", MS_BIND, nullptr) != 0) {
        const int reason = errno;
        unlink(m_path.c_str());
        errno = reason;
        FailWithErrno("cannot mount the namespace at " + m_path, "leave --netns out");
    }
} catch (const SetupError&) {
    setns(m_original.Get(), CLONE_NEWNET);
    throw;
}

NetworkNamespace::~NetworkNamespace() {
    setns(m_original.Get(), CLONE_NEWNET);
    if (!m_path.empty()) {
        umount2(m_path.c_str(), MNT_DETACH);
        unlink(m_path.c_str());
    }
}

}  // namespace lansim
