#include "corvane/platform/bluez/gatt_session.h"

#include <fcntl.h>

#include <algorithm>

#include "corvane/platform/bluez/bluez_names.h"
#include "corvane/platform/bluez/retry_delay.h"

namespace corvane::bluez {
namespace {

constexpr unsigned mostRefusals = 10;
// What bluetoothd says where a socket for the characteristic is still held.
constexpr std::string_view textNotifyAcquired = "Notify acquired";
// A link that is lost hangs up before it is said to be gone, or after.
constexpr auto hangUpGrace = std::chrono::seconds(1);
// Values on a socket whose link has ended; a bound for the case that somebody keeps sending.
constexpr int mostWaiting = 4096;

bool isListener(const std::weak_ptr<ValueListener>& entry, const ValueListener& listener) {
    return entry.lock().get() == &listener;
}

}  // namespace

const char* GattSession::methodOf(const Operation& operation) {
    constexpr const char* methods[] = {"AcquireNotify", "StartNotify", "StopNotify", "WriteValue"};
    return methods[static_cast<std::size_t>(operation.kind)];
}

GattSession::GattSession(BlueZService& service, EventLoop& loop, BlueZNotifyPath notifyPath, Owner& owner)
    : service_(service), loop_(loop), notifyPath_(notifyPath), owner_(owner) {}

void GattSession::subscribe(const std::string& characteristic,
                            const std::shared_ptr<ValueListener>& listener) {
    const auto [subscription, isNew] = subscriptions_.try_emplace(characteristic);
    auto& listeners = subscription->second.listeners;
    if (std::none_of(listeners.begin(), listeners.end(),
                     [&](const auto& entry) { return isListener(entry, *listener); }))
        listeners.push_back(listener);
    if (!isNew) return;
    const bool bySocket = notifyPath_ == BlueZNotifyPath::socket && service_.canPassDescriptors();
    enqueue({.kind = bySocket ? Operation::Kind::acquireNotify : Operation::Kind::startNotify,
             .characteristic = characteristic});
}

void GattSession::unsubscribe(const std::string& characteristic, const ValueListener& listener) {
    const auto found = subscriptions_.find(characteristic);
    if (found == subscriptions_.end()) return;
    std::erase_if(found->second.listeners, [&](const auto& entry) { return isListener(entry, listener); });
    if (!found->second.listeners.empty()) return;
    closeSocket(found->second);
    subscriptions_.erase(found);
    enqueue({.kind = Operation::Kind::stopNotify, .characteristic = characteristic});
}

void GattSession::unsubscribe(const ValueListener& listener) {
    std::vector<std::string> characteristics;
    for (const auto& [characteristic, subscription] : subscriptions_)
        characteristics.push_back(characteristic);
    for (const std::string& characteristic : characteristics) unsubscribe(characteristic, listener);
}

void GattSession::forget(const ValueListener& listener) {
    for (auto& [characteristic, subscription] : subscriptions_)
        std::erase_if(subscription.listeners, [&](const auto& entry) { return isListener(entry, listener); });
}

void GattSession::write(const std::string& characteristic, Bytes value, CBCharacteristicWriteType type) {
    enqueue({.kind = Operation::Kind::write,
             .characteristic = characteristic,
             .value = {value.begin(), value.end()},
             .type = type});
}

// One call at a time. BlueZ refuses a second one for the same characteristic, and lets a write without
// response overtake a subscription whose answer the device would then not send.
void GattSession::enqueue(Operation operation) {
    if (ended_) return;
    operations_.push_back(std::move(operation));
    performNext();
}

void GattSession::performNext() {
    while (!call_ && !retry_ && !operations_.empty()) {
        perform(operations_.front());
        // It could not even be sent, or there was nothing to do.
        if (!call_) operations_.pop_front();
    }
}

void GattSession::perform(const Operation& operation) {
    using Kind = Operation::Kind;
    const bool starts = operation.kind == Kind::acquireNotify || operation.kind == Kind::startNotify;
    if (starts && !subscriptionOf(operation.characteristic)) return;
    if (operation.kind == Kind::startNotify) started_.insert(operation.characteristic);
    if (operation.kind == Kind::stopNotify && !started_.erase(operation.characteristic)) return;

    Message message =
        service_.newCall(operation.characteristic, characteristicInterface, methodOf(operation));
    if (operation.kind == Kind::acquireNotify) message.appendOptions();
    if (operation.kind == Kind::write) {
        const bool response = operation.type == CBCharacteristicWriteType::withResponse;
        message.appendBytes(operation.value.data(), operation.value.size());
        message.appendOptions("type", response ? "request" : "command");
    }
    call_ = service_.call(
        message, [this](const Reply& reply) { answered(reply); }, callTimeout);
}

void GattSession::answered(const Reply& reply) {
    using Kind = Operation::Kind;
    const auto self = shared_from_this();
    const Kind kind = operations_.front().kind;
    if (reply.failed()) owner_.callFailed(methodOf(operations_.front()), reply);
    // What the owner does about it may have ended the session.
    if (ended_) return;
    // Somebody else may be subscribed already, or the device indicates: signals serve both.
    if (kind == Kind::acquireNotify && reply.failed()) return useSignals();
    if (kind == Kind::acquireNotify && !takeSocket(reply)) {
        // While the reply lives, bluetoothd still counts its socket as acquired.
        operations_.front().kind = Kind::startNotify;
        return retryLater();
    }
    if (!reply.failed()) return succeeded();
    if (mayBeTriedAgain(reply)) return retryLater();
    const std::string reason(reply.errorText());
    if (kind == Kind::startNotify && reply.is(SD_BUS_ERROR_NO_REPLY)) return startUnanswered(reason);
    givenUp(reason);
}

bool GattSession::mayBeTriedAgain(const Reply& reply) {
    const bool isBusy = reply.is(errorInProgress) || reply.errorText() == textNotifyAcquired;
    return isBusy && ++operations_.front().refusals <= mostRefusals;
}

void GattSession::useSignals() {
    operations_.front().kind = Operation::Kind::startNotify;
    call_.reset();
    performNext();
}

void GattSession::retryLater() {
    call_.reset();
    retry_ = loop_.after(retryDelay(operations_.front().refusals, std::chrono::seconds(1)), [this] {
        retry_.reset();
        performNext();
    });
}

void GattSession::startUnanswered(const std::string& reason) {
    call_ = service_.readFlag(operations_.front().characteristic, characteristicInterface, "Notifying",
                              [this, reason](std::optional<bool> notifying) {
                                  const auto self = shared_from_this();
                                  notifying.value_or(false) ? succeeded() : givenUp(reason);
                              });
}

void GattSession::givenUp(std::string reason) {
    const bool subscribes = operations_.front().kind == Operation::Kind::startNotify;
    lastRefusal_ = std::move(reason);
    if (subscribes) owner_.subscriptionFailed(lastRefusal_);
    if (!ended_) done();
}

void GattSession::succeeded() {
    lastRefusal_.clear();
    done();
}

void GattSession::done() {
    call_.reset();
    operations_.pop_front();
    performNext();
}

// False where there is none in the reply, or it is of no use.
bool GattSession::takeSocket(const Reply& reply) {
    const std::string characteristic = operations_.front().characteristic;
    Subscription* subscription = subscriptionOf(characteristic);
    int borrowed = -1;
    if (!subscription || reply.failed() || sd_bus_message_read_basic(reply.message(), 'h', &borrowed) <= 0)
        return false;
    subscription->socket = NotifySocket::make(
        Descriptor(::fcntl(borrowed, F_DUPFD_CLOEXEC, 3)),
        [this, characteristic](Bytes value) { deliver(characteristic, value); },
        [this, characteristic] { socketHungUp(characteristic); });
    if (!subscription->socket) return false;
    loop_.attach(subscription->socket);
    return true;
}

void GattSession::socketHungUp(const std::string& characteristic) {
    Subscription* subscription = subscriptionOf(characteristic);
    if (!subscription) return;
    closeSocket(*subscription);
    subscription->fallBack = loop_.after(hangUpGrace, [this, characteristic] {
        enqueue({.kind = Operation::Kind::startNotify, .characteristic = characteristic});
    });
}

void GattSession::closeSocket(Subscription& subscription) {
    const auto socket = std::exchange(subscription.socket, nullptr);
    if (!socket) return;
    socket->close();
    loop_.detach(*socket);
}

void GattSession::valueSignalled(std::string_view characteristic, Bytes value) {
    // On a socket's way, signals tell only of what others read.
    if (started_.find(characteristic) != started_.end()) deliver(characteristic, value);
}

void GattSession::deliver(std::string_view characteristic, Bytes value) {
    const Subscription* subscription = subscriptionOf(characteristic);
    if (!subscription) return;
    const auto self = shared_from_this();
    if (!std::exchange(valuesFlow_, true)) owner_.valuesFlow();
    if (subscription->listeners.size() == 1) {
        if (const auto listener = subscription->listeners.front().lock())
            listener->valueArrived(characteristic, value);
        return;
    }
    // Those who listen may change the list.
    for (const auto& entry : std::vector(subscription->listeners)) {
        if (const auto listener = entry.lock()) listener->valueArrived(characteristic, value);
    }
}

GattSession::Subscription* GattSession::subscriptionOf(std::string_view characteristic) {
    const auto found = subscriptions_.find(characteristic);
    return found == subscriptions_.end() ? nullptr : &found->second;
}

void GattSession::end() {
    std::vector<std::shared_ptr<NotifySocket>> sockets;
    for (const auto& [characteristic, subscription] : subscriptions_) {
        if (subscription.socket) sockets.push_back(subscription.socket);
    }
    for (const auto& socket : sockets) {
        for (int i = 0; i < mostWaiting && socket->dispatch(); ++i) {
        }
    }
    abandon();
    // BlueZ would subscribe again by itself on the next link, before anybody listens, and a device that
    // sends its reading upon that would send it into the void.
    for (const std::string& characteristic : std::exchange(started_, {}))
        service_.send(service_.newCall(characteristic, characteristicInterface, "StopNotify"));
}

GattSession::~GattSession() { abandon(); }

void GattSession::abandon() {
    ended_ = true;
    operations_.clear();
    call_.reset();
    retry_.reset();
    for (auto& [characteristic, subscription] : subscriptions_) closeSocket(subscription);
    subscriptions_.clear();
}

}  // namespace corvane::bluez
