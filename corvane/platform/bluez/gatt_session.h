// What is done on one link: subscriptions and writes, in the order in which they were asked for, and the
// values that come.
#pragma once

#include <chrono>
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
    /// Of each call; longer than the 30 seconds that a device has for its answer.
    static constexpr std::chrono::seconds callTimeout{35};

    /// The link that the session runs on. It must not end the session at once.
    class Owner {
    public:
        /// The service has refused a call, or has not answered it.
        virtual void callFailed(const char* call, const Reply& reply) = 0;
        /// A subscription was given up; no value will come of it.
        virtual void subscriptionFailed(std::string_view reason) = 0;
        /// The first value of the session has come.
        virtual void valuesFlow() = 0;

    protected:
        ~Owner() = default;
    };

    /// `owner` must outlive the session, or call `end` or `abandon` before.
    GattSession(BlueZService& service, EventLoop& loop, BlueZNotifyPath notifyPath, Owner& owner);
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

    /// Why the last operation was given up, in BlueZ's words; empty when one has succeeded since.
    const std::string& lastRefusal() const { return lastRefusal_; }

    /// The link is gone. Values that already wait on sockets are handed over before.
    void end();
    /// Nothing more is done or handed over; the owner goes.
    void abandon();

private:
    struct Subscription {
        std::vector<std::weak_ptr<ValueListener>> listeners;
        std::shared_ptr<NotifySocket> socket;
        std::unique_ptr<Timer> fallBack;
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
    bool mayBeTriedAgain(const Reply& reply);
    void useSignals();
    void retryLater();
    void startUnanswered(const std::string& reason);
    void givenUp(std::string reason);
    void succeeded();
    void done();
    bool takeSocket(const Reply& reply);
    void socketHungUp(const std::string& characteristic);
    void closeSocket(Subscription& subscription);
    void deliver(std::string_view characteristic, Bytes value);
    Subscription* subscriptionOf(std::string_view characteristic);

    BlueZService& service_;
    EventLoop& loop_;
    const BlueZNotifyPath notifyPath_;
    Owner& owner_;
    std::map<std::string, Subscription, std::less<>> subscriptions_;
    // Notify sessions that BlueZ keeps for this process, with or without a link.
    std::set<std::string, std::less<>> started_;
    std::deque<Operation> operations_;
    Call call_;
    std::unique_ptr<Timer> retry_;
    std::string lastRefusal_;
    bool valuesFlow_ = false;
    bool ended_ = false;
};

}  // namespace corvane::bluez
