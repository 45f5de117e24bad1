// What the command tells the service manager that started it, if one did.
#pragma once

#include <string>

namespace Lanscout {

class Service {
public:
    Service() = default;
    virtual ~Service() = default;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // The first search begins, or one with new options does.
    virtual void Ready() = 0;

    // The options are read again; Ready follows.
    virtual void Reloading() = 0;

    // To be called several times a minute.
    virtual void Alive() = 0;

    // "12 devices there", for systemctl status.
    virtual void Status(const std::string& text) = 0;
};

// sd_notify(3). Does nothing where no manager listens.
class SystemdService : public Service {
public:
    void Ready() override;
    void Reloading() override;
    void Alive() override;
    void Status(const std::string& text) override;
};

}  // namespace Lanscout
