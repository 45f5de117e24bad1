#include "finder/broker/brokerconnection.h"

#include <fmt/core.h>
#include <mosquitto.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kAtLeastOnce = 1;  // QoS of what is published
constexpr int kAtMostOnce = 0;   // and of what is subscribed to

// The library looks at its keep-alive once a second only when it is called so often.
constexpr milliseconds kLongestWait{500};

void InitLibrary() {
    static std::once_flag once;
    std::call_once(once, [] { mosquitto_lib_init(); });
}

const char* OrNull(const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
}

// A key with a passphrase: nobody is there to be asked for it.
int NoPassphrase(char* /*buffer*/, int /*size*/, int /*forWriting*/, void* /*data*/) {
    return 0;
}

constexpr int kWrongPassword = 4;  // MQTT 3.1.1, 3.2.2.3
constexpr int kNotAuthorised = 5;

}  // namespace

// What the library calls within its loop. Nothing may be thrown through its C code.
struct BrokerConnection::Callbacks {
    static BrokerConnection& Of(void* data) { return *static_cast<BrokerConnection*>(data); }

    template <typename Call>
    static void Guard(BrokerConnection& self, Call call) noexcept {
        try {
            call();
        } catch (const std::exception& failure) {
            self.Say(failure.what(), "");
            mosquitto_disconnect(self.m_client.get());
        }
    }

    static void Connected(mosquitto* /*client*/, void* data, int code) {
        BrokerConnection& self = Of(data);
        Guard(self, [&] {
            if (code == 0) {
                self.m_up = true;
                self.m_user.OnConnected();
            } else if (code == kWrongPassword || code == kNotAuthorised) {
                self.Say(fmt::format("{} refuses the user name or the password",
                                     BrokerText(self.m_settings)),
                         "See the file of --mqtt-credentials");
            } else {
                self.Say(fmt::format("{} refuses the connection: {}", BrokerText(self.m_settings),
                                     mosquitto_connack_string(code)),
                         "");
            }
        });
    }

    static void Published(mosquitto* /*client*/, void* data, int number) {
        Guard(Of(data), [&] { Of(data).m_user.OnPublished(number); });
    }

    static void Subscribed(mosquitto* /*client*/, void* data, int number, int count,
                           const int* granted) {
        constexpr int kRefused = 0x80;
        const bool ok = count == 1 && granted[0] < kRefused;
        Guard(Of(data), [&] { Of(data).m_user.OnSubscribed(number, ok); });
    }

    static void Message(mosquitto* /*client*/, void* data, const mosquitto_message* message) {
        if (message->topic == nullptr || message->payloadlen < 0) {
            return;
        }
        const std::string_view payload(static_cast<const char*>(message->payload),
                                       static_cast<std::size_t>(message->payloadlen));
        Guard(Of(data), [&] { Of(data).m_user.OnMessage(message->topic, payload); });
    }

    // The reason of a failed TLS handshake comes as a line of the log only. The last part of
    // OpenSSL's "error:0A000086:SSL routines::certificate verify failed" says it.
    static void Log(mosquitto* /*client*/, void* data, int /*level*/, const char* text) {
        const std::string_view line = text;
        constexpr std::string_view kOpenSsl = "OpenSSL Error";
        if (line.starts_with(kOpenSsl)) {
            Guard(Of(data),
                  [&] { Of(data).m_tlsError = ToKeptText(line.substr(line.rfind(':') + 1)); });
        }
    }
};

void BrokerConnection::Free::operator()(mosquitto* client) const {
    mosquitto_destroy(client);
}

BrokerConnection::BrokerConnection(const BrokerSettings& settings, const std::string& clientId,
                                   const LastWill* will, BrokerUser& user)
    : m_settings(settings), m_user(user), m_will(will == nullptr ? LastWill{} : *will) {
    InitLibrary();
    m_client.reset(mosquitto_new(OrNull(clientId), true, this));
    if (!m_client) {
        throw std::runtime_error(fmt::format("no MQTT client: {}", std::strerror(errno)));
    }
}

BrokerConnection::~BrokerConnection() = default;

void BrokerConnection::Say(std::string reason, std::string remedy) {
    if (m_reason.empty()) {
        m_reason = std::move(reason);
        m_remedy = std::move(remedy);
    }
}

bool BrokerConnection::Fail(int error) {
    const int number = errno;
    m_up = false;
    const std::string broker = BrokerText(m_settings);
    if (error == MOSQ_ERR_TLS || !m_tlsError.empty()) {
        Say(fmt::format("no TLS connection to {}{}{}", broker, m_tlsError.empty() ? "" : ": ",
                        m_tlsError),
            "See --mqtt-cafile, and that the certificate is for this very host name");
    } else if (error == MOSQ_ERR_PROTOCOL || error == MOSQ_ERR_MALFORMED_PACKET) {
        Say(fmt::format("{} answers something that is not MQTT", broker),
            "See whether a broker listens at that port, and whether it wants TLS (mqtts://)");
    } else if (error == MOSQ_ERR_ERRNO) {
        Say(fmt::format("no connection to {}: {}", broker, std::strerror(number)), "");
    } else if (error == MOSQ_ERR_EAI) {
        Say(fmt::format("nobody knows the address of {}", m_settings.host), "");
    } else if (error == MOSQ_ERR_KEEPALIVE) {
        Say(fmt::format("{} has gone silent", broker), "");
    } else if (error == MOSQ_ERR_CONN_LOST || error == MOSQ_ERR_NO_CONN) {
        Say(fmt::format("{} has closed the connection", broker), "");
    } else {
        Say(fmt::format("no connection to {}: {}", broker, mosquitto_strerror(error)), "");
    }
    return false;
}

bool BrokerConnection::SetUpTls() {
    mosquitto* const client = m_client.get();
    if (!m_settings.tls) {
        return true;
    }
    // Without a file of its own the system's; the library wants one of both to be named.
    const char* const systems = m_settings.caFile.empty() ? "/etc/ssl/certs" : nullptr;
    const int error =
        mosquitto_tls_set(client, OrNull(m_settings.caFile), systems, OrNull(m_settings.certFile),
                          OrNull(m_settings.keyFile), &NoPassphrase);
    return error == MOSQ_ERR_SUCCESS || Fail(error);
}

bool BrokerConnection::SetUp() {
    mosquitto* const client = m_client.get();
    mosquitto_connect_callback_set(client, &Callbacks::Connected);
    mosquitto_publish_callback_set(client, &Callbacks::Published);
    mosquitto_subscribe_callback_set(client, &Callbacks::Subscribed);
    mosquitto_message_callback_set(client, &Callbacks::Message);
    mosquitto_log_callback_set(client, &Callbacks::Log);
    mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
    int error = MOSQ_ERR_SUCCESS;
    if (!m_settings.user.empty()) {
        error =
            mosquitto_username_pw_set(client, m_settings.user.c_str(), m_settings.password.c_str());
    }
    if (error == MOSQ_ERR_SUCCESS && !m_will.topic.empty()) {
        error = mosquitto_will_set(client, m_will.topic.c_str(),
                                   static_cast<int>(m_will.payload.size()), m_will.payload.data(),
                                   kAtLeastOnce, true);
    }
    return error == MOSQ_ERR_SUCCESS ? SetUpTls() : Fail(error);
}

bool BrokerConnection::Open() {
    if (!SetUp()) {
        return false;
    }
    const int error = mosquitto_connect(m_client.get(), m_settings.host.c_str(), m_settings.port,
                                        static_cast<int>(kKeepAlive.count()));
    m_opened = Clock::now();
    return error == MOSQ_ERR_SUCCESS || Fail(error);
}

bool BrokerConnection::IsGreetingOverdue() {
    if (m_up || Clock::now() - m_opened < kGreetingTime) {
        return false;
    }
    Say(fmt::format("{} does not answer", BrokerText(m_settings)),
        "See whether a broker listens at that port, and whether it wants TLS (mqtts://)");
    return true;
}

bool BrokerConnection::Run(int wakeFd, std::chrono::milliseconds time) {
    mosquitto* const client = m_client.get();
    const auto toWrite = static_cast<short>(mosquitto_want_write(client) ? POLLOUT : 0);
    const int fd = mosquitto_socket(client);
    std::array<pollfd, 2> entries{
        {{fd, static_cast<short>(POLLIN | toWrite), 0}, {wakeFd, POLLIN, 0}}};
    poll(entries.data(), entries.size(), static_cast<int>(std::min(time, kLongestWait).count()));
    int error = fd < 0 ? MOSQ_ERR_CONN_LOST : MOSQ_ERR_SUCCESS;
    if (error == MOSQ_ERR_SUCCESS && (entries[0].revents & POLLOUT) != 0) {
        error = mosquitto_loop_write(client, 1);
    }
    if (error == MOSQ_ERR_SUCCESS && (entries[0].revents & (POLLIN | POLLERR | POLLHUP)) != 0) {
        error = mosquitto_loop_read(client, 1);
    }
    if (error == MOSQ_ERR_SUCCESS) {
        error = mosquitto_loop_misc(client);
    }
    if (error != MOSQ_ERR_SUCCESS) {
        return Fail(error);
    }
    return m_reason.empty() && !IsGreetingOverdue();
}

int BrokerConnection::Publish(const std::string& topic, std::string_view payload, bool retain) {
    int number = 0;
    const int error =
        mosquitto_publish(m_client.get(), &number, topic.c_str(), static_cast<int>(payload.size()),
                          payload.data(), kAtLeastOnce, retain);
    return error == MOSQ_ERR_SUCCESS ? number : 0;
}

int BrokerConnection::Subscribe(const std::string& pattern) {
    int number = 0;
    const int error = mosquitto_subscribe(m_client.get(), &number, pattern.c_str(), kAtMostOnce);
    return error == MOSQ_ERR_SUCCESS ? number : 0;
}

void BrokerConnection::Close() {
    mosquitto_disconnect(m_client.get());
}

}  // namespace Lanscout
