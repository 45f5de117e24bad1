#include "tests/unit/support/fakesystem.h"

#include <cstdarg>

using FakeSystem::Current;

FakeSystem::Calls& FakeSystem::Current() {
    static Calls calls;
    return calls;
}

namespace {

template <typename Fake, typename Real, typename... Arguments>
auto Answer(const Fake& fake, Real real, Arguments... arguments) {
    return fake ? fake(arguments...) : real(arguments...);
}

void Seen(const char* what, pthread_mutex_t* mutex) {
    if (Current().mutexSeen) {
        Current().mutexSeen(what, mutex);
    }
}

}  // namespace

extern "C" {

int __real_socket(int, int, int);
int __real_close(int);
int __real_bind(int, const sockaddr*, socklen_t);
int __real_setsockopt(int, int, int, const void*, socklen_t);
ssize_t __real_sendto(int, const void*, size_t, int, const sockaddr*, socklen_t);
ssize_t __real_recvfrom(int, void*, size_t, int, sockaddr*, socklen_t*);
int __real_ioctl(int, unsigned long, ...);
int __real_inet_aton(const char*, in_addr*);
int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __real_pthread_join(pthread_t, void**);
int __real_pthread_mutex_lock(pthread_mutex_t*);
int __real_pthread_mutex_unlock(pthread_mutex_t*);
int __real_pthread_mutex_destroy(pthread_mutex_t*);
time_t __real_time(time_t*);
int __real_gettimeofday(timeval*, void*);
pid_t __real_getpid();
int __real_rand();
void __real_srand(unsigned int);
int __real_clock_gettime(clockid_t, timespec*);
int __real_clock_nanosleep(clockid_t, int, const timespec*, timespec*);

int __wrap_socket(int domain, int type, int protocol) {
    return Answer(Current().socket, __real_socket, domain, type, protocol);
}

int __wrap_close(int fd) {
    return Answer(Current().close, __real_close, fd);
}

int __wrap_bind(int fd, const sockaddr* address, socklen_t length) {
    return Answer(Current().bind, __real_bind, fd, address, length);
}

int __wrap_setsockopt(int fd, int level, int name, const void* value, socklen_t length) {
    return Answer(Current().setsockopt, __real_setsockopt, fd, level, name, value, length);
}

ssize_t __wrap_sendto(int fd, const void* data, size_t size, int flags, const sockaddr* address,
                      socklen_t length) {
    return Answer(Current().sendto, __real_sendto, fd, data, size, flags, address, length);
}

ssize_t __wrap_recvfrom(int fd, void* data, size_t size, int flags, sockaddr* address,
                        socklen_t* length) {
    return Answer(Current().recvfrom, __real_recvfrom, fd, data, size, flags, address, length);
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return Current().ioctl ? Current().ioctl(fd, request, argument)
                           : __real_ioctl(fd, request, argument);
}

int __wrap_inet_aton(const char* text, in_addr* address) {
    return Answer(Current().inetAton, __real_inet_aton, text, address);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*function)(void*), void* argument) {
    return Answer(Current().pthreadCreate, __real_pthread_create, thread, attributes, function,
                  argument);
}

int __wrap_pthread_join(pthread_t thread, void** result) {
    return Answer(Current().pthreadJoin, __real_pthread_join, thread, result);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    Seen("lock", mutex);
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    Seen("unlock", mutex);
    return __real_pthread_mutex_unlock(mutex);
}

int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
    Seen("destroy", mutex);
    return __real_pthread_mutex_destroy(mutex);
}

time_t __wrap_time(time_t* result) {
    if (!Current().time) {
        return __real_time(result);
    }
    const time_t now = Current().time();
    if (result != nullptr) {
        *result = now;
    }
    return now;
}

int __wrap_gettimeofday(timeval* result, void* zone) {
    if (!Current().gettimeofday) {
        return __real_gettimeofday(result, zone);
    }
    *result = Current().gettimeofday();
    return 0;
}

pid_t __wrap_getpid() {
    return Answer(Current().getpid, __real_getpid);
}

int __wrap_rand() {
    return Answer(Current().rand, __real_rand);
}

void __wrap_srand(unsigned int seed) {
    Answer(Current().srand, __real_srand, seed);
}

int __wrap_clock_gettime(clockid_t clock, timespec* result) {
    if (!Current().clockGettime) {
        return __real_clock_gettime(clock, result);
    }
    *result = Current().clockGettime(clock);
    return 0;
}

int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* until, timespec* left) {
    if (!Current().clockNanosleep) {
        return __real_clock_nanosleep(clock, flags, until, left);
    }
    return Current().clockNanosleep(clock, flags, until);
}

}  // extern "C"
