// One connection to an MQTT broker. What the broker sends is read here, so this is for a child
// process.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "finder/broker/brokersettings.h"

struct mosquitto;

namespace Lanscout {

// Called within Run.
class BrokerUser {
public:
    virtual ~BrokerUser() = default;

    virtual void OnConnected() = 0;

    // The broker has what was published under that number.
    virtual void OnPublished(int /*number*/) {}

    // The broker has answered the subscription of that number, with what it had kept for it before
    // or after this.
    virtual void OnSubscribed(int /*number*/, bool /*granted*/) {}

    virtual void OnMessage(std::string_view /*topic*/, std::string_view /*payload*/) {}
};

// What the broker is to say when the connection breaks.
struct LastWill {
    std::string topic;
    std::string payload;
};

// For one thread, and for one connection: who wants another one makes another object.
class BrokerConnection {
public:
    // From one sign of life to the next. A broker waits half as long again before it gives up.
    static constexpr std::chrono::seconds kKeepAlive{20};

    // A broker that says nothing for that long when it is greeted is none.
    static constexpr std::chrono::seconds kGreetingTime{15};

    BrokerConnection(const BrokerSettings& settings, const std::string& clientId,
                     const LastWill* will, BrokerUser& user);
    ~BrokerConnection();
    BrokerConnection(const BrokerConnection&) = delete;
    BrokerConnection& operator=(const BrokerConnection&) = delete;

    // Begins to connect; may take as long as a name and a TCP connection do. False, with a Reason,
    // when that failed.
    bool Open();

    // Waits for the broker, for `wakeFd` (negative: none) or for the time, and does what there is
    // to do. False, with a Reason, when the connection has ended.
    bool Run(int wakeFd, std::chrono::milliseconds time);

    // The broker has greeted.
    bool IsUp() const { return m_up; }

    // Number of the message, or 0 when it was not taken. QoS 1.
    int Publish(const std::string& topic, std::string_view payload, bool retain);

    // QoS 0: a broker drops kept messages of QoS 1 beyond its queue, and the transport loses none.
    int Subscribe(const std::string& pattern);

    // Says goodbye, so that the last will is not published.
    void Close();

    // Why it failed, in words for the user, and what to do about it.
    const std::string& Reason() const { return m_reason; }
    const std::string& Remedy() const { return m_remedy; }

private:
    struct Callbacks;
    struct Free {
        void operator()(mosquitto* client) const;
    };

    bool SetUp();
    bool SetUpTls();
    bool Fail(int error);
    bool IsGreetingOverdue();
    void Say(std::string reason, std::string remedy);

    const BrokerSettings m_settings;
    BrokerUser& m_user;  // NOLINT: lives longer
    LastWill m_will;
    std::unique_ptr<mosquitto, Free> m_client;
    std::chrono::steady_clock::time_point m_opened;
    bool m_up = false;
    std::string m_tlsError;
    std::string m_reason;
    std::string m_remedy;
};

}  // namespace Lanscout
