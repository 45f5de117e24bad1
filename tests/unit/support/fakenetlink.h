// A kernel that answers netlink requests as a test says. A test that links fake_netlink has
// libmnl's socket calls wrapped at the link.
#pragma once

#include <libmnl/libmnl.h>

#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace FakeNetlink {

// One netlink message, built attribute by attribute.
class Built {
public:
    explicit Built(int type, int flags = 0);

    // Room for the message's own header, behind what was put before.
    void* Extra(std::size_t bytes);
    Built& With(int attribute, const std::string& bytes);

    // The number of the last request, as the kernel puts it into its answer.
    Built& Answering();

    std::string Bytes() const;

private:
    alignas(nlmsghdr) char m_buffer[4096] = "";
    nlmsghdr* m_message;
};

struct Kernel {
    std::deque<std::string> datagrams;  // an empty one stands for an error ...
    std::deque<int> errors;             // ... of these, in order
    std::vector<std::string> requests;
    std::function<void()> onRequest;  // may add datagrams
    int openError = 0;
    int bindError = 0;
    int sendError = 0;
    unsigned int groups = 0;
    int open = 0;  // sockets

    void Fails(int error) {
        datagrams.emplace_back();
        errors.push_back(error);
    }
    void Done(int flags = 0);
    void Refuses(int error);
};

Kernel& Current();

// A kernel that knows nothing, until the end of the scope.
class Scope {
public:
    Scope() { Current() = Kernel(); }
    ~Scope() { Current() = Kernel(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
};

}  // namespace FakeNetlink
