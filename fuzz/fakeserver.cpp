#include "fuzz/fakeserver.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

namespace {

std::string_view g_answer;
std::vector<int> g_ends;

}  // namespace

namespace FakeServer {

void SetAnswer(std::string_view bytes) {
    CloseAll();
    g_answer = bytes;
}

std::size_t Connections() {
    return g_ends.size();
}

void CloseAll() {
    for (const int fd : g_ends) {
        close(fd);
    }
    g_ends.clear();
}

}  // namespace FakeServer

// Puts one end of a pair in the place of the caller's socket. The answer is there before the
// request; a client that sends first and reads then sees no difference.
extern "C" [[gnu::visibility("default")]] int connect(int fd, const sockaddr*, socklen_t) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        return -1;
    }
    const int flags = fcntl(fd, F_GETFL);
    dup2(ends[0], fd);
    close(ends[0]);
    fcntl(fd, F_SETFL, flags);
    // What exceeds the socket's buffer is lost, as with a server that gives up.
    if (send(ends[1], g_answer.data(), g_answer.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
        shutdown(ends[1], SHUT_RDWR);
    }
    shutdown(ends[1], SHUT_WR);
    g_ends.push_back(ends[1]);
    return 0;
}
