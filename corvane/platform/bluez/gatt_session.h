// What is done on one link: subscriptions and writes, in the order in which they were asked for, and the
// values that come.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/platform/bluez/bluez_platform.h"
#include "corvane/platform/bluez/bluez_service.h"
#include "corvane/platform/bluez/notify_socket.h"

namespace corvane::bluez {

/// Receives the values that it has subscribed to.
class ValueListener {
public:
    virtual void valueArrived(std::string_view characteristic, Bytes value) = 0;

protected:
    ~ValueListener() = default;
};

class GattSession : public std::enable_shared_from_this<GattSession> {
public:
    /// `diagnose` is told what is refused.
    using Diagnose = std::function<void(const char* call, const Reply& reply)>;

    GattSession(BlueZService& service, EventLoop& loop, BlueZNotifyPath notifyPath, Diagnose diagnose);
    GattSession(const GattSession&) = delete;
    GattSession& operator=(const GattSession&) = delete;
    ~GattSession();

    /// Values are let through from here on, not only from when BlueZ answers: some come before.
    void subscribe(const std::string& characteristic, const std::shared_ptr<ValueListener>& listener);
    void unsubscribe(const std::string& characteristic, const ValueListener& listener);
    void unsubscribe(const ValueListener& listener);
    /// Takes the listener's subscriptions back without a word to the device: its link ends.
    void forget(const ValueListener& listener);
    void write(const std::string& characteristic, Bytes value, CBCharacteristicWriteType type);

    // What the service signals.
    void valueSignalled(std::string_view characteristic, Bytes value);
    void notifyingChanged(std::string_view characteristic, bool notifying);

    /// Why the last operation was given up, in BlueZ's words; empty when one has succeeded since.
    const std::string& lastRefusal() const { return lastRefusal_; }

    /// The link is gone. Values that already wait on sockets are handed over before.
    void end();

private:
    struct Subscription {
        std::vector<std::weak_ptr<ValueListener>> listeners;
        std::shared_ptr<NotifySocket> socket;
        std::unique_ptr<Timer> fallBack;
        bool refused = false;  // To be asked for again by the next who wants it.
    };
    struct Operation {
        enum class Kind { acquireNotify, startNotify, stopNotify, write } kind;
        std::string characteristic;
        std::vector<std::uint8_t> value = {};
        CBCharacteristicWriteType type = CBCharacteristicWriteType::withResponse;
        unsigned refusals = 0;
    };

    static const char* methodOf(const Operation& operation);
    void enqueue(Operation operation);
    void performNext();
    void perform(const Operation& operation);
    void answered(const Reply& reply);
    void performInstead(Operation::Kind kind);
    void retryLater();
    void givenUp(const Reply& reply);
    void succeeded();
    void done();
    bool takeSocket(const Reply& reply);
    void socketHungUp(const std::string& characteristic);
    void closeSocket(Subscription& subscription);
    void closeAll();
    void deliver(std::string_view characteristic, Bytes value);
    Subscription* subscriptionOf(std::string_view characteristic);

    BlueZService& service_;
    EventLoop& loop_;
    const BlueZNotifyPath notifyPath_;
    const Diagnose diagnose_;
    std::map<std::string, Subscription, std::less<>> subscriptions_;
    // Notify sessions that BlueZ keeps for this process, with or without a link.
    std::set<std::string, std::less<>> started_;
    std::deque<Operation> operations_;
    Call call_;
    std::unique_ptr<Timer> retry_;
    std::string lastRefusal_;
    bool ended_ = false;
};

}  // namespace corvane::bluez
