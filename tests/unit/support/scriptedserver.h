// An HTTP server on 127.0.0.1 that answers byte for byte as a test says.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

// One connection, while its script runs on the server's thread. It is closed when the script is
// over.
class ScriptedConnection {
public:
    explicit ScriptedConnection(int fd) : m_fd(fd) {}

    // False when the client has gone.
    bool Send(std::string_view bytes) const;

    // Sends the text over and over until the client goes.
    void SendForEver(std::string_view bytes) const;

    // Waits until the client closes; false when it has not done so after that time.
    bool WaitForClose(int milliseconds) const;

    // The connection ends with a reset instead of an orderly close.
    void ResetOnClose() const;

private:
    int m_fd;
};

class ScriptedServer {
public:
    // Runs once a connection, when the client's header is complete.
    using Script = std::function<void(const ScriptedConnection&)>;

    explicit ScriptedServer(Script script);
    explicit ScriptedServer(std::string answer);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    int Port() const { return m_port; }

    // What the connections so far have sent, one text each.
    std::vector<std::string> Requests() const;

private:
    void Serve();

    Script m_script;
    int m_listener;
    int m_port = 0;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_vecRequest;
    std::thread m_thread;  // last: it uses all the others
};
