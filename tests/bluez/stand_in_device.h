// One device of the stand-in: its object on the bus, its link, and its GATT objects.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/bluez/stand_in.h"

namespace corvane::bluez {

class StandInDevice final : public PeripheralHost, public std::enable_shared_from_this<StandInDevice> {
public:
    StandInDevice(StandIn& service, std::shared_ptr<PeripheralDevice> device, std::size_t number);

    const PeripheralDevice& device() const { return *device_; }
    const std::string& path() const { return path_; }
    bool isLinked() const { return linked_; }
    std::size_t notifySessions() const;

    void comeIntoReach();
    void leaveReach();
    /// Its advertisement, if it sends one and somebody listens.
    void advertise();
    void nameChanged();
    void loseSignalStrength();
    /// As when the service has started and remembers the device.
    void exportObject();
    void linkFromElsewhere();
    void forget();
    /// The link is gone, on both sides. The device is told from the loop.
    void loseLink();
    /// Nothing of a former life of the service is left.
    void serviceEnded();
    void clientLeft(const std::string& client);
    /// Another client subscribes to this characteristic for a second; nothing where it is none of the device.
    void notifyElsewhere(const std::string& path);

    /// A call to the device's object or to one below it; false if there is none.
    bool handle(const IncomingCall& call);

private:
    class SocketEnd;
    struct Characteristic {
        CBUUID uuid;
        unsigned properties = 0;
        std::set<std::string> sessions;  // Of StartNotify, by client.
        std::shared_ptr<SocketEnd> socket;
        bool acquiring = false;
        std::vector<std::vector<std::uint8_t>> early;
        bool subscribed = false;
        bool writing = false;
    };

    void notify(const CBUUID& characteristic, Bytes value) override;
    void after(std::chrono::nanoseconds delay, std::function<void()> task) override;
    void disconnect() override;

    /// Runs the task from the loop, unless the link has ended by then.
    void later(std::function<void()> task);
    void later(std::chrono::nanoseconds delay, std::function<void()> task);
    Properties describe() const;
    std::string advertisedName() const;

    void connect(const IncomingCall& call);
    void failAttempt(const Refusal& refusal);
    void linkStands();
    void resolve();
    void exportServices();
    void disconnectFrom(const IncomingCall& call);
    void endLink();

    void startNotify(const IncomingCall& call, const std::string& path);
    void stopNotify(const IncomingCall& call, const std::string& path);
    void acquireNotify(const IncomingCall& call, const std::string& path);
    void handOver(const IncomingCall& call, const std::string& path);
    void releaseSocket(const std::string& path);
    void write(const IncomingCall& call, const std::string& path);
    void updateSubscription(Characteristic& characteristic);
    void resumeSessions();

    StandIn& service_;
    const std::shared_ptr<PeripheralDevice> device_;
    const std::string address_;
    const std::string path_;
    bool inReach_ = false;
    bool linked_ = false;
    bool leaving_ = false;
    unsigned links_ = 0;
    std::unique_ptr<IncomingCall> attempt_;
    std::unique_ptr<Timer> attemptTimer_, disconnectTimer_;
    std::map<std::string, Characteristic> characteristics_;
    std::map<std::uint64_t, std::unique_ptr<Timer>> timers_;
    std::uint64_t timersMade_ = 0;
};

}  // namespace corvane::bluez
