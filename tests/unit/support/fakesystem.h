// System calls and C library functions of the search, answered by the test. A test that links
// fake_system has each of them wrapped at the link; what it does not set goes to the real one.
#pragma once

#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>

#include <ctime>
#include <functional>

struct in_addr;

namespace FakeSystem {

struct Calls {
    std::function<int(int, int, int)> socket;
    std::function<int(int)> close;
    std::function<int(int, const sockaddr*, socklen_t)> bind;
    std::function<int(int, int, int, const void*, socklen_t)> setsockopt;
    std::function<ssize_t(int, const void*, size_t, int, const sockaddr*, socklen_t)> sendto;
    std::function<ssize_t(int, void*, size_t, int, sockaddr*, socklen_t*)> recvfrom;
    std::function<int(int, unsigned long, void*)> ioctl;
    std::function<int(const char*, in_addr*)> inetAton;
    std::function<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)> pthreadCreate;
    std::function<int(pthread_t, void**)> pthreadJoin;
    std::function<void(const char*, pthread_mutex_t*)> mutexSeen;  // "lock", "unlock", "destroy"
    std::function<time_t()> time;
    std::function<timeval()> gettimeofday;
    std::function<pid_t()> getpid;
    std::function<int()> rand;
    std::function<void(unsigned int)> srand;
    std::function<timespec(clockid_t)> clockGettime;
    std::function<int(clockid_t, int, const timespec*)> clockNanosleep;
};

// Set and clear them only while no other thread runs that uses them.
Calls& Current();

// Answers as set in Current() until the end of the scope; nothing is set at its beginning.
class Scope {
public:
    Scope() { Current() = Calls(); }
    ~Scope() { Current() = Calls(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
};

}  // namespace FakeSystem
