#include "corvane/platform/bluez/bluez_service.h"

#include <cerrno>
#include <utility>

#include "corvane/platform/bluez/bluez_names.h"
#include "corvane/platform/bluez/retry_delay.h"

namespace corvane::bluez {
namespace {

constexpr const char* serviceName = "org.bluez";
constexpr std::string_view busName = "org.freedesktop.DBus";
constexpr auto objectsDelay = std::chrono::seconds(1);
constexpr auto longestReconnectDelay = std::chrono::seconds(30);

bool isNobodyThere(const Reply& reply) {
    return reply.is(SD_BUS_ERROR_SERVICE_UNKNOWN) || reply.is(SD_BUS_ERROR_NAME_HAS_NO_OWNER);
}

Message noReply(const Message& call) {
    const sd_bus_error error{SD_BUS_ERROR_NO_REPLY, "No answer from the service.", 0};
    sd_bus_message* message = nullptr;
    sd_bus_message_new_method_error(call.get(), &message, &error);
    return Message(message);
}

}  // namespace

BlueZService::BlueZService(std::string busAddress, EventLoop& loop, ObjectTree::Observer& observer,
                           std::function<void()> changed, std::function<void(std::string_view)> diagnostics)
    : address_(std::move(busAddress)), loop_(loop), changed_(std::move(changed)),
      diagnostics_(std::move(diagnostics)), tree_(observer) {}

BlueZService::~BlueZService() {
    if (bus_) loop_.detach(*bus_);
}

void BlueZService::open() {
    // At the start of a machine the program may come before the bus, or find no free descriptor.
    if (!bus_ && !retry_ && !connect()) reconnectLater();
}

bool BlueZService::connect() {
    int error = 0;
    bus_ = Bus::open(address_, error);
    if (!bus_) {
        setPresence(error == -EACCES || error == -EPERM ? Presence::refused : Presence::absent);
        return false;
    }
    bus_->closed = [this] { busClosed(); };
    loop_.attach(bus_);
    listen();
    requestObjects();
    return true;
}

void BlueZService::busClosed() {
    diagnostics_("the bus has closed the connection");
    loop_.detach(*std::exchange(bus_, nullptr));
    objectsCall_.reset();
    refreshCall_.reset();
    waitingForRefresh_.clear();
    for (Slot* match : {&ownerMatch_, &objectsMatch_, &propertiesMatch_}) match->reset();
    owner_.clear();
    tree_.clear();
    setPresence(Presence::absent);
    reconnectLater();
}

void BlueZService::reconnectLater() {
    retry_ = loop_.after(retryDelay(++reconnections_, longestReconnectDelay), [this] {
        if (!connect()) reconnectLater();
    });
}

void BlueZService::listen() {
    // Before the objects are asked for, so that no change falls between.
    ownerMatch_ = bus_->match("type='signal',sender='org.freedesktop.DBus',"
                              "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='org.bluez'",
                              [this](sd_bus_message* signal) { ownerChanged(signal); });
    objectsMatch_ =
        bus_->match("type='signal',sender='org.bluez',interface='org.freedesktop.DBus.ObjectManager'",
                    [this](sd_bus_message* signal) {
                        if (!fromService(signal)) return;
                        if (sd_bus_message_is_signal(signal, nullptr, "InterfacesAdded"))
                            tree_.interfacesAdded(signal);
                        if (sd_bus_message_is_signal(signal, nullptr, "InterfacesRemoved"))
                            tree_.interfacesRemoved(signal);
                    });
    propertiesMatch_ = bus_->match("type='signal',sender='org.bluez',path_namespace='/org/bluez',"
                                   "interface='org.freedesktop.DBus.Properties',member='PropertiesChanged'",
                                   [this](sd_bus_message* signal) {
                                       if (fromService(signal)) tree_.propertiesChanged(signal);
                                   });
}

// Any process may address a signal to this connection, whatever the rules say.
bool BlueZService::fromService(sd_bus_message* message) const {
    return presence_ == Presence::present && senderOf(message) == owner_;
}

void BlueZService::requestObjects() {
    const Message message =
        bus_->newCall(serviceName, "/", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects");
    objectsCall_ = call(message, [this](const Reply& reply) { objectsArrived(reply); });
}

void BlueZService::objectsArrived(const Reply& reply) {
    objectsCall_.reset();
    if (!reply.failed() && tree_.load(reply.message())) {
        owner_ = reply.sender();
        reconnections_ = 0;
        setPresence(Presence::present);
    } else if (reply.is(SD_BUS_ERROR_ACCESS_DENIED)) {
        diagnostics_(reply.errorText());
        setPresence(Presence::refused);
    } else if (isNobodyThere(reply)) {
        setPresence(Presence::absent);
    } else {
        // It has the name and cannot answer yet.
        diagnostics_(reply.failed() ? reply.errorText() : "GetManagedObjects: malformed");
        retry_ = loop_.after(objectsDelay, [this] { requestObjects(); });
    }
}

void BlueZService::ownerChanged(sd_bus_message* signal) {
    const char* name = nullptr;
    const char* before = nullptr;
    const char* now = nullptr;
    if (senderOf(signal) != busName || !sd_bus_message_has_signature(signal, "sss")) return;
    if (sd_bus_message_read(signal, "sss", &name, &before, &now) < 0 || std::string_view(name) != serviceName)
        return;
    // Whoever has the name now: what the former owner said holds no longer.
    owner_.clear();
    tree_.clear();
    objectsCall_.reset();
    refreshCall_.reset();
    waitingForRefresh_.clear();
    retry_.reset();
    setPresence(Presence::absent);
    if (*now) requestObjects();
}

void BlueZService::setPresence(Presence presence) {
    if (std::exchange(presence_, presence) != presence) changed_();
}

Message BlueZService::newCall(std::string_view path, const char* interface, const char* member) {
    if (presence_ != Presence::present) return Message();
    return bus_->newCall(owner_, std::string(path), interface, member);
}

Call BlueZService::call(const Message& message, Bus::ReplyHandler handler, std::chrono::nanoseconds timeout) {
    if (!message.get()) return nullptr;
    auto pending = std::make_unique<PendingCall>();
    // Whichever of the two comes, the other one is withdrawn; the handler outlives both.
    const auto kept = std::make_shared<Bus::ReplyHandler>(std::move(handler));
    pending->slot = bus_->call(message, [kept, call = pending.get()](const Reply& reply) {
        call->limit.reset();
        (*std::shared_ptr(kept))(reply);
    });
    if (!pending->slot) return nullptr;
    pending->limit = loop_.after(timeout, [kept, message, call = pending.get()] {
        call->slot.reset();
        const Message error = noReply(message);
        (*std::shared_ptr(kept))(Reply(error.get()));
    });
    return pending;
}

void BlueZService::send(const Message& message) {
    if (message.get() && bus_) bus_->send(message);
}

bool BlueZService::canPassDescriptors() const { return bus_ && bus_->canPassDescriptors(); }

void BlueZService::refresh(std::function<void()> done) {
    if (done) waitingForRefresh_.push_back(std::move(done));
    if (refreshCall_) return;
    refreshCall_ = call(newCall("/", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects"),
                        [this](const Reply& reply) { refreshed(reply); });
    // Without a service there is nothing to read, and those who asked learn of its absence.
    if (!refreshCall_) waitingForRefresh_.clear();
}

void BlueZService::refreshed(const Reply& reply) {
    refreshCall_.reset();
    if (reply.failed() || !tree_.refresh(reply.message()))
        diagnostics_(reply.failed() ? reply.errorText() : "GetManagedObjects: malformed");
    for (const auto& done : std::exchange(waitingForRefresh_, {})) done();
}

Call BlueZService::readFlag(std::string_view path, const char* interface, const char* property,
                            std::function<void(std::optional<bool>)> done) {
    Message message = newCall(path, propertiesInterface, "Get");
    message.append("ss", interface, property);
    return call(message, [done = std::move(done)](const Reply& reply) {
        int value = 0;
        const bool read = !reply.failed() && sd_bus_message_read(reply.message(), "v", "b", &value) > 0;
        done(read ? std::optional(value != 0) : std::nullopt);
    });
}

}  // namespace corvane::bluez
