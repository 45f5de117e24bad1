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

void WriteText(const std::string& path, const std::string& text) {
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (write(file.Get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        FailWithErrno("cannot write " + path);
    }
}

// Who is root in the user namespace has all rights in the network namespaces made there. What it
// starts keeps them only as root; otherwise it is the same user as outside.
void EnterUserNamespace(bool asRoot) {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (unshare(CLONE_NEWUSER) != 0) {
        FailWithErrno("cannot make a user namespace", "--mode loopback needs none");
    }
    WriteText("/proc/self/setgroups", "deny");
    WriteText("/proc/self/uid_map", fmt::format("{} {} 1", asRoot ? 0 : user, user));
    WriteText("/proc/self/gid_map", fmt::format("{} {} 1", asRoot ? 0 : group, group));
}

}  // namespace

NetworkNamespace::NetworkNamespace(const std::string& name, Privilege privilege)
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
    if (privilege != Privilege::OfMachine) {
        if (!name.empty()) {
            throw SetupError("a namespace with a name takes root; leave --netns out");
        }
        EnterUserNamespace(privilege == Privilege::OfUserAsRoot);
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
