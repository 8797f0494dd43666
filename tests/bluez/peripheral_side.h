// The other half of org.bluez: where devices on the air register. It reads their objects as bluetoothd does,
// and plays the central that has found the device.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/bluez/stand_in.h"

namespace corvane::bluez {

class PeripheralSide final : public StandInPart {
public:
    explicit PeripheralSide(StandIn& service);
    ~PeripheralSide() override;

    struct Characteristic {
        std::string service;  // UUIDs in capital letters, as they were read.
        std::string uuid;
        std::vector<std::string> flags;
    };
    /// By path; `handles` has them in the order in which they get their handles.
    std::map<std::string, Characteristic> characteristics;
    std::vector<std::string> handles;
    /// The advertised name; empty while nothing is advertised.
    std::string advertised;
    std::vector<std::string> advertisedServices;
    /// What was notified, by the characteristic's UUID, in order: "1:0102".
    std::vector<std::string> values;

    /// Called when the advertisement is on the air, before the device knows; may be absent.
    std::function<void()> whenAdvertised;

    bool isOnTheAir() const { return !application_.empty() && !advertised.empty(); }
    /// The bus name of who has registered.
    const std::string& client() const { return client_; }
    bool isEmpty() const { return application_.empty() && advertised.empty(); }
    /// The path of the characteristic; empty if there is none.
    std::string find(const CBUUID& characteristic) const;

    /// A central at this place of the address space is there, or is not there any more.
    void link(int place = 1) { setConnected(place, true); }
    void unlink(int place = 1) { setConnected(place, false); }
    /// A call of the service to the device; the handler gets the answer.
    void call(const std::string& path, const char* member, const std::function<void(Message&)>& append = {},
              Bus::ReplyHandler answered = {});
    void releaseAdvertisement();

private:
    bool handle(const IncomingCall& call) override;
    void serviceStarted() override;
    void serviceEnded() override;
    void clientLeft(const std::string& client) override;

    void registerApplication(const IncomingCall& call);
    void registerAdvertisement(const IncomingCall& call);
    void unregister(const IncomingCall& call);
    void forgetApplication();
    void setConnected(int place, bool connected);
    bool readObjects(sd_bus_message* reply);
    void valueChanged(sd_bus_message* signal);
    void send(const std::string& path, const char* interface, const char* member,
              const std::function<void(Message&)>& append, Bus::ReplyHandler answered);

    StandIn& service_;
    std::string client_, application_, advertisement_;  // Who has registered, and which paths.
    Slot values_;
    std::vector<Slot> asked_;
};

}  // namespace corvane::bluez
